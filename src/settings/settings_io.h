// Typed reads and writes of single values with the registry's checks. Reads leave their
// target alone unless a well-formed value was read. Return codes: 0, the store's error
// (2 for a missing value), or 13 (ERROR_INVALID_DATA) for a value of the wrong type or
// shape. Callable from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/registry/registry.h"

namespace orvanta::settings {

// Accepts only a REG_DWORD of exactly 4 bytes.
long ReadDword(const platform::RegKey& key, std::string_view name, std::uint32_t& target);
// Accepts REG_SZ and REG_EXPAND_SZ (not expanded) with an even byte length ending in a NUL
// character; zero bytes read as an empty text. With `maxChars`, a longer text (terminator
// included) gives ERROR_MORE_DATA.
long ReadString(const platform::RegKey& key, std::string_view name, std::string& target,
                std::size_t maxChars = 0);
long WriteDword(platform::RegKey& key, std::string_view name, std::uint32_t value);
// REG_SZ whose byte length includes the terminator.
long WriteString(platform::RegKey& key, std::string_view name, std::string_view value);

}  // namespace orvanta::settings
