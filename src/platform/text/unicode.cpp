#include "platform/text/unicode.h"

namespace orvanta::text {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

}  // namespace

char32_t NextCodePoint(std::string_view s, std::size_t& pos) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char lead = byte(pos);
    if (lead < 0x80) {
        ++pos;
        return lead;
    }
    int length = 0;
    char32_t c = 0;
    char32_t minimum = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, c = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, c = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, c = lead & 0x07, minimum = 0x10000;
    } else {
        ++pos;
        return kReplacement;
    }
    for (int i = 1; i < length; ++i) {
        if (pos + i >= s.size() || (byte(pos + i) & 0xC0) != 0x80) {
            pos += i;
            return kReplacement;
        }
        c = (c << 6) | (byte(pos + i) & 0x3F);
    }
    pos += length;
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        return kReplacement;
    }
    return c;
}

void AppendUtf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        c = kReplacement;
    }
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::u16string Utf8ToUtf16(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    for (std::size_t pos = 0; pos < utf8.size();) {
        const char32_t c = NextCodePoint(utf8, pos);
        if (c >= 0x10000) {
            out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<char16_t>(c);
        }
    }
    return out;
}

std::string Utf16ToUtf8(std::u16string_view utf16) {
    std::string out;
    out.reserve(utf16.size());
    for (std::size_t i = 0; i < utf16.size(); ++i) {
        char32_t c = utf16[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < utf16.size() && utf16[i + 1] >= 0xDC00 &&
            utf16[i + 1] <= 0xDFFF) {
            c = 0x10000 + ((c - 0xD800) << 10) + (utf16[i + 1] - 0xDC00);
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            c = kReplacement;
        }
        AppendUtf8(out, c);
    }
    return out;
}

char32_t FoldCase(char32_t c) {
    if (c < 0x80) {
        return (c >= 'a' && c <= 'z') ? c - 32 : c;
    }
    // Latin-1: à..þ except ÷; ÿ maps to Ÿ.
    if ((c >= 0xE0 && c <= 0xFE && c != 0xF7)) {
        return c - 32;
    }
    if (c == 0xFF) {
        return 0x178;
    }
    // Latin Extended-A pairs upper/lower on even/odd code points, with the block's three
    // runs that pair odd/even instead.
    if (c >= 0x100 && c <= 0x17F) {
        const bool oddUpper = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
        if (c == 0x130 || c == 0x131 || c == 0x138 || c == 0x149 || c == 0x17F) {
            return c;
        }
        if (oddUpper) {
            return (c % 2 == 0) ? c - 1 : c;
        }
        return (c % 2 == 1) ? c - 1 : c;
    }
    // Greek.
    if (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2) {
        return c - 32;
    }
    if (c == 0x3C2) {
        return 0x3A3;  // final sigma
    }
    if (c == 0x3AC) {
        return 0x386;
    }
    if (c >= 0x3AD && c <= 0x3AF) {
        return c - 37;
    }
    if (c == 0x3CC) {
        return 0x38C;
    }
    if (c == 0x3CD || c == 0x3CE) {
        return c - 63;
    }
    // Cyrillic.
    if (c >= 0x430 && c <= 0x44F) {
        return c - 32;
    }
    if (c >= 0x450 && c <= 0x45F) {
        return c - 80;
    }
    if (c >= 0x460 && c <= 0x4FF && c != 0x482 && !(c >= 0x483 && c <= 0x489)) {
        if (c >= 0x4C1 && c <= 0x4CE) {
            return (c % 2 == 0) ? c - 1 : c;
        }
        if (c == 0x4CF) {
            return 0x4C0;
        }
        return (c % 2 == 1) ? c - 1 : c;
    }
    return c;
}

std::string FoldCase(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t pos = 0; pos < utf8.size();) {
        AppendUtf8(out, FoldCase(NextCodePoint(utf8, pos)));
    }
    return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (FoldCase(NextCodePoint(a, i)) != FoldCase(NextCodePoint(b, j))) {
            return false;
        }
    }
    return i == a.size() && j == b.size();
}

std::string LowerAscii(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

}  // namespace orvanta::text
