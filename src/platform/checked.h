// Checked arithmetic for sizes and offsets that come from files: every product or sum of
// values a file controls goes through these, so a hostile header yields a clean failure
// instead of a wrapped size. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace orvanta {

template <typename T>
constexpr std::optional<T> CheckedMul(T a, T b) {
    T out{};
    if (__builtin_mul_overflow(a, b, &out)) {
        return std::nullopt;
    }
    return out;
}

template <typename T>
constexpr std::optional<T> CheckedAdd(T a, T b) {
    T out{};
    if (__builtin_add_overflow(a, b, &out)) {
        return std::nullopt;
    }
    return out;
}

// True when [offset, offset + length) lies inside a buffer of `size` bytes.
constexpr bool RangeInside(std::size_t offset, std::size_t length, std::size_t size) {
    return offset <= size && length <= size - offset;
}

}  // namespace orvanta
