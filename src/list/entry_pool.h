// Where picture entries live: slabs taken from the kernel already populated, one call per
// slab, and handed out entry by entry through a free list. An opening adds thousands of
// entries in a few milliseconds; taking their memory from the heap a page fault at a time
// costs more than everything else the list does for them. Entries freed when another
// folder is opened are handed out again; the slabs stay with the process, as much as the
// largest list it has held needs.
//
// Thread-safe: one mutex, a leaf lock (taken inside the list lock).
#pragma once

#include <cstddef>

namespace orvanta::list::entry_pool {

// Storage for one PictureEntry; throws std::bad_alloc when the kernel gives no more.
void* Allocate();
void Free(void* entry);

// The bytes of the entries handed out and not freed, for memory figures.
std::size_t BytesInUse();

}  // namespace orvanta::list::entry_pool
