// What choosing the language tells the user. One method per message; the desktop program
// shows message boxes (error or exclamation icon, topmost, titled with program string 100),
// tests record the calls. Called on the thread that selects the language (start-up).
#pragma once

#include <filesystem>
#include <string>

#include "platform/result.h"

namespace orvanta::i18n {

class LanguageNotices {
public:
    virtual ~LanguageNotices() = default;

    // Program string 103: the -lang code is unknown; the user's own language is used.
    virtual void InvalidLanguageCode103() = 0;
    // Program string 104: no usable module; the program cannot start.
    virtual void NoLanguageModule104() = 0;
    // A module whose signature does not verify was skipped (UntrustedModuleText).
    virtual void UntrustedModule(const std::filesystem::path& module, Result trust) = 0;
    // A trusted module could not be read or parsed; `reason` names the line and the fault.
    virtual void UnreadableModule(const std::filesystem::path& module,
                                  const std::string& reason) = 0;
};

}  // namespace orvanta::i18n
