#include "i18n/format_text.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace orvanta::i18n {
namespace {

// Widths and precisions above this are clipped: a module cannot make a text huge.
constexpr std::size_t kMaxWidth = 512;

std::string NumberText(std::int64_t value, char conversion) {
    char buffer[32];
    switch (conversion) {
        case 'u':
            std::snprintf(buffer, sizeof buffer, "%llu",
                          static_cast<unsigned long long>(static_cast<std::uint32_t>(value)));
            break;
        case 'x':
            std::snprintf(buffer, sizeof buffer, "%x", static_cast<std::uint32_t>(value));
            break;
        case 'X':
            std::snprintf(buffer, sizeof buffer, "%X", static_cast<std::uint32_t>(value));
            break;
        default:
            std::snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(value));
            break;
    }
    return buffer;
}

std::size_t CodePoints(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

}  // namespace

std::string Truncate(std::string_view text, std::size_t maxChars) {
    std::size_t chars = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            if (chars == maxChars) {
                return std::string(text.substr(0, i));
            }
            ++chars;
        }
    }
    return std::string(text);
}

std::string FormatText(std::string_view format, std::initializer_list<FormatArg> args) {
    std::vector<const FormatArg*> list;
    for (const FormatArg& arg : args) {
        list.push_back(&arg);
    }
    std::size_t next = 0;
    std::string out;
    for (std::size_t i = 0; i < format.size(); ++i) {
        char c = format[i];
        if (c != '%') {
            out.push_back(c);
            continue;
        }
        std::size_t start = i++;
        if (i < format.size() && format[i] == '%') {
            out.push_back('%');
            continue;
        }
        bool left = false;
        bool zero = false;
        for (; i < format.size() && (format[i] == '-' || format[i] == '0'); ++i) {
            (format[i] == '-' ? left : zero) = true;
        }
        std::size_t width = 0;
        for (; i < format.size() && format[i] >= '0' && format[i] <= '9'; ++i) {
            width = std::min(kMaxWidth, width * 10 + static_cast<std::size_t>(format[i] - '0'));
        }
        std::size_t precision = std::string::npos;
        if (i < format.size() && format[i] == '.') {
            precision = 0;
            for (++i; i < format.size() && format[i] >= '0' && format[i] <= '9'; ++i) {
                precision =
                    std::min(kMaxWidth, precision * 10 + static_cast<std::size_t>(format[i] - '0'));
            }
        }
        while (i < format.size() && (format[i] == 'l' || format[i] == 'h')) {
            ++i;
        }
        if (i >= format.size()) {
            out.append(format.substr(start));  // a lone '%' at the end stays as it is
            break;
        }
        char conversion = format[i];
        if (std::string_view("sdiuxXc").find(conversion) == std::string_view::npos) {
            out.append(format.substr(start, i - start + 1));
            continue;
        }
        std::string piece;
        if (next < list.size()) {
            const auto& value = list[next]->Value();
            if (const std::string* text = std::get_if<std::string>(&value)) {
                piece = *text;
            } else {
                std::int64_t number = std::get<std::int64_t>(value);
                if (conversion == 'c') {
                    piece = std::string(1, static_cast<char>(number));
                } else {
                    piece = NumberText(number, conversion);
                }
            }
            ++next;
        }
        bool numeric = conversion != 's' && conversion != 'c';
        if (!numeric && precision != std::string::npos) {
            piece = Truncate(piece, precision);
        }
        std::size_t length = CodePoints(piece);
        if (length < width) {
            std::size_t pad = width - length;
            if (left) {
                piece.append(pad, ' ');
            } else if (zero && numeric) {
                std::size_t signEnd = (!piece.empty() && piece[0] == '-') ? 1 : 0;
                piece.insert(signEnd, pad, '0');
            } else {
                piece.insert(0, pad, ' ');
            }
        }
        out += piece;
    }
    return out;
}

}  // namespace orvanta::i18n
