#include "list/picture_entry.h"

#include <new>

#include "list/entry_pool.h"

namespace orvanta::list {

void* PictureEntry::operator new(std::size_t size) {
    return size == sizeof(PictureEntry) ? entry_pool::Allocate(size) : ::operator new(size);
}

void PictureEntry::operator delete(void* entry, std::size_t size) {
    if (size == sizeof(PictureEntry)) {
        entry_pool::Free(entry, size);
    } else {
        ::operator delete(entry);
    }
}

std::shared_mutex& RenameLock() {
    static std::shared_mutex lock;
    return lock;
}

std::string PictureEntry::BasePathCopy() const {
    std::shared_lock lock(RenameLock());
    return nameLink->first;
}

std::string KeyName(const PictureEntry& entry) {
    if (!entry.IsFrame()) {
        return entry.BasePath();
    }
    return entry.BasePath() + "<" + std::to_string(entry.frameIndex) + ">";
}

bool AddExtension(std::string& extensionSet, std::string_view extension) {
    std::string_view rest = extensionSet;
    while (!rest.empty()) {
        const std::size_t end = rest.find(';');
        if (rest.substr(0, end) == extension) {
            return false;
        }
        rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
    }
    if (!extensionSet.empty()) {
        extensionSet += ';';
    }
    extensionSet += extension;
    return true;
}

}  // namespace orvanta::list
