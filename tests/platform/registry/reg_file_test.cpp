#include "platform/registry/reg_file.h"

#include <gtest/gtest.h>

#include "platform/result.h"
#include "support/temp_folder.h"

namespace orvanta::platform {
namespace {

constexpr std::string_view kRoot = "SOFTWARE\\Tavrel\\Orvanta";

TEST(RegFile, ExportThenImportReproducesEveryValueAndKey) {
    test::TempFolder folder;
    auto source = RegistryStore::Open(folder / "a.db");
    RegKey key;
    ASSERT_EQ(RegKey::Create(source, kRoot, key), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Interval", RegType::Dword, EncodeDword(10)), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Quote", RegType::Sz, EncodeString("say \"hi\" C:\\x ✓")),
              ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("", RegType::Sz, EncodeString("default")), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Lines", RegType::Sz, EncodeString("a\nb")), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Odd", RegType::Sz, std::vector<std::uint8_t>{'a', 0, 'b'}),
              ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Big", RegType::Qword, EncodeQword(0x1122334455667788ull)),
              ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Expand", RegType::ExpandSz, EncodeString("%HOME%")), ERROR_SUCCESS);
    std::vector<std::uint8_t> blob(100);
    for (std::size_t i = 0; i < blob.size(); ++i) {
        blob[i] = static_cast<std::uint8_t>(i * 7);
    }
    ASSERT_EQ(key.SetValue("Blob", RegType::Binary, blob), ERROR_SUCCESS);
    RegKey editor;
    ASSERT_EQ(RegKey::Create(source, std::string(kRoot) + "\\ExternalEditors\\1", editor),
              ERROR_SUCCESS);
    ASSERT_EQ(editor.SetValue("Flags", RegType::Dword, EncodeDword(3)), ERROR_SUCCESS);

    std::string text;
    ASSERT_EQ(ExportRegText(source, kRoot, text), ERROR_SUCCESS);
    EXPECT_NE(text.find("\"Interval\"=dword:0000000a\n"), std::string::npos);
    EXPECT_NE(text.find("[HKEY_CURRENT_USER\\SOFTWARE\\Tavrel\\Orvanta\\ExternalEditors\\1]"),
              std::string::npos);
    EXPECT_EQ(text.rfind(std::string(kRegFileHeader), 0), 0u);

    auto target = RegistryStore::Open(folder / "b.db");
    std::string message;
    ASSERT_EQ(ImportRegText(target, text, kRoot, message), ERROR_SUCCESS) << message;
    std::string again;
    ASSERT_EQ(ExportRegText(target, kRoot, again), ERROR_SUCCESS);
    EXPECT_EQ(again, text);
}

TEST(RegFile, RefusedImportsChangeNothing) {
    test::TempFolder folder;
    auto store = RegistryStore::Open(folder / "a.db");
    const std::string header = std::string(kRegFileHeader) + "\n\n";
    const std::string section = "[HKEY_CURRENT_USER\\SOFTWARE\\Tavrel\\Orvanta]\n";
    const std::string bad[] = {
        "REGEDIT5\n" + section + "\"A\"=dword:1\n",
        header + "[HKEY_CURRENT_USER\\SOFTWARE\\Other]\n\"A\"=dword:1\n",
        header + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Tavrel\\Orvanta]\n",
        header + section + "\"A\"=dword:123456789\n",
        header + section + "\"A\"=dword:xyz\n",
        header + section + "\"A\"=hex:1,2\n",
        header + section + "\"A\"=\"unterminated\n",
        header + "\"A\"=dword:1\n",
        // A good line before a bad one must not be applied either.
        header + section + "\"Good\"=dword:1\n\"Bad\"=word:1\n",
    };
    for (const auto& text : bad) {
        std::string message;
        EXPECT_NE(ImportRegText(store, text, kRoot, message), ERROR_SUCCESS) << text;
        EXPECT_NE(message.find("line "), std::string::npos) << message;
    }
    RegKey key;
    EXPECT_EQ(RegKey::Open(store, kRoot, key), ERROR_FILE_NOT_FOUND);
}

TEST(RegFile, ImportReadsUtf16DeletionsAndWrappedHex) {
    test::TempFolder folder;
    auto store = RegistryStore::Open(folder / "a.db");
    RegKey key;
    ASSERT_EQ(RegKey::Create(store, std::string(kRoot) + "\\Old", key), ERROR_SUCCESS);
    ASSERT_EQ(RegKey::Create(store, kRoot, key), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Gone", RegType::Dword, EncodeDword(1)), ERROR_SUCCESS);

    const std::u16string text =
        u"Windows Registry Editor Version 5.00\r\n\r\n"
        u"[-HKEY_CURRENT_USER\\SOFTWARE\\Tavrel\\Orvanta\\Old]\r\n\r\n"
        u"[HKEY_CURRENT_USER\\SOFTWARE\\Tavrel\\Orvanta]\r\n"
        u"\"Gone\"=-\r\n"
        u"\"Name\"=\"Bildmappe ü\"\r\n"
        u"\"Bytes\"=hex:01,02,\\\r\n  03\r\n";
    std::string bytes = "\xFF\xFE";
    for (char16_t c : text) {
        bytes += static_cast<char>(c & 0xFF);
        bytes += static_cast<char>(c >> 8);
    }
    std::string message;
    ASSERT_EQ(ImportRegText(store, bytes, kRoot, message), ERROR_SUCCESS) << message;
    RegType type{};
    std::vector<std::uint8_t> data;
    EXPECT_EQ(key.QueryValue("Gone", type, data), ERROR_FILE_NOT_FOUND);
    ASSERT_EQ(key.QueryValue("Name", type, data), ERROR_SUCCESS);
    EXPECT_EQ(DecodeString(data), "Bildmappe ü");
    ASSERT_EQ(key.QueryValue("Bytes", type, data), ERROR_SUCCESS);
    EXPECT_EQ(data, (std::vector<std::uint8_t>{1, 2, 3}));
    RegKey old;
    EXPECT_EQ(RegKey::Open(store, std::string(kRoot) + "\\Old", old), ERROR_FILE_NOT_FOUND);
}

}  // namespace
}  // namespace orvanta::platform
