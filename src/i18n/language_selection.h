// Choosing and loading the language module at start-up. Candidates are tried in a fixed
// order: the -lang code (when known), else the user's own three-letter code; its two-letter
// module code and any three-letter module starting with it; the user's code when -lang gave
// nothing; then ENU, EN and finally any module at all. Each candidate is a file
// "orvanta[.OEM].<CODE>.lang" in the language folder (a code may hold '?' and '*'). A
// module is used when its signature verifies or it has none, and it parses. Runs once on
// the start-up thread; the result is a value.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "i18n/language_module.h"
#include "i18n/language_notices.h"
#include "i18n/module_signature.h"

namespace orvanta::cmdline {
struct StartupRequest;
}

namespace orvanta::i18n {

struct LanguageRequest {
    std::optional<std::string> lang;  // the -lang switch's value
    std::optional<std::string> oem;   // the -oem switch's value
    std::string userCode;             // the user's three-letter code (ThreeLetterCodeForLocale)
    std::filesystem::path folder;     // where the modules are
    std::vector<PublicKey> keys;      // trusted keys (built-in plus the trusted-keys file)
};

struct LoadedLanguage {
    LanguageModule module;
    std::filesystem::path file;
};

// The module file name for `code` (wildcards kept as they are).
std::string ModuleFileName(const std::optional<std::string>& oem, std::string_view code);

// Loads one candidate: the file (the first match, in name order, that has not been refused
// before when the code holds wildcards), its signature and its text. Refusals are reported
// through `notices` and remembered in `refused` so that no file is reported twice.
std::optional<LoadedLanguage> LoadModule(const LanguageRequest& request, std::string_view code,
                                         LanguageNotices& notices,
                                         std::vector<std::filesystem::path>& refused);

// The whole choice; nullopt after message 104 when nothing could be loaded.
std::optional<LoadedLanguage> SelectLanguage(const LanguageRequest& request,
                                             LanguageNotices& notices);

// The request for this process: the -lang and -oem switches, the user's locale from the
// environment, the language folder and the trusted keys (built in plus the file
// "trusted-keys" in the language folder).
LanguageRequest RequestForProcess(const cmdline::StartupRequest& commandLine,
                                  const std::filesystem::path& folder);

// The folder that holds the modules: $ORVANTA_LANG_DIR when set, else the first of
// <program folder>/lang, <program folder>/../share/orvanta/lang and the source tree's lang
// folder that exists.
std::filesystem::path DefaultLanguageFolder(const std::filesystem::path& programFolder);

}  // namespace orvanta::i18n
