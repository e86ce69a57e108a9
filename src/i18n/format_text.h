// printf-style formatting of language texts with the arguments a caller supplies. The format
// comes from a language module, a data file: a conversion that does not fit its argument, or
// one without an argument, must never read the wrong type or past the arguments. Each
// conversion (%s %ls %d %i %u %x %X %c %%, with flags "-0", a width and a precision; the
// length modifiers h, l and ll are accepted and ignored) takes the next argument and
// converts it to what the conversion asks: a number given to %s prints as decimal, a text
// given to %d prints as the text. Missing arguments print nothing. Pure; thread-safe.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

namespace orvanta::i18n {

class FormatArg {
public:
    FormatArg(std::string_view text) : value_(std::string(text)) {}
    FormatArg(const std::string& text) : value_(text) {}
    FormatArg(const char* text) : value_(std::string(text ? text : "")) {}
    FormatArg(std::int64_t number) : value_(number) {}
    FormatArg(int number) : value_(static_cast<std::int64_t>(number)) {}
    FormatArg(unsigned number) : value_(static_cast<std::int64_t>(number)) {}
    FormatArg(long long number) : value_(static_cast<std::int64_t>(number)) {}
    FormatArg(unsigned long number) : value_(static_cast<std::int64_t>(number)) {}

    const std::variant<std::string, std::int64_t>& Value() const { return value_; }

private:
    std::variant<std::string, std::int64_t> value_;
};

std::string FormatText(std::string_view format, std::initializer_list<FormatArg> args);

// The first `maxChars` characters (code points) of a UTF-8 text.
std::string Truncate(std::string_view text, std::size_t maxChars);

}  // namespace orvanta::i18n
