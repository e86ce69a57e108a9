// The rating prefix of a file name: "{3}IMG_0001" for a picture with three stars. A prefix
// already there is replaced, rating 0 (or anything outside 1..9) drops it. Pure function;
// thread-safe.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::marks {

// The longest path the renaming produces, in bytes, as the path buffer it was sized for.
inline constexpr std::size_t kMaxRatedPath = 519;

// `path` with its file-name part carrying the prefix of `rating`; the folder part is kept.
// None for a path shorter than 4 characters or a result longer than kMaxRatedPath.
std::optional<std::string> RatedFileName(std::string_view path, std::int64_t rating);

}  // namespace orvanta::marks
