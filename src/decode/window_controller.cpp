#include "decode/window_controller.h"

#include <algorithm>

namespace orvanta::decode {

namespace {

constexpr std::uint64_t kPage = 4096;

}  // namespace

void SizeRing::Record(std::uint64_t bytes) {
    sizes_[count_ % sizes_.size()] = (bytes + kPage - 1) / kPage * kPage;
    ++count_;
}

std::uint64_t SizeRing::Mean() const {
    const std::size_t n = std::min<std::size_t>(count_, sizes_.size());
    if (n == 0) {
        return 0;
    }
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        sum += sizes_[i];
    }
    return sum / n;
}

std::uint32_t LoadThreshold(std::uint32_t guide) {
    // 0.390625 = 25/64: exact in binary, so the truncation never depends on rounding.
    return 50 + static_cast<std::uint32_t>(std::uint64_t{guide} * 25 / 64);
}

bool IsMemoryFailure(Result result) {
    return result == E_OUTOFMEMORY || result == D3DERR_OUTOFVIDEOMEMORY;
}

ControlOutcome ControlWindow(WindowState& state, const ControlInput& input) {
    const std::uint32_t threshold = LoadThreshold(input.guide);
    const std::uint32_t load = input.memory.LoadPercent();
    const bool memoryFailure = IsMemoryFailure(input.result);

    if (memoryFailure || load >= threshold + 5) {
        bool changed = false;
        if (state.ahead > 1 || (state.ahead == 1 && memoryFailure)) {
            --state.ahead;
            ++state.pendingAhead;
            changed = true;
        }
        if (state.behind > 1 || (state.behind == 1 && memoryFailure)) {
            --state.behind;
            ++state.pendingBehind;
            changed = true;
        }
        state.growCounter = 0;
        if (!changed) {
            return {!memoryFailure, false};
        }
        return {true, true};
    }
    if (input.result.Failed()) {
        return {true, false};
    }

    bool growAhead = false;
    bool growBehind = false;
    const bool nothingPending = state.pendingAhead == 0 && state.pendingBehind == 0;
    if (nothingPending && state.ahead + state.behind < std::int64_t{input.guide} &&
        load + 5 <= threshold) {
        ++state.growCounter;
        const std::uint64_t mean = input.meanSize;
        const std::uint64_t m = mean + mean / 20;
        std::uint64_t room = input.memory.available;
        std::uint64_t expected = mean * input.cachedCount;
        // Both tests keep one more picture's worth of memory free beside the new one.
        const auto fits = [&] { return m != 0 && room > 2 * m && m + expected < room; };
        if (fits()) {
            growAhead = true;
            room -= m;
            expected += m;
        }
        growBehind = state.growCounter % 2 == 0 && fits() &&
                     state.ahead + state.behind + 1 < std::int64_t{input.guide};
    } else {
        state.growCounter = 0;
    }

    if (state.pendingAhead > 0 && state.pendingBehind > 0) {
        if (!state.alternate) {
            ++state.ahead;
            --state.pendingAhead;
        } else {
            ++state.behind;
            --state.pendingBehind;
        }
        state.alternate = !state.alternate;
        return {true, true};
    }
    if (state.pendingAhead > 0 || state.pendingBehind > 0) {
        if (state.pendingAhead > 0) {
            ++state.ahead;
            --state.pendingAhead;
        } else {
            ++state.behind;
            --state.pendingBehind;
        }
        state.alternate = false;
        return {true, true};
    }
    state.ahead += growAhead ? 1 : 0;
    state.behind += growBehind ? 1 : 0;
    return {true, growAhead || growBehind};
}

}  // namespace orvanta::decode
