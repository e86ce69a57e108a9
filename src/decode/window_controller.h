// The controller that grows and shrinks the decode window after every decode. Under memory
// pressure (a decode ran out of memory, or the load reached the threshold plus 5) each side
// gives up a step, remembered as pending; a side keeps its last step unless a decode
// actually failed for lack of memory. Once the pressure is gone the pending steps come back
// one per decode, alternating between the sides when both have some. With nothing pending,
// a load at most the threshold minus 5 and room under the memory setting, the window grows:
// ahead when the memory left holds another picture of the recent mean size (plus 5 percent),
// behind only on every second such chance. Growth takes effect at the next move.
//
// Thread rules: WindowState and SizeRing are plain values; the cache guards its WindowState
// with the cache lock and its SizeRing with the statistics lock.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/result.h"
#include "platform/system/memory_status.h"

namespace orvanta::decode {

struct WindowState {
    std::int64_t ahead = 0;
    std::int64_t behind = 0;
    std::uint32_t pendingAhead = 0;  // steps taken off under pressure, to be given back
    std::uint32_t pendingBehind = 0;
    std::uint32_t growCounter = 0;  // consecutive growth chances; behind grows on even ones
    bool alternate = false;         // both sides pending: behind gets the next step back
};

// The memory of the last four decoded pictures, each rounded up to a whole 4096-byte page.
class SizeRing {
public:
    void Record(std::uint64_t bytes);
    // The integer mean of the recorded sizes; 0 before the first.
    std::uint64_t Mean() const;
    std::uint32_t Count() const { return count_; }

private:
    std::array<std::uint64_t, 4> sizes_{};
    std::uint32_t count_ = 0;
};

// The load, in percent, from which the window stops growing (T - 5) and shrinks (T + 5):
// 50 + guide x 0.390625, so 50 to 87 for settings 0 to 96.
std::uint32_t LoadThreshold(std::uint32_t guide);

bool IsMemoryFailure(Result result);

struct ControlInput {
    Result result;
    std::uint32_t guide = 0;  // MemoryUsageGuideNumber
    platform::MemoryFigures memory;
    std::uint64_t meanSize = 0;   // SizeRing::Mean() after recording this decode
    std::size_t cachedCount = 0;  // pictures in the decoded set
};

struct ControlOutcome {
    bool ok = true;           // false: memory ran out and the window cannot shrink
    bool reschedule = false;  // the window changed: re-plan it (without queueing)
};

ControlOutcome ControlWindow(WindowState& state, const ControlInput& input);

}  // namespace orvanta::decode
