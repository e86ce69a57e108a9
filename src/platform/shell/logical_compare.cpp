#include "platform/shell/logical_compare.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "platform/text/unicode.h"

namespace orvanta::shell {

namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

// ASCII characters that are neither letters nor digits.
bool IsSymbol(char c) {
    const auto u = static_cast<unsigned char>(c);
    return u < 0x80 && !IsDigit(c) && !((u | 0x20) >= 'a' && (u | 0x20) <= 'z');
}

char32_t UpperAscii(unsigned char c) {
    return (c >= 'a' && c <= 'z') ? c - 32 : c;
}

// The length of the common prefix of `a` and `b`, compared eight bytes at a time: paths in
// one folder share most of their bytes, and this runs for every comparison the list makes.
std::size_t CommonPrefix(std::string_view a, std::string_view b) {
    const std::size_t shorter = std::min(a.size(), b.size());
    std::size_t same = 0;
    for (; same + 8 <= shorter; same += 8) {
        std::uint64_t x = 0;
        std::uint64_t y = 0;
        std::memcpy(&x, a.data() + same, 8);
        std::memcpy(&y, b.data() + same, 8);
        if (x != y) {
            const std::uint64_t differ = x ^ y;
            const int bit = std::endian::native == std::endian::little ? std::countr_zero(differ)
                                                                       : std::countl_zero(differ);
            return same + static_cast<std::size_t>(bit / 8);
        }
    }
    while (same < shorter && a[same] == b[same]) {
        ++same;
    }
    return same;
}

int Sign(long long v) {
    return v < 0 ? -1 : (v > 0 ? 1 : 0);
}

// Compares the digit runs starting at `i` and `j` by value, advancing both past their runs.
// `zeroTie` keeps the first difference in leading zeros for when all else is equal.
int CompareNumbers(std::string_view a, std::size_t& i, std::string_view b, std::size_t& j,
                   int& zeroTie) {
    std::size_t ia = i;
    std::size_t jb = j;
    while (ia < a.size() && a[ia] == '0') {
        ++ia;
    }
    while (jb < b.size() && b[jb] == '0') {
        ++jb;
    }
    const std::size_t zerosA = ia - i;
    const std::size_t zerosB = jb - j;
    std::size_t ea = ia;
    std::size_t eb = jb;
    while (ea < a.size() && IsDigit(a[ea])) {
        ++ea;
    }
    while (eb < b.size() && IsDigit(b[eb])) {
        ++eb;
    }
    i = ea;
    j = eb;
    // Without leading zeros, the longer run is the larger number; runs of one length
    // compare digit by digit, so numbers of any length work without overflow.
    if (ea - ia != eb - jb) {
        return ea - ia < eb - jb ? -1 : 1;
    }
    for (; ia < ea; ++ia, ++jb) {
        if (a[ia] != b[jb]) {
            return a[ia] < b[jb] ? -1 : 1;
        }
    }
    if (zeroTie == 0 && zerosA != zerosB) {
        zeroTie = zerosA < zerosB ? -1 : 1;
    }
    return 0;
}

}  // namespace

int CompareLogical(std::string_view a, std::string_view b) {
    // Paths in one folder share long prefixes: skip the identical bytes first, backing up to
    // the start of a digit run or a multi-byte character cut by the first difference.
    std::size_t same = CommonPrefix(a, b);
    while (same > 0 &&
           (IsDigit(a[same - 1]) ||
            (same < a.size() && (static_cast<unsigned char>(a[same]) & 0xC0) == 0x80))) {
        --same;
    }
    std::size_t i = same;
    std::size_t j = same;
    int zeroTie = 0;
    while (i < a.size() && j < b.size()) {
        const bool digitA = IsDigit(a[i]);
        const bool digitB = IsDigit(b[j]);
        if (digitA && digitB) {
            const int numbers = CompareNumbers(a, i, b, j, zeroTie);
            if (numbers != 0) {
                return numbers;
            }
            continue;
        }
        // Punctuation and blanks sort before numbers, numbers before letters, as in a
        // file manager's listing.
        if (digitA != digitB) {
            const char other = digitA ? b[j] : a[i];
            const bool otherFirst = IsSymbol(other);
            return (digitA != otherFirst) ? -1 : 1;
        }
        char32_t ca = 0;
        char32_t cb = 0;
        const auto ua = static_cast<unsigned char>(a[i]);
        const auto ub = static_cast<unsigned char>(b[j]);
        if ((ua | ub) < 0x80) {
            // Most names are ASCII: fold them here rather than decoding code points.
            ca = UpperAscii(ua);
            cb = UpperAscii(ub);
            ++i;
            ++j;
        } else {
            ca = text::FoldCase(text::NextCodePoint(a, i));
            cb = text::FoldCase(text::NextCodePoint(b, j));
        }
        if (ca != cb) {
            const bool symbolA = ca < 0x80 && IsSymbol(static_cast<char>(ca));
            const bool symbolB = cb < 0x80 && IsSymbol(static_cast<char>(cb));
            if (symbolA != symbolB) {
                return symbolA ? -1 : 1;
            }
            return ca < cb ? -1 : 1;
        }
    }
    if (i < a.size() || j < b.size()) {
        return i < a.size() ? 1 : -1;  // a prefix comes first
    }
    return zeroTie;
}

