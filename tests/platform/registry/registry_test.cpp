#include "platform/registry/registry.h"

#include <fstream>
#include <set>
#include <thread>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/result.h"
#include "support/temp_folder.h"

namespace orvanta::platform {
namespace {

using test::TempFolder;

std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Registry, KeepsTypesBytesAndTheCaseOfNames) {
    TempFolder folder;
    auto store = RegistryStore::Open(folder / "r.db");
    ASSERT_TRUE(store->Available());
    RegKey key;
    ASSERT_EQ(RegKey::Create(store, "SOFTWARE\\Tavrel\\Orvanta", key), ERROR_SUCCESS);
    const std::vector<std::uint8_t> blob{0, 1, 2, 0xFF};
    ASSERT_EQ(key.SetValue("Blob", RegType::Binary, blob), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Empty", RegType::Binary, {}), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Count", RegType::Dword, EncodeDword(0x01020304)), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Big", RegType::Qword, EncodeQword(1ull << 40)), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("Path", RegType::ExpandSz, EncodeString("%HOME%/Bilder ü")),
              ERROR_SUCCESS);

    RegType type{};
    std::vector<std::uint8_t> data;
    ASSERT_EQ(key.QueryValue("blob", type, data), ERROR_SUCCESS);
    EXPECT_EQ(type, RegType::Binary);
    EXPECT_EQ(data, blob);
    ASSERT_EQ(key.QueryValue("EMPTY", type, data), ERROR_SUCCESS);
    EXPECT_TRUE(data.empty());
    ASSERT_EQ(key.QueryValue("count", type, data), ERROR_SUCCESS);
    EXPECT_EQ(data, (std::vector<std::uint8_t>{4, 3, 2, 1}));
    ASSERT_EQ(key.QueryValue("path", type, data), ERROR_SUCCESS);
    EXPECT_EQ(type, RegType::ExpandSz);
    // UTF-16LE with its terminator, as the string readers expect.
    EXPECT_EQ(data.size(), (std::u16string(u"%HOME%/Bilder ü").size() + 1) * 2);
    EXPECT_EQ(DecodeString(data), "%HOME%/Bilder ü");

    // Rewriting under another spelling keeps the place in the enumeration, takes the new
    // spelling and the new type.
    ASSERT_EQ(key.SetValue("BLOB", RegType::Dword, EncodeDword(7)), ERROR_SUCCESS);
    RegValue first;
    ASSERT_EQ(key.EnumValue(0, first), ERROR_SUCCESS);
    EXPECT_EQ(first.name, "BLOB");
    EXPECT_EQ(first.type, RegType::Dword);
    RegValue last;
    EXPECT_EQ(key.EnumValue(4, last), ERROR_SUCCESS);
    EXPECT_EQ(last.name, "Path");
    EXPECT_EQ(key.EnumValue(5, last), ERROR_NO_MORE_ITEMS);

