// Loading the language module at start-up in the desktop program: the choice of
// i18n/language_selection.h with its messages shown as message boxes (topmost, titled with
// the program's title), and the chosen module made the process-wide one. Called once on
// the user-interface thread before any other thread starts.
#pragma once

#include <filesystem>

#include "i18n/language_notices.h"

namespace orvanta::cmdline {
struct StartupRequest;
}

namespace orvanta::app {

class MessageBoxLanguageNotices final : public i18n::LanguageNotices {
public:
    void InvalidLanguageCode103() override;
    void NoLanguageModule104() override;
    void UntrustedModule(const std::filesystem::path& module, Result trust) override;
    void UnreadableModule(const std::filesystem::path& module, const std::string& reason) override;
};

// False when no module could be loaded (message 104 was shown): the program ends with -1.
bool LoadLanguage(const cmdline::StartupRequest& commandLine,
                  const std::filesystem::path& programFolder, i18n::LanguageNotices& notices);

}  // namespace orvanta::app
