// Trimming of the blanks around a line of a text file: spaces and tabs at both ends, and
// the carriage return that a file with CR LF line ends leaves at the end. Pure; thread-safe.
#pragma once

#include <string_view>

namespace orvanta::text {

constexpr std::string_view TrimBlanks(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) {
        s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
        s.remove_suffix(1);
    }
    return s;
}

}  // namespace orvanta::text
