#include "i18n/program_strings.h"

#include <cstdio>

namespace orvanta::i18n {

std::string_view ProgramString(int id) {
    switch (id) {
        case 100:
        case 101:
        case 102:
            return "Orvanta";
        case 103:
            return "Invalid language code! Reverting to default language.";
        case 104:
            return "Orvanta cannot start!\n\n"
                   "At least one language resource DLL must be installed and valid, for example "
                   "orvanta.ENU.lang which ships with the program.\n\n"
                   "Cannot continue, sorry. Try re-installing the program from its original "
                   "setup package.\n\n"
                   "Please note all messages and error codes about invalid or untrusted resource "
                   "DLLs you saw and write to support@tavrel.com.";
        default:
            return {};
    }
}

std::string UntrustedModuleText(const std::filesystem::path& module, Result trust) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08lx", static_cast<unsigned long>(trust.Code()));
    return "An invalid or untrusted resource DLL was ignored.\n\n" + module.string() + "\n\n(" +
           code + ")";
}

}  // namespace orvanta::i18n
