// One picture of the open folder, or one frame of a multi-frame file. The list owns its
// entries; decode workers, the view and the culling code hold pointers to them only while
// the entry is in the list (removal first stops and waits for a running decode).
//
// Thread rules: the identity fields (name link, sort time, frame index and count) are set
// before the entry is inserted and never change; ExtensionSet, decodeKind, bookmarkName,
// slot and flags are guarded by the list lock; the decode result, size, marks, decoded
// picture and metadata are written by the worker holding decodeLock; the atomics may be
// touched by any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <string_view>

#include "list/entry_pool.h"
#include "platform/shell/logical_compare.h"

namespace orvanta::decode {
class DecodedPicture;  // the pixels ready for display, made by the decode workers
}
namespace orvanta::metadata {
struct PictureMetadata;
}

namespace orvanta::list {

class PictureList;
struct PictureEntry;

// Base path (full path without extension) to entry, in logical order; the frames of a
// multi-frame file and same-named files of several multi-frame formats each have a node.
using NameIndex =
    std::multimap<std::string, PictureEntry*, shell::LogicalLess,
                  entry_pool::PoolAllocator<std::pair<const std::string, PictureEntry*>>>;

struct CullingMarks {
    std::int32_t rating = -1;  // -1 until read from the file's metadata
    std::int32_t label = -1;
    std::int32_t labellingConvention = -1;
    std::int32_t urgency = -1;
};

struct EntryFlag {
    // Added by the user's own action (command line, dropped file): the first write notice
    // for its file is not a change.
    static constexpr std::uint32_t kAddedByUser = 0x1;
};

struct PictureEntry {
    NameIndex::iterator nameLink;  // the index node whose key is the base path
    std::uint64_t sortTime = 0;    // FILETIME units; 0 when unknown
    std::uint32_t width = 0;       // decoded size, 0 until decoded
    std::uint32_t height = 0;
    CullingMarks marks;
    std::int32_t decodeResult = 0;  // code of the last decode, 0 before the first
    std::uint16_t frameIndex = 0;   // 0 for a single-frame file
    std::uint16_t frameCount = 1;   // 1 for a single-frame file
    std::shared_ptr<const decode::DecodedPicture> decodedPicture;
    std::shared_ptr<const decode::DecodedPicture> systemMemoryCopy;
    // Filled during decoding, read-only afterwards; none until then (the record is large and
    // a folder may hold a hundred thousand entries).
    std::shared_ptr<const metadata::PictureMetadata> metadata;
    std::atomic<std::uint32_t> abortFlag{0};  // asks a running decode to stop
    std::atomic<bool> decoding{false};        // a worker decodes the entry
    std::timed_mutex decodeLock;              // held by the worker for the whole decode
    std::string extensionSet;                 // "jpg;nef": lower case, in the order found
    std::string decodeKind;                   // the extension the last decode used
    std::string bookmarkName;                 // the entry's named bookmark, or empty
    PictureList* owner = nullptr;
    std::int32_t slot = -1;  // place in the recently shown pictures, or -1
    std::uint32_t flags = 0;
    // File operations: culling, embedded writes, keeping and deleting.
    std::uint64_t lastMarkedTime = 0;
    std::atomic<bool> copied{false};
    std::atomic<std::int32_t> pendingCopies{0};
    std::atomic<bool> stillQueueing{false};
    // The embedded metadata writer replaced the file: its next watch notice is ours.
    std::atomic<bool> selfReplaced{false};

    // Entries come from a pool of their own (entry_pool.h); a type derived from this one
    // is allocated as usual.
    static void* operator new(std::size_t size);
    static void operator delete(void* entry, std::size_t size);

    // With the list lock held (or on the thread that renames).
    const std::string& BasePath() const { return nameLink->first; }
    // A copy that is safe without the list lock: renaming an entry changes its base path
    // under the list lock and the rename lock together, and this takes the rename lock.
    std::string BasePathCopy() const;
    bool IsFrame() const { return frameIndex != 0 || frameCount != 1; }
};

// Held exclusively while entries' base paths change (inside the list lock), shared by
// BasePathCopy. Nothing else is locked while it is held.
std::shared_mutex& RenameLock();

// The name the list and the caption use: the base path, and for a frame of a multi-frame
// file "<base path><frame index>" in angle brackets ("/p/scan<2>").
std::string KeyName(const PictureEntry& entry);

// Adds `extension` (lower case, without dot) to a ";"-separated set; false when it was
// already there.
bool AddExtension(std::string& extensionSet, std::string_view extension);

}  // namespace orvanta::list
