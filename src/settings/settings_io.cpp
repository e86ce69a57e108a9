#include "settings/settings_io.h"

#include "platform/result.h"

namespace orvanta::settings {

using platform::RegType;

long ReadDword(const platform::RegKey& key, std::string_view name, std::uint32_t& target) {
    RegType type{};
    std::vector<std::uint8_t> data;
    if (const long error = key.QueryValue(name, type, data)) {
        return error;
    }
    if (type != RegType::Dword || data.size() != 4) {
        return ERROR_INVALID_DATA;
    }
    target = static_cast<std::uint32_t>(data[0]) | (static_cast<std::uint32_t>(data[1]) << 8) |
             (static_cast<std::uint32_t>(data[2]) << 16) |
             (static_cast<std::uint32_t>(data[3]) << 24);
    return ERROR_SUCCESS;
}

long ReadString(const platform::RegKey& key, std::string_view name, std::string& target,
                std::size_t maxChars) {
    RegType type{};
    std::vector<std::uint8_t> data;
    if (const long error = key.QueryValue(name, type, data)) {
        return error;
    }
    if (type != RegType::Sz && type != RegType::ExpandSz) {
        return ERROR_INVALID_DATA;
    }
    if (data.empty()) {
        target.clear();
        return ERROR_SUCCESS;
    }
    if (data.size() % 2 != 0 || data[data.size() - 1] != 0 || data[data.size() - 2] != 0) {
        return ERROR_INVALID_DATA;
    }
    if (maxChars != 0 && data.size() / 2 > maxChars) {
        return ERROR_MORE_DATA;
    }
    target = platform::DecodeString(data);
    return ERROR_SUCCESS;
}

long WriteDword(platform::RegKey& key, std::string_view name, std::uint32_t value) {
    return key.SetValue(name, RegType::Dword, platform::EncodeDword(value));
}

long WriteString(platform::RegKey& key, std::string_view name, std::string_view value) {
    return key.SetValue(name, RegType::Sz, platform::EncodeString(value));
}

}  // namespace orvanta::settings