    // Case-insensitive beyond ASCII.
    ASSERT_EQ(key.SetValue("Größe", RegType::Dword, EncodeDword(1)), ERROR_SUCCESS);
    EXPECT_EQ(key.QueryValue("GRÖSSE", type, data), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(key.QueryValue("GRÖßE", type, data), ERROR_SUCCESS);
}

TEST(Registry, KeysEnumerateAndDeleteLikeTheRegistry) {
    TempFolder folder;
    auto store = RegistryStore::Open(folder / "r.db");
    RegKey root;
    ASSERT_EQ(RegKey::Create(store, "A", root), ERROR_SUCCESS);
    RegKey child;
    ASSERT_EQ(RegKey::Create(store, "A\\beta\\deep", child), ERROR_SUCCESS);
    ASSERT_EQ(child.SetValue("x", RegType::Dword, EncodeDword(1)), ERROR_SUCCESS);
    ASSERT_EQ(RegKey::Create(store, "a\\Alpha", child), ERROR_SUCCESS);
    ASSERT_EQ(root.SetValue("v", RegType::Dword, EncodeDword(1)), ERROR_SUCCESS);

    std::string name;
    ASSERT_EQ(root.EnumKey(0, name), ERROR_SUCCESS);
    EXPECT_EQ(name, "Alpha");
    ASSERT_EQ(root.EnumKey(1, name), ERROR_SUCCESS);
    EXPECT_EQ(name, "beta");
    EXPECT_EQ(root.EnumKey(2, name), ERROR_NO_MORE_ITEMS);

    RegKey missing;
    EXPECT_EQ(RegKey::Open(store, "A\\gamma", missing), ERROR_FILE_NOT_FOUND);
    EXPECT_FALSE(missing.IsOpen());
    EXPECT_EQ(root.DeleteValue("nope"), ERROR_FILE_NOT_FOUND);
    // A key with sub-keys is not deleted by DeleteKey; DeleteTree takes everything below.
    EXPECT_EQ(root.DeleteKey("BETA"), ERROR_ACCESS_DENIED);
    EXPECT_EQ(root.DeleteTree("BETA"), ERROR_SUCCESS);
    EXPECT_EQ(RegKey::Open(store, "A\\beta\\deep", missing), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(root.DeleteKey("alpha"), ERROR_SUCCESS);
    // An empty sub-key name clears the key but keeps it.
    ASSERT_EQ(RegKey::Create(store, "A\\c", child), ERROR_SUCCESS);
    EXPECT_EQ(root.DeleteTree(""), ERROR_SUCCESS);
    RegValue value;
    EXPECT_EQ(root.EnumValue(0, value), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(root.EnumKey(0, name), ERROR_NO_MORE_ITEMS);
    EXPECT_EQ(RegKey::Open(store, "A", missing), ERROR_SUCCESS);
    // A handle whose key was deleted meanwhile says so.
    RegKey top;
    ASSERT_EQ(RegKey::Open(store, "", top), ERROR_SUCCESS);
    ASSERT_EQ(top.DeleteTree("A"), ERROR_SUCCESS);
    EXPECT_EQ(root.SetValue("v", RegType::Dword, EncodeDword(2)), ERROR_KEY_DELETED);
}

TEST(Registry, DamagedDatabaseIsMovedAsideNeverOverwritten) {
    TempFolder folder;
    const auto path = folder / "registry.db";
    const std::string garbage(5000, 'x');
    std::ofstream(path, std::ios::binary) << garbage;

    testing::internal::CaptureStderr();
    auto store = RegistryStore::Open(path);
    const std::string said = testing::internal::GetCapturedStderr();
    ASSERT_TRUE(store->Available());
    RegKey key;
    ASSERT_EQ(RegKey::Create(store, "K", key), ERROR_SUCCESS);
    ASSERT_EQ(key.SetValue("v", RegType::Dword, EncodeDword(1)), ERROR_SUCCESS);

    int moved = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        if (entry.path().filename().string().rfind("registry.db.damaged-", 0) == 0) {
            ++moved;
            EXPECT_EQ(ReadAll(entry.path()), garbage);
        }
    }
    EXPECT_EQ(moved, 1);
    // Said at most once per process; the first damaged store of the test run says it.
    EXPECT_LE(std::count(said.begin(), said.end(), '\n'), 1);
}

TEST(Registry, UnopenableDatabaseLeavesTheStoreUnavailable) {
    TempFolder folder;
    // The parent "folder" is a file, so nothing can be created there.
    std::ofstream(folder / "file") << "x";
    auto store = RegistryStore::Open(folder / "file" / "registry.db");
    EXPECT_FALSE(store->Available());
    RegKey key;
    EXPECT_NE(RegKey::Create(store, "K", key), ERROR_SUCCESS);
    EXPECT_EQ(RegKey::Open(store, "K", key), ERROR_FILE_NOT_FOUND);
    EXPECT_TRUE(std::filesystem::is_regular_file(folder / "file"));
}

TEST(Registry, ConcurrentWritersLoseNothing) {
    TempFolder folder;
    const auto path = folder / "r.db";
    constexpr int kPerWriter = 150;
    const auto writeMany = [&](const std::string& prefix) {
        auto store = RegistryStore::Open(path);
        RegKey key;
        if (RegKey::Create(store, "SOFTWARE\\Shared", key) != ERROR_SUCCESS) {
            return false;
        }
        for (int i = 0; i < kPerWriter; ++i) {
            if (key.SetValue(prefix + std::to_string(i), RegType::Dword, EncodeDword(i)) !=
                ERROR_SUCCESS) {
                return false;
            }
        }
        return true;
    };
    // Make the database before the processes race to create it.
    ASSERT_TRUE(RegistryStore::Open(path)->Available());

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        _exit(writeMany("child") ? 0 : 1);
    }
    // Meanwhile two threads of this process share one store.
    auto shared = RegistryStore::Open(path);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            RegKey key;
            if (RegKey::Create(shared, "SOFTWARE\\Shared", key) != ERROR_SUCCESS) {
                ++failures;
                return;
            }
            for (int i = 0; i < kPerWriter; ++i) {
                if (key.SetValue("thread" + std::to_string(t) + "_" + std::to_string(i),
                                 RegType::Dword, EncodeDword(i)) != ERROR_SUCCESS) {
                    ++failures;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(failures.load(), 0);

    auto reader = RegistryStore::Open(path);
    RegKey key;
    ASSERT_EQ(RegKey::Open(reader, "software\\shared", key), ERROR_SUCCESS);
    std::set<std::string> names;
    RegValue value;
    for (std::uint32_t i = 0; key.EnumValue(i, value) == ERROR_SUCCESS; ++i) {
        names.insert(value.name);
    }
    EXPECT_EQ(names.size(), 3u * kPerWriter);
    EXPECT_TRUE(names.count("child149"));
    EXPECT_TRUE(names.count("thread1_149"));
}

}  // namespace
}  // namespace orvanta::platform
