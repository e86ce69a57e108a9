// An entry of a list of one, for the tests of the entry-level decode step.
#pragma once

#include <filesystem>

#include "list/picture_entry.h"

namespace orvanta::decode {

struct OneEntry {
    explicit OneEntry(const std::filesystem::path& basePath) {
        entry.nameLink = index.emplace(basePath.string(), &entry);
        entry.decoding = true;
    }
    list::NameIndex index;
    list::PictureEntry entry;
};

}  // namespace orvanta::decode
