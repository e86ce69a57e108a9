// The few texts the program holds itself, for use before a language module is loaded:
// strings 100 to 104 and the notice about a module whose signature does not verify. Pure
// functions over constant texts; thread-safe.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "platform/result.h"

namespace orvanta::i18n {

// Ids 100 to 104; an empty text for any other id.
std::string_view ProgramString(int id);

// "An invalid or untrusted resource DLL was ignored.\n\n<path>\n\n(0x80096010)" style.
std::string UntrustedModuleText(const std::filesystem::path& module, Result trust);

}  // namespace orvanta::i18n
