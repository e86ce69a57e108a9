#include "platform/imaging/guid.h"

namespace orvanta::imaging {

std::optional<Guid> Guid::Parse(std::string_view text) {
    if (text.size() == 38 && text.front() == '{' && text.back() == '}') {
        text = text.substr(1, 36);
    }
    if (text.size() != 36) {
        return std::nullopt;
    }
    Guid guid;
    int nibble = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') {
                return std::nullopt;
            }
            continue;
        }
        int v;
        if (c >= '0' && c <= '9') {
            v = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            v = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            v = c - 'A' + 10;
        } else {
            return std::nullopt;
        }
        guid.bytes[nibble / 2] =
            static_cast<std::uint8_t>(guid.bytes[nibble / 2] | (nibble % 2 ? v : v << 4));
        ++nibble;
    }
    return guid;
}

std::string Guid::ToString() const {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text = "{";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += kHex[bytes[i] >> 4];
        text += kHex[bytes[i] & 15];
    }
    text += '}';
    return text;
}

bool Guid::IsNull() const {
    for (auto b : bytes) {
        if (b != 0) {
            return false;
        }
    }
    return true;
}

}  // namespace orvanta::imaging
