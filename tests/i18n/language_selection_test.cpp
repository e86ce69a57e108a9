#include "i18n/language_selection.h"

#include <fstream>

#include <gtest/gtest.h>

#include "i18n/language_codes.h"
#include "i18n/program_strings.h"
#include "support/temp_folder.h"

#if ORVANTA_HAVE_SODIUM
#include <sodium.h>
#endif

namespace orvanta::i18n {
namespace {

namespace fs = std::filesystem;

struct Notice {
    std::string what;  // "103", "104", "untrusted", "unreadable"
    std::string file;  // file name only
    std::uint32_t code = 0;
    std::string reason;
};

class RecordingLanguageNotices final : public LanguageNotices {
public:
    void InvalidLanguageCode103() override { all.push_back({"103"}); }
    void NoLanguageModule104() override { all.push_back({"104"}); }
    void UntrustedModule(const fs::path& module, Result trust) override {
        all.push_back({"untrusted", module.filename().string(), trust.Code(), {}});
    }
    void UnreadableModule(const fs::path& module, const std::string& reason) override {
        all.push_back({"unreadable", module.filename().string(), 0, reason});
    }
    std::vector<Notice> all;
};

class LanguageSelection : public testing::Test {
protected:
    // A module whose string 100 names it, so a test sees which one was loaded.
    fs::path AddModule(const std::string& fileName) {
        fs::path file = folder_ / fileName;
        std::ofstream(file, std::ios::binary) << "[strings]\n100 = \"" << fileName << "\"\n";
        return file;
    }

    std::optional<std::string> Select(std::optional<std::string> lang, std::string userCode) {
        LanguageRequest request;
        request.lang = std::move(lang);
        request.oem = oem_;
        request.userCode = std::move(userCode);
        request.folder = folder_.Path();
        request.keys = keys_;
        auto loaded = SelectLanguage(request, notices_);
        if (!loaded) {
            return std::nullopt;
        }
        EXPECT_EQ(std::string(loaded->module.String(100)), loaded->file.filename().string());
        return loaded->file.filename().string();
    }

    test::TempFolder folder_;
    std::optional<std::string> oem_;
    std::vector<PublicKey> keys_;
    RecordingLanguageNotices notices_;
};

TEST_F(LanguageSelection, FrenchUserWithOnlyEnglishGetsEnglishSilently) {
    AddModule("orvanta.ENU.lang");
    EXPECT_EQ(Select(std::nullopt, ThreeLetterCodeForLocale("fr_FR.UTF-8")), "orvanta.ENU.lang");
    EXPECT_TRUE(notices_.all.empty());
}

TEST_F(LanguageSelection, UnknownLangCodeWarnsAndFallsBackToTheUsersLanguage) {
    AddModule("orvanta.ENU.lang");
    AddModule("orvanta.FRA.lang");
    EXPECT_EQ(Select("XX", "FRA"), "orvanta.FRA.lang");
    ASSERT_EQ(notices_.all.size(), 1u);
    EXPECT_EQ(notices_.all[0].what, "103");

    // A known code in lower case is taken as it is, without a message.
    notices_.all.clear();
    AddModule("orvanta.DEU.lang");
    EXPECT_EQ(Select("deu", "FRA"), "orvanta.DEU.lang");
    EXPECT_TRUE(notices_.all.empty());
    // A known code without a module falls back to the user's code, silently.
    EXPECT_EQ(Select("ITA", "FRA"), "orvanta.FRA.lang");
    EXPECT_TRUE(notices_.all.empty());
}

TEST_F(LanguageSelection, ChineseCodesFindTheirTwoLetterModules) {
    AddModule("orvanta.CH.lang");
    AddModule("orvanta.ZH.lang");
    AddModule("orvanta.ENU.lang");
    EXPECT_EQ(Select(std::nullopt, "CHT"), "orvanta.CH.lang");
    EXPECT_EQ(Select(std::nullopt, "ZHH"), "orvanta.CH.lang");
    EXPECT_EQ(Select(std::nullopt, "CHS"), "orvanta.ZH.lang");
    EXPECT_EQ(Select(std::nullopt, ThreeLetterCodeForLocale("zh_TW.UTF-8")), "orvanta.CH.lang");
    EXPECT_TRUE(notices_.all.empty());
}

TEST_F(LanguageSelection, SiblingThreeLetterModuleAndLastResorts) {
    AddModule("orvanta.DEU.lang");
    // Swiss German: no DES, no DE, but DE? finds DEU.
    EXPECT_EQ(Select(std::nullopt, "DES"), "orvanta.DEU.lang");
    // Japanese: JP is no module code; no English either, so any module at all.
    EXPECT_EQ(Select(std::nullopt, "JPN"), "orvanta.DEU.lang");
    AddModule("orvanta.EN.lang");
    EXPECT_EQ(Select(std::nullopt, "JPN"), "orvanta.EN.lang");
    EXPECT_TRUE(notices_.all.empty());
}

TEST_F(LanguageSelection, NoModuleAtAllShowsMessage104) {
    std::ofstream(folder_ / "orvanta.ENU.txt") << "[strings]\n100 = \"x\"\n";
    EXPECT_EQ(Select(std::nullopt, "ENU"), std::nullopt);
    ASSERT_EQ(notices_.all.size(), 1u);
    EXPECT_EQ(notices_.all[0].what, "104");
}

TEST_F(LanguageSelection, OemTextIsPartOfEveryFileName) {
    AddModule("orvanta.ENU.lang");
    AddModule("orvanta.Studio.ENU.lang");
    oem_ = "Studio";
    EXPECT_EQ(Select(std::nullopt, "ENU"), "orvanta.Studio.ENU.lang");
    EXPECT_EQ(ModuleFileName(std::string("X"), "FRA"), "orvanta.X.FRA.lang");
    EXPECT_EQ(ModuleFileName(std::nullopt, "FRA"), "orvanta.FRA.lang");
}

TEST_F(LanguageSelection, BrokenModuleIsReportedWithItsLineAndSkipped) {
    AddModule("orvanta.ENU.lang");
    std::ofstream(folder_ / "orvanta.FRA.lang") << "[strings]\n100 = \"Orvanta\n";
    EXPECT_EQ(Select(std::nullopt, "FRA"), "orvanta.ENU.lang");
    ASSERT_EQ(notices_.all.size(), 1u);
    EXPECT_EQ(notices_.all[0].what, "unreadable");
    EXPECT_EQ(notices_.all[0].file, "orvanta.FRA.lang");
    EXPECT_NE(notices_.all[0].reason.find("line 2"), std::string::npos);
}

#if ORVANTA_HAVE_SODIUM

class SignedModules : public LanguageSelection {
protected:
    void SetUp() override {
        ASSERT_GE(sodium_init(), 0);
        crypto_sign_keypair(publicKey_.data(), secretKey_);
        keys_ = {publicKey_};
    }

