#include "metadata/query_paths.h"

namespace orvanta::metadata {

namespace {

std::string Build(std::string_view root, std::string_view tail) {
    std::string path(root);
    path += tail;
    if (path.size() > kMaxQueryPath) {
        path.resize(kMaxQueryPath);
    }
    return path;
}

}  // namespace

std::string QueryPaths::Xmp(std::string_view tail) const {
    return Build(tiffStructured_ ? "/ifd" : "", tail);
}

std::string QueryPaths::Ifd(std::string_view tail) const {
    return Build(tiffStructured_ ? "" : "/app1", tail);
}

}  // namespace orvanta::metadata
