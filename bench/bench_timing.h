// Timing for the benchmarks that hold a figure against a reference measured in the same
// run. Header-only, so that each benchmark stays one program of one source file.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

namespace orvanta::bench {

inline double Milliseconds(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

struct Pair {
    double ours;
    double reference;
};

// Medians of `runs` timings of each side, the two sides taking turns so that both see the
// same load on the machine; each side runs once first to warm caches, the pool and the code.
inline Pair MedianPair(int runs, const std::function<void()>& ours,
                       const std::function<void()>& reference) {
    std::vector<double> a, b;
    ours();
    reference();
    for (int i = 0; i < runs; ++i) {
        a.push_back(Milliseconds(ours));
        b.push_back(Milliseconds(reference));
    }
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    return {a[a.size() / 2], b[b.size() / 2]};
}

// The value at `share` (0.5: the median) of `values`, by rank; 0 for no values.
inline double Percentile(std::vector<double> values, double share) {
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto rank = static_cast<std::size_t>(share * static_cast<double>(values.size()) + 0.999);
    return values[std::clamp<std::size_t>(rank, 1, values.size()) - 1];
}

}  // namespace orvanta::bench