    void Sign(const fs::path& file, const unsigned char* secretKey) {
        std::ifstream in(file, std::ios::binary);
        std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::array<unsigned char, crypto_sign_BYTES> signature{};
        crypto_sign_detached(signature.data(), nullptr,
                             reinterpret_cast<const unsigned char*>(content.data()), content.size(),
                             secretKey);
        fs::path sig = file;
        sig += ".sig";
        std::ofstream(sig, std::ios::binary)
            .write(reinterpret_cast<const char*>(signature.data()), signature.size());
    }

    PublicKey publicKey_{};
    unsigned char secretKey_[crypto_sign_SECRETKEYBYTES]{};
};

TEST_F(SignedModules, TamperedModuleIsRefusedAndTheNextCandidateTried) {
    Sign(AddModule("orvanta.ENU.lang"), secretKey_);
    fs::path french = AddModule("orvanta.FRA.lang");
    Sign(french, secretKey_);
    EXPECT_EQ(Select(std::nullopt, "FRA"), "orvanta.FRA.lang");
    EXPECT_TRUE(notices_.all.empty());

    std::ofstream(french, std::ios::app) << "10060 = \"Changed\"\n";
    EXPECT_EQ(Select(std::nullopt, "FRA"), "orvanta.ENU.lang");
    ASSERT_EQ(notices_.all.size(), 1u);
    EXPECT_EQ(notices_.all[0].what, "untrusted");
    EXPECT_EQ(notices_.all[0].file, "orvanta.FRA.lang");
    EXPECT_EQ(notices_.all[0].code, TRUST_E_BAD_DIGEST.Code());
    EXPECT_EQ(UntrustedModuleText(french, TRUST_E_BAD_DIGEST),
              "An invalid or untrusted resource DLL was ignored.\n\n" + french.string() +
                  "\n\n(0x80096010)");
}

TEST_F(SignedModules, RefusedModuleIsNotReportedTwiceNorTakenByWildcards) {
    // Only a tampered FRA and a good FRC: FRA is refused once, then FR? passes over it.
    fs::path french = AddModule("orvanta.FRA.lang");
    Sign(french, secretKey_);
    std::ofstream(french, std::ios::app) << "# changed\n";
    AddModule("orvanta.FRC.lang");
    EXPECT_EQ(Select(std::nullopt, "FRA"), "orvanta.FRC.lang");
    ASSERT_EQ(notices_.all.size(), 1u);
    EXPECT_EQ(notices_.all[0].file, "orvanta.FRA.lang");
}

TEST_F(SignedModules, ForeignKeyAndMalformedSignatureAreRefused) {
    PublicKey otherPublic{};
    unsigned char otherSecret[crypto_sign_SECRETKEYBYTES];
    crypto_sign_keypair(otherPublic.data(), otherSecret);
    Sign(AddModule("orvanta.FRA.lang"), otherSecret);
    AddModule("orvanta.DEU.lang");
    std::ofstream(folder_ / "orvanta.DEU.lang.sig") << "short";
    AddModule("orvanta.ENU.lang");  // unsigned: accepted

    EXPECT_EQ(Select("DEU", "FRA"), "orvanta.ENU.lang");
    ASSERT_EQ(notices_.all.size(), 2u);
    EXPECT_EQ(notices_.all[0].file, "orvanta.DEU.lang");
    EXPECT_EQ(notices_.all[0].code, TRUST_E_SUBJECT_FORM_UNKNOWN.Code());
    EXPECT_EQ(notices_.all[1].file, "orvanta.FRA.lang");
    EXPECT_EQ(notices_.all[1].code, TRUST_E_BAD_DIGEST.Code());

    // Trusting the other key through the trusted-keys file accepts its module.
    std::ofstream keysFile(folder_ / "trusted-keys");
    keysFile << "# studio key\n\n  ";
    for (std::uint8_t b : otherPublic) {
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02X", b);
        keysFile << hex;
    }
    keysFile << "  \nnot a key\n";
    keysFile.close();
    auto trusted = ReadTrustedKeys(folder_ / "trusted-keys");
    ASSERT_EQ(trusted.size(), 1u);
    EXPECT_EQ(trusted[0], otherPublic);
    keys_.push_back(trusted[0]);
    notices_.all.clear();
    EXPECT_EQ(Select(std::nullopt, "FRA"), "orvanta.FRA.lang");
    EXPECT_TRUE(notices_.all.empty());
}

#endif

TEST(LanguageCodes, TwoLetterDerivation) {
    EXPECT_EQ(TwoLetterCode("CHS"), "ZH");
    for (const char* code : {"CHT", "ZHH", "ZHI", "ZHM"}) {
        EXPECT_EQ(TwoLetterCode(code), "CH") << code;
    }
    EXPECT_EQ(TwoLetterCode("CSY"), "CS");
    EXPECT_EQ(TwoLetterCode("ENG"), "EN");
    EXPECT_EQ(TwoLetterCode("PTB"), "PT");
    EXPECT_EQ(TwoLetterCode("SVF"), "SV");
    EXPECT_EQ(TwoLetterCode("JPN"), std::nullopt);  // "JP" is no module code
    EXPECT_EQ(TwoLetterCode("HUN"), std::nullopt);
    EXPECT_EQ(TwoLetterCode("EN"), std::nullopt);
    EXPECT_TRUE(IsKnownThreeLetterCode("ZHM"));
    EXPECT_FALSE(IsKnownThreeLetterCode("XYZ"));
    EXPECT_TRUE(IsKnownTwoLetterCode("KO"));
}

TEST(LanguageCodes, UserLocaleGivesThreeLetterCode) {
    const std::pair<const char*, const char*> cases[] = {
        {"fr_FR.UTF-8", "FRA"}, {"fr_CA.UTF-8", "FRC"}, {"fr_SN", "FRA"},
        {"de_AT.UTF-8", "DEA"}, {"en_GB.UTF-8", "ENG"}, {"en_US", "ENU"},
        {"en_IN.UTF-8", "ENU"}, {"zh_TW.UTF-8", "CHT"}, {"zh_CN.GB18030", "CHS"},
        {"zh_HK", "ZHH"},       {"pt_BR", "PTB"},       {"pt_PT.UTF-8", "PTG"},
        {"sr_RS@latin", "SRL"}, {"sr_RS.UTF-8", "SRB"}, {"sr@latin", "SRL"},
        {"nb_NO.UTF-8", "NOR"}, {"ja_JP.UTF-8", "JPN"}, {"C", "ENU"},
        {"C.UTF-8", "ENU"},     {"POSIX", "ENU"},       {"", "ENU"},
        {"xx_YY", "ENU"},       {"FR_fr", "FRA"},
    };
    for (auto [locale, code] : cases) {
        EXPECT_EQ(ThreeLetterCodeForLocale(locale), code) << locale;
    }
}

TEST(LanguageCodes, MessagesLocalePrecedence) {
    std::map<std::string, std::string> env;
    auto get = [&](const char* name) -> const char* {
        auto it = env.find(name);
        return it == env.end() ? nullptr : it->second.c_str();
    };
    EXPECT_EQ(MessagesLocale(get), "");
    env["LANG"] = "de_DE.UTF-8";
    EXPECT_EQ(MessagesLocale(get), "de_DE.UTF-8");
    env["LC_MESSAGES"] = "fr_FR.UTF-8";
    EXPECT_EQ(MessagesLocale(get), "fr_FR.UTF-8");
    env["LC_ALL"] = "";  // set but empty: not counted
    EXPECT_EQ(MessagesLocale(get), "fr_FR.UTF-8");
    env["LC_ALL"] = "it_IT";
    EXPECT_EQ(MessagesLocale(get), "it_IT");
}

}  // namespace
}  // namespace orvanta::i18n
