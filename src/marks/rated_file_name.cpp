#include "marks/rated_file_name.h"

namespace orvanta::marks {

std::optional<std::string> RatedFileName(std::string_view path, std::int64_t rating) {
    if (path.size() < 4) {
        return std::nullopt;
    }
    const std::size_t slash = path.find_last_of('/');
    const std::size_t nameStart = slash == std::string_view::npos ? 0 : slash + 1;
    std::string_view name = path.substr(nameStart);
    if (name.size() >= 3 && name[0] == '{' && name[1] >= '0' && name[1] <= '9' && name[2] == '}') {
        name.remove_prefix(3);
    }
    std::string result(path.substr(0, nameStart));
    if (rating >= 1 && rating <= 9) {
        result += '{';
        result += static_cast<char>('0' + rating);
        result += '}';
    }
    result += name;
    if (result.size() > kMaxRatedPath) {
        return std::nullopt;
    }
    return result;
}

}  // namespace orvanta::marks