namespace {

// The bytes of a sort key. Each piece of the text starts with a byte that orders pieces of
// different kinds as CompareLogical does: the end of the text first (a prefix comes first),
// then punctuation, then numbers, then letters. Punctuation and ASCII letters take that one
// byte alone, so a key is hardly longer than its text and sorts with short comparisons.
constexpr unsigned char kKeyEnd = 0x00;
constexpr unsigned char kKeySymbol = 0x01;       // + the character: 0x01 .. 0x80
constexpr unsigned char kKeyNumber = 0x81;       // then its length and digits
constexpr unsigned char kKeyAsciiLetter = 0x82;  // + the rank among 0-9, A-Z, a-z: .. 0xBF
constexpr unsigned char kKeyLetter = 0xC0;       // then the folded code point in three bytes

// What a folded code point below 0x80 becomes in a key: the ranks keep the order of the
// code points among digits and letters.
constexpr std::array<unsigned char, 128> MakeFoldedKeys() {
    std::array<unsigned char, 128> keys{};
    for (int c = 0; c < 128; ++c) {
        if (c >= '0' && c <= '9') {
            keys[c] = static_cast<unsigned char>(kKeyAsciiLetter + c - '0');
        } else if (c >= 'A' && c <= 'Z') {
            keys[c] = static_cast<unsigned char>(kKeyAsciiLetter + 10 + c - 'A');
        } else if (c >= 'a' && c <= 'z') {
            keys[c] = static_cast<unsigned char>(kKeyAsciiLetter + 36 + c - 'a');
        } else {
            keys[c] = static_cast<unsigned char>(kKeySymbol + c);
        }
    }
    return keys;
}
constexpr std::array<unsigned char, 128> kFoldedKeys = MakeFoldedKeys();

// The same for an ASCII character of the text, which is folded first.
constexpr std::array<unsigned char, 128> MakeAsciiKeys() {
    std::array<unsigned char, 128> keys{};
    for (int c = 0; c < 128; ++c) {
        keys[c] = kFoldedKeys[c >= 'a' && c <= 'z' ? c - 32 : c];
    }
    return keys;
}
constexpr std::array<unsigned char, 128> kAsciiKeys = MakeAsciiKeys();

// A count, in an order-preserving form: one byte below 255, else 255 and four bytes.
void AppendCount(std::string& to, std::size_t count) {
    if (count < 0xFF) {
        to.push_back(static_cast<char>(count));
        return;
    }
    to.push_back(static_cast<char>(0xFF));
    const auto value = static_cast<std::uint32_t>(std::min<std::size_t>(count, 0xFFFFFFFF));
    for (int shift = 24; shift >= 0; shift -= 8) {
        to.push_back(static_cast<char>((value >> shift) & 0xFF));
    }
}

}  // namespace

void AppendLogicalKey(std::string_view text, std::string& key) {
    // Leading zeros only break ties, after everything else: their counts go after the end.
    std::string zeros;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (IsDigit(text[i])) {
            std::size_t start = i;
            while (start < text.size() && text[start] == '0') {
                ++start;
            }
            std::size_t end = start;
            while (end < text.size() && IsDigit(text[end])) {
                ++end;
            }
            // A longer number without its leading zeros is the larger one; numbers of one
            // length compare digit by digit.
            key.push_back(static_cast<char>(kKeyNumber));
            AppendCount(key, end - start);
            key.append(text.substr(start, end - start));
            AppendCount(zeros, start - i);
            i = end;
            continue;
        }
        if (byte < 0x80) {
            key.push_back(static_cast<char>(kAsciiKeys[byte]));
            ++i;
            continue;
        }
        const char32_t folded = text::FoldCase(text::NextCodePoint(text, i));
        if (folded < 0x80) {
            // Folded into ASCII (the Kelvin sign, the long s): keyed as that character is.
            key.push_back(static_cast<char>(kFoldedKeys[folded]));
        } else {
            key.push_back(static_cast<char>(kKeyLetter));
            for (int shift = 16; shift >= 0; shift -= 8) {
                key.push_back(static_cast<char>((folded >> shift) & 0xFF));
            }
        }
    }
    key.push_back(static_cast<char>(kKeyEnd));
    key += zeros;
}

int CompareLogicalTotal(std::string_view a, std::string_view b) {
    const int logical = CompareLogical(a, b);
    if (logical != 0) {
        return logical;
    }
    return Sign(static_cast<long long>(a.compare(b)));
}

int CompareNoCase(std::string_view a, std::string_view b) {
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < a.size() && j < b.size()) {
        const char32_t ca = text::FoldCase(text::NextCodePoint(a, i));
        const char32_t cb = text::FoldCase(text::NextCodePoint(b, j));
        if (ca != cb) {
            return ca < cb ? -1 : 1;
        }
    }
    if (i < a.size() || j < b.size()) {
        return i < a.size() ? 1 : -1;
    }
    return 0;
}

}  // namespace orvanta::shell
