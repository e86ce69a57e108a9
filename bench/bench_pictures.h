// Pictures the benchmarks make at bench time: photo-like RGB content and its JPEG through
// TurboJPEG. Header-only, so that each benchmark stays one program of one source file.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include <turbojpeg.h>

namespace orvanta::bench {

// Photo-like content: smooth light, texture noise and hard edges, so that the codecs see
// the entropy of a real picture rather than a flat field.
inline std::vector<std::uint8_t> MakePicture(int width, int height) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(width) * height * 3);
    std::mt19937 random(7);
    std::uniform_int_distribution<int> noise(-12, 12);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double fx = double(x) / width, fy = double(y) / height;
            const double light = 120 + 80 * std::sin(fx * 5.1 + fy * 2.3) * std::cos(fy * 3.7);
            const bool block = ((x / 379) + (y / 251)) % 5 == 0;
            std::uint8_t* p = &rgb[(static_cast<std::size_t>(y) * width + x) * 3];
            for (int c = 0; c < 3; ++c) {
                const double v = light + (block ? 60 - 40 * c : 20 * c) + noise(random);
                p[c] = static_cast<std::uint8_t>(std::clamp(v, 0.0, 255.0));
            }
        }
    }
    return rgb;
}

inline std::vector<std::uint8_t> EncodeJpeg(const std::vector<std::uint8_t>& rgb, int w, int h) {
    tjhandle tj = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    tjCompress2(tj, rgb.data(), w, 0, h, TJPF_RGB, &out, &size, TJSAMP_420, 90, 0);
    std::vector<std::uint8_t> jpeg(out, out + size);
    tjFree(out);
    tjDestroy(tj);
    return jpeg;
}

}  // namespace orvanta::bench
