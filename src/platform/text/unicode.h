// UTF-8 inside the program, UTF-16 where a format is UTF-16 on disk (REG_SZ values, some
// sidecars), and the simple case folding that the case-insensitive comparisons of the
// settings store and the shell helpers share. Pure functions; thread-safe.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvanta::text {

// Ill-formed input never fails: each bad sequence becomes U+FFFD.
std::u16string Utf8ToUtf16(std::string_view utf8);
std::string Utf16ToUtf8(std::u16string_view utf16);

// Decodes the code point at `pos` and advances `pos` past it (U+FFFD for a bad sequence).
char32_t NextCodePoint(std::string_view utf8, std::size_t& pos);
void AppendUtf8(std::string& out, char32_t c);

// Upper-case mapping of one code point for comparisons without regard to case: ASCII,
// Latin-1, Latin Extended-A, Greek and Cyrillic, which covers the names people give
// folders and files in the languages the program ships.
char32_t FoldCase(char32_t c);
std::string FoldCase(std::string_view utf8);
bool EqualsNoCase(std::string_view a, std::string_view b);

// A-Z to a-z, every other byte unchanged: for extensions and other ASCII names.
std::string LowerAscii(std::string_view text);

}  // namespace orvanta::text
