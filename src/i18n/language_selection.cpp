#include "i18n/language_selection.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>

#include "cmdline/startup_request.h"
#include "i18n/language_codes.h"
#include "platform/shell/path_match.h"

namespace orvanta::i18n {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kProgramWord = "orvanta";
constexpr std::string_view kExtension = ".lang";
constexpr std::string_view kSignatureSuffix = ".sig";
constexpr std::uintmax_t kMaxModuleBytes = 16u << 20;

std::string Upper(std::string_view s) {
    std::string out(s);
    for (char& c : out) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return out;
}

bool ReadFile(const fs::path& file, std::vector<std::uint8_t>& bytes) {
    std::error_code ec;
    std::uintmax_t size = fs::file_size(file, ec);
    if (ec || size > kMaxModuleBytes) {
        return false;
    }
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return !in.bad();
}

bool Refused(const std::vector<fs::path>& refused, const fs::path& file) {
    return std::find(refused.begin(), refused.end(), file) != refused.end();
}

// The file a candidate names: the file itself, or with wildcards the first match in name
// order that was not refused before.
std::optional<fs::path> ResolveFile(const fs::path& folder, const std::string& name,
                                    const std::vector<fs::path>& refused) {
    if (name.find_first_of("?*") == std::string::npos) {
        fs::path file = folder / name;
        std::error_code ec;
        if (fs::is_regular_file(file, ec)) {
            return file;
        }
        return std::nullopt;
    }
    std::vector<std::string> names;
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        std::error_code typeEc;
        if (it->is_regular_file(typeEc)) {
            std::string candidate = it->path().filename().string();
            if (shell::MatchPatterns(candidate, name)) {
                names.push_back(std::move(candidate));
            }
        }
    }
    std::sort(names.begin(), names.end());
    for (const std::string& match : names) {
        if (!Refused(refused, folder / match)) {
            return folder / match;
        }
    }
    return std::nullopt;
}

// Steps of one code: the code itself, then for three letters its two-letter module code and
// that code followed by '?'.
std::optional<LoadedLanguage> TryCodeAndDerived(const LanguageRequest& request,
                                                const std::string& code, LanguageNotices& notices,
                                                std::vector<fs::path>& refused) {
    if (code.empty()) {
        return std::nullopt;
    }
    if (auto loaded = LoadModule(request, code, notices, refused)) {
        return loaded;
    }
    if (auto two = TwoLetterCode(code)) {
        if (auto loaded = LoadModule(request, *two, notices, refused)) {
            return loaded;
        }
        return LoadModule(request, *two + "?", notices, refused);
    }
    return std::nullopt;
}

}  // namespace

std::string ModuleFileName(const std::optional<std::string>& oem, std::string_view code) {
    std::string name(kProgramWord);
    name += '.';
    if (oem && !oem->empty()) {
        name += *oem;
        name += '.';
    }
    name += code;
    name += kExtension;
    return name;
}

std::optional<LoadedLanguage> LoadModule(const LanguageRequest& request, std::string_view code,
                                         LanguageNotices& notices, std::vector<fs::path>& refused) {
    auto file = ResolveFile(request.folder, ModuleFileName(request.oem, code), refused);
    if (!file || Refused(refused, *file)) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> content;
    if (!ReadFile(*file, content)) {
        refused.push_back(*file);
        notices.UnreadableModule(*file, "the file cannot be read");
        return std::nullopt;
    }
    fs::path signatureFile = *file;
    signatureFile += kSignatureSuffix;
    std::error_code ec;
    bool signed_ = fs::exists(signatureFile, ec);
    std::vector<std::uint8_t> signature;
    if (signed_ && !ReadFile(signatureFile, signature)) {
        signature.clear();
    }
    Result trust = CheckSignature(content, signature, request.keys, signed_);
    if (!Acceptable(trust)) {
        refused.push_back(*file);
        notices.UntrustedModule(*file, trust);
        return std::nullopt;
    }
    ParseError error;
    auto module = LanguageModule::Parse(
        std::string_view(reinterpret_cast<const char*>(content.data()), content.size()), error);
    if (!module) {
        refused.push_back(*file);
        notices.UnreadableModule(*file, error.ToString());
        return std::nullopt;
    }
    return LoadedLanguage{std::move(*module), *file};
}

std::optional<LoadedLanguage> SelectLanguage(const LanguageRequest& request,
                                             LanguageNotices& notices) {
    std::vector<fs::path> refused;
    std::string given;
    if (request.lang) {
        std::string code = Upper(*request.lang);
        if (IsKnownThreeLetterCode(code) || IsKnownTwoLetterCode(code)) {
            given = code.substr(0, 3);
        } else {
            notices.InvalidLanguageCode103();
        }
    }
    std::string user = Upper(request.userCode).substr(0, 3);
    std::string first = given.empty() ? user : given;
    if (auto loaded = TryCodeAndDerived(request, first, notices, refused)) {
        return loaded;
    }
    if (!given.empty() && given != user) {
        if (auto loaded = TryCodeAndDerived(request, user, notices, refused)) {
            return loaded;
        }
    }
    if (auto loaded = TryCodeAndDerived(request, "ENU", notices, refused)) {
        return loaded;
    }
    if (auto loaded = TryCodeAndDerived(request, "EN", notices, refused)) {
        return loaded;
    }
    if (auto loaded = LoadModule(request, "*", notices, refused)) {
        return loaded;
    }
    notices.NoLanguageModule104();
    return std::nullopt;
}

LanguageRequest RequestForProcess(const cmdline::StartupRequest& commandLine,
                                  const fs::path& folder) {
    LanguageRequest request;
    request.lang = commandLine.lang.value;
    request.oem = commandLine.oem.value;
    request.userCode = ThreeLetterCodeForLocale(
        MessagesLocale([](const char* name) { return std::getenv(name); }));
    request.folder = folder;
    auto builtIn = BuiltInKeys();
    request.keys.assign(builtIn.begin(), builtIn.end());
    for (const PublicKey& key : ReadTrustedKeys(folder / "trusted-keys")) {
        request.keys.push_back(key);
    }
    return request;
}

fs::path DefaultLanguageFolder(const fs::path& programFolder) {
    if (const char* dir = std::getenv("ORVANTA_LANG_DIR"); dir && *dir) {
        return dir;
    }
    std::vector<fs::path> candidates = {programFolder / "lang",
                                        programFolder / ".." / "share" / "orvanta" / "lang"};
#ifdef ORVANTA_SOURCE_LANG_DIR
    candidates.emplace_back(ORVANTA_SOURCE_LANG_DIR);
#endif
    for (const fs::path& folder : candidates) {
        std::error_code ec;
        if (fs::is_directory(folder, ec)) {
            return folder.lexically_normal();
        }
    }
    return candidates.front();
}

}  // namespace orvanta::i18n
