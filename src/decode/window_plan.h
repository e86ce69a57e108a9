// The decode window around the current entry: its first size, worked out from the memory
// that can be spent and the user's memory setting, and the order in which its entries are
// wanted. The order favours the usual direction of travel: current, +1, +2, -1, +3, +4, -2,
// ... Without wrapping round the list's ends, what behind cannot use before the first entry
// goes ahead. On a list shorter than the window the walk stops at the first entry it has
// already reached, so every entry is wanted once.
//
// Thread rules: pure functions; WindowOrder runs with the list lock held (it walks the list).
#pragma once

#include <cstdint>
#include <vector>

#include "list/list_hooks.h"

namespace orvanta::decode {

struct WindowSize {
    std::int64_t ahead = 0;
    std::int64_t behind = 0;
};

// n = min(guide, available MiB / L) / 3 with L the low 16 bits of DownscaleLargeImages (1
// when 0); ahead = round(2n), behind = round(n).
WindowSize InitialWindow(std::uint32_t guide, std::uint64_t availableMiB, std::uint32_t downscale);

// The window clipped at the list's ends when it must not wrap (WrapImageList off, or a
// tethered transfer pending): behind stops at the first entry and hands its unused steps to
// ahead, which stops at the last.
WindowSize ClipWindow(WindowSize window, std::uint32_t position, std::uint32_t count, bool clip);

// The entries of the window in the order they are wanted, the current one first. Empty when
// the list has no current entry.
std::vector<list::PictureEntry*> WindowOrder(const list::ListWindow& list, WindowSize window);

// Decode workers for a machine with `cores` cores: one with DisableSMP or a memory setting
// of 0, else the cores, 1 to 8.
std::uint32_t WorkerCount(bool disableSmp, std::uint32_t guide, std::uint32_t cores);

}  // namespace orvanta::decode
