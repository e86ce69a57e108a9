// orvanta-cli lang: a translator's check of a module, signing, and the program's choice.
#include <fstream>

#include <gtest/gtest.h>

#include "support/cli_runner.h"
#include "support/temp_folder.h"

#if ORVANTA_HAVE_SODIUM
#include <sodium.h>
#endif

namespace orvanta {
namespace {

test::CliRun Cli(std::vector<std::string> args) {
    return test::RunCli(args, {{}, true});
}

TEST(LangCommand, ChecksTextAndReportsTheFaultyLine) {
    test::TempFolder folder;
    std::ofstream(folder / "orvanta.FRA.lang") << "[strings]\n100 = \"Orvanta\"\n10060 = oops\n";
    auto run = Cli({"lang", "check", (folder / "orvanta.FRA.lang").string()});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.out.find("line 3: a text in double quotes was expected"), std::string::npos)
        << run.out;

    run = Cli({"lang", "check", ORVANTA_SOURCE_DIR "/lang/orvanta.ENU.lang"});
    EXPECT_EQ(run.exitCode, 0) << run.out;
    EXPECT_NE(run.out.find("signature unsigned"), std::string::npos) << run.out;
    EXPECT_EQ(Cli({"lang", "frobnicate"}).exitCode, 2);
}

TEST(LangCommand, ChoosesAsTheProgramWould) {
    test::TempFolder folder;
    std::ofstream(folder / "orvanta.ENU.lang") << "[strings]\n100 = \"Orvanta\"\n";
    auto run = Cli({"lang", "choose", "--folder", folder.Path().string(), "--locale", "fr_FR"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.out, (folder / "orvanta.ENU.lang").string() + "\n");

    run = Cli({"lang", "choose", "--folder", folder.Path().string(), "--lang", "QQ"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.out.find("Invalid language code!"), std::string::npos);

    run = Cli({"lang", "choose", "--folder", (folder / "none").string()});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.out.find("cannot start"), std::string::npos);
}

#if ORVANTA_HAVE_SODIUM
TEST(LangCommand, SignedModuleIsTrustedUntilChanged) {
    ASSERT_GE(sodium_init(), 0);
    unsigned char publicKey[crypto_sign_PUBLICKEYBYTES];
    unsigned char secretKey[crypto_sign_SECRETKEYBYTES];
    crypto_sign_keypair(publicKey, secretKey);
    test::TempFolder folder;
    std::ofstream(folder / "secret.key", std::ios::binary)
        .write(reinterpret_cast<const char*>(secretKey), sizeof secretKey);
    {
        std::ofstream keys(folder / "trusted-keys");
        for (unsigned char b : publicKey) {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02x", b);
            keys << hex;
        }
        keys << "\n";
    }
    std::string module = (folder / "orvanta.DEU.lang").string();
    std::ofstream(module) << "[strings]\n100 = \"Orvanta\"\n";

    EXPECT_EQ(Cli({"lang", "sign", module, "--key", (folder / "secret.key").string()}).exitCode, 0);
    auto run = Cli({"lang", "check", module});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.out.find("signature trusted"), std::string::npos) << run.out;

    std::ofstream(module, std::ios::app) << "101 = \"changed\"\n";
    run = Cli({"lang", "check", module});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.out.find("refused (0x80096010)"), std::string::npos) << run.out;
}
#endif

}  // namespace
}  // namespace orvanta
