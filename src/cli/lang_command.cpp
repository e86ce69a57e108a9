// orvanta-cli lang: checking a language module (its text and its signature), signing one,
// and showing which module the program would choose.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "cli/command.h"
#include "i18n/language_codes.h"
#include "i18n/language_selection.h"
#include "i18n/program_strings.h"

#if ORVANTA_HAVE_SODIUM
#include <sodium.h>
#endif

namespace orvanta::cli {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kUsage =
    "lang check MODULE [--keys FILE]\n"
    "lang sign MODULE --key SECRET-KEY-FILE\n"
    "lang choose [--folder DIR] [--lang CODE] [--oem TEXT] [--locale NAME]";

int Usage() {
    return UsageError("usage: orvanta-cli " + std::string(kUsage));
}

bool ReadBytes(const fs::path& file, std::string& bytes) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

// Prints what the choice would show the user, on stderr.
class PrintingNotices final : public i18n::LanguageNotices {
public:
    void InvalidLanguageCode103() override { Print(i18n::ProgramString(103)); }
    void NoLanguageModule104() override { Print(i18n::ProgramString(104)); }
    void UntrustedModule(const fs::path& module, Result trust) override {
        Print(i18n::UntrustedModuleText(module, trust));
    }
    void UnreadableModule(const fs::path& module, const std::string& reason) override {
        Print(module.string() + ": " + reason);
    }

private:
    static void Print(std::string_view text) {
        std::fprintf(stderr, "orvanta-cli: %.*s\n", static_cast<int>(text.size()), text.data());
    }
};

int Check(std::span<const std::string> args) {
    if (args.empty()) {
        return Usage();
    }
    fs::path module = args[0];
    std::vector<i18n::PublicKey> keys(i18n::BuiltInKeys().begin(), i18n::BuiltInKeys().end());
    for (const auto& key : i18n::ReadTrustedKeys(module.parent_path() / "trusted-keys")) {
        keys.push_back(key);
    }
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--keys" && i + 1 < args.size()) {
            for (const auto& key : i18n::ReadTrustedKeys(args[++i])) {
                keys.push_back(key);
            }
        } else {
            return Usage();
        }
    }
    std::string content;
    if (!ReadBytes(module, content)) {
        return Failure(module.string() + ": cannot be read");
    }
    i18n::ParseError error;
    auto parsed = i18n::LanguageModule::Parse(content, error);
    if (!parsed) {
        return Failure(module.string() + ": " + error.ToString());
    }
    fs::path sigFile = module;
    sigFile += ".sig";
    std::string signature;
    bool signedModule = ReadBytes(sigFile, signature);
    auto bytes = [](const std::string& s) {
        return std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(s.data()),
                                             s.size());
    };
    Result trust = i18n::CheckSignature(bytes(content), bytes(signature), keys, signedModule);
    std::string trustText = trust == S_OK                        ? "trusted"
                            : trust == i18n::TRUST_E_NOSIGNATURE ? "unsigned"
                                                                 : "refused (" + trust.Hex() + ")";
    std::printf("%s: %zu strings, signature %s\n", module.string().c_str(),
                parsed->Strings().size(), trustText.c_str());
    return i18n::Acceptable(trust) ? 0 : 1;
}

int Sign(std::span<const std::string> args) {
    if (args.size() != 3 || args[1] != "--key") {
        return Usage();
    }
#if ORVANTA_HAVE_SODIUM
    std::string content;
    std::string secret;
    if (!ReadBytes(args[0], content)) {
        return Failure(args[0] + ": cannot be read");
    }
    if (!ReadBytes(args[2], secret) || secret.size() != crypto_sign_SECRETKEYBYTES) {
        return Failure(args[2] + ": not a secret key of " +
                       std::to_string(crypto_sign_SECRETKEYBYTES) + " bytes");
    }
    if (sodium_init() < 0) {
        return Failure("libsodium cannot start");
    }
    unsigned char signature[crypto_sign_BYTES];
    crypto_sign_detached(signature, nullptr, reinterpret_cast<const unsigned char*>(content.data()),
                         content.size(), reinterpret_cast<const unsigned char*>(secret.data()));
    std::ofstream out(args[0] + ".sig", std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(signature), sizeof signature);
    if (!out) {
        return Failure(args[0] + ".sig: cannot be written");
    }
    std::printf("%s.sig\n", args[0].c_str());
    return 0;
#else
    return Failure("built without libsodium");
#endif
}

int Choose(std::span<const std::string> args) {
    i18n::LanguageRequest request;
    std::error_code ec;
    request.folder =
        i18n::DefaultLanguageFolder(fs::read_symlink("/proc/self/exe", ec).parent_path());
    std::string locale = i18n::MessagesLocale([](const char* name) { return std::getenv(name); });
    for (std::size_t i = 0; i < args.size(); i += 2) {
        if (i + 1 >= args.size()) {
            return Usage();
        }
        const std::string& value = args[i + 1];
        if (args[i] == "--folder") {
            request.folder = value;
        } else if (args[i] == "--lang") {
            request.lang = value;
        } else if (args[i] == "--oem") {
            request.oem = value;
        } else if (args[i] == "--locale") {
            locale = value;
        } else {
            return Usage();
        }
    }
    request.userCode = i18n::ThreeLetterCodeForLocale(locale);
    request.keys.assign(i18n::BuiltInKeys().begin(), i18n::BuiltInKeys().end());
    for (const auto& key : i18n::ReadTrustedKeys(request.folder / "trusted-keys")) {
        request.keys.push_back(key);
    }
    PrintingNotices notices;
    auto loaded = i18n::SelectLanguage(request, notices);
    if (!loaded) {
        return 1;
    }
    std::printf("%s\n", loaded->file.string().c_str());
    return 0;
}

int Run(std::span<const std::string> args) {
    if (args.empty()) {
        return Usage();
    }
    auto rest = args.subspan(1);
    if (args[0] == "check") {
        return Check(rest);
    }
    if (args[0] == "sign") {
        return Sign(rest);
    }
    if (args[0] == "choose") {
        return Choose(rest);
    }
    return Usage();
}

const CommandRegistrar registrar({"lang", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli
