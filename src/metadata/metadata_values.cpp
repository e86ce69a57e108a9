#include "metadata/metadata_values.h"

#include <cmath>
#include <limits>

#include "platform/text/unicode.h"

namespace orvanta::metadata {

namespace {

// The two halves of a value that is not text, as the platform's readers take them.
std::optional<std::uint64_t> PackedBits(const imaging::MetadataValue& value) {
    if (const auto* rational = std::get_if<imaging::PackedRational>(&value)) {
        return rational->bits;
    }
    if (const auto* rationals = std::get_if<std::vector<imaging::PackedRational>>(&value)) {
        return rationals->empty() ? std::nullopt : std::optional(rationals->front().bits);
    }
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return static_cast<std::uint64_t>(*number);
    }
    return std::nullopt;
}

bool IsWhiteSpace(char32_t c) {
    return c == ' ' || (c >= '\t' && c <= '\r') || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F ||
           c == 0x205F || c == 0x3000;
}

Fraction SplitText(std::string_view text) {
    const auto slash = text.find('/');
    if (slash == std::string_view::npos) {
        return {};
    }
    return {DecimalValue(text.substr(0, slash)), DecimalValue(text.substr(slash + 1))};
}

Fraction SplitValue(const imaging::MetadataValue& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return SplitText(*text);
    }
    const auto bits = PackedBits(value);
    if (!bits) {
        return {};
    }
    const auto rational = imaging::PackedRational{*bits};
    return {rational.Numerator(), rational.Denominator()};
}

}  // namespace

std::int32_t DecimalValue(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) {
        ++at;
    }
    bool negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        negative = text[at] == '-';
        ++at;
    }
    std::int64_t number = 0;
    constexpr std::int64_t kLimit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = std::min(kLimit, number * 10 + (text[at] - '0'));
    }
    number = negative ? -number : std::min(number, kLimit - 1);
    return static_cast<std::int32_t>(number);
}

double RationalAsDouble(const imaging::MetadataValue& value) {
    const Fraction fraction = SplitValue(value);
    if (fraction.denominator == 0) {
        return 0;
    }
    return static_cast<double>(fraction.numerator) / fraction.denominator;
}

Fraction ExposureFraction(const imaging::MetadataValue& value) {
    const Fraction fraction = SplitValue(value);
    // 64-bit arithmetic: the smallest 32-bit number divided by -1 does not fit 32 bits.
    const std::int64_t n = fraction.numerator;
    const std::int64_t d = fraction.denominator;
    if (n == 0 || d == 0) {
        return {};
    }
    if (d % n == 0 && d / n <= std::numeric_limits<std::int32_t>::max()) {
        return {1, static_cast<std::int32_t>(d / n)};
    }
    if (n % d == 0 && n / d <= std::numeric_limits<std::int32_t>::max()) {
        return {static_cast<std::int32_t>(n / d), 1};
    }
    return fraction;
}

std::optional<ExposureTime> ExposureFromShutterSpeed(double tv) {
    const double factor = std::exp2(tv);
    const double seconds = 1 / factor;
    if (!std::isfinite(factor) || !std::isfinite(seconds) || seconds == 0) {
        return std::nullopt;
    }
    // 2^Tv truncated, held to the 32-bit range a denominator has.
    const double whole =
        std::min(std::trunc(factor), double{std::numeric_limits<std::int32_t>::max()});
    return ExposureTime{seconds, {1, static_cast<std::int32_t>(whole)}};
}

std::optional<double> FNumberFromAperture(double av) {
    const double fNumber = std::exp2(av / 2);
    if (!std::isfinite(fNumber) || fNumber == 0) {
        return std::nullopt;
    }
    return fNumber;
}

std::optional<imaging::FileTime> ParseDateText(std::string_view text) {
    // An EXIF date is 19 characters, the XMP form longer; the field at 17 ends at 19.
    if (text.size() < 19) {
        return std::nullopt;
    }
    const auto field = [&](std::size_t start, std::size_t end) {
        return DecimalValue(text.substr(start, end - start));
    };
    const imaging::CivilTime time{
        field(0, 4), field(5, 7), field(8, 10), field(11, 13), field(14, 16), field(17, 19), 0};
    return imaging::FileTimeFromCivil(time);
}

std::string TrimWhiteSpace(std::string_view text) {
    std::size_t begin = 0;
    std::size_t end = 0;  // just past the last code point that is not white space
    bool seen = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t start = at;
        const char32_t c = text::NextCodePoint(text, at);
        if (!IsWhiteSpace(c)) {
            if (!seen) {
                begin = start;
                seen = true;
            }
            end = at;
        }
    }
    return seen ? std::string(text.substr(begin, end - begin)) : std::string();
}

}  // namespace orvanta::metadata
