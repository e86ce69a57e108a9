#include "platform/shell/logical_compare.h"

#include <algorithm>
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

void AppendLogicalKey(std::string_view text, std::string& key) {
    // Each piece starts with its kind, which orders pieces of different kinds as
    // CompareLogical does: punctuation, then numbers, then letters; the end of the text, 0,
    // comes before all of them (a prefix comes first). A piece's kind fixes its length.
    constexpr char kEnd = 0;
    constexpr char kSymbol = 1;
    constexpr char kNumber = 2;
    constexpr char kLetter = 3;
    const auto appendBigEndian = [](std::string& to, std::uint32_t value, int bytes) {
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
            to.push_back(static_cast<char>((value >> shift) & 0xFF));
        }
    };
    // Leading zeros only break ties, after everything else: their counts go after the end.
    std::string zeros;
    std::size_t i = 0;
    while (i < text.size()) {
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
            key.push_back(kNumber);
            appendBigEndian(key, static_cast<std::uint32_t>(end - start), 4);
            key.append(text.substr(start, end - start));
            appendBigEndian(zeros, static_cast<std::uint32_t>(start - i), 4);
            i = end;
            continue;
        }
        const auto byte = static_cast<unsigned char>(text[i]);
        char32_t folded = 0;
        if (byte < 0x80) {
            folded = UpperAscii(byte);
            ++i;
        } else {
            folded = text::FoldCase(text::NextCodePoint(text, i));
        }
        if (folded < 0x80 && IsSymbol(static_cast<char>(folded))) {
            key.push_back(kSymbol);
            key.push_back(static_cast<char>(folded));
        } else {
            key.push_back(kLetter);
            appendBigEndian(key, static_cast<std::uint32_t>(folded), 3);
        }
    }
    key.push_back(kEnd);
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
