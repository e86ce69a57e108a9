#include "decode/colour_transform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

#include <lcms2.h>

namespace orvanta::decode {

using imaging::PixelFormat;

namespace {

// Entries of the table from linear light back to 8 bits: fine enough that the steep start
// of the sRGB curve (12.92 times) still lands within half a level of the exact value.
constexpr int kOutputSteps = 1 << 14;

std::uint32_t PixelBytes(PixelFormat format) {
    return format == PixelFormat::Bgr24 ? 3 : 4;
}

cmsUInt32Number LcmsFormat(PixelFormat format) {
    switch (format) {
        case PixelFormat::Bgr24:
            return TYPE_BGR_8;
        default:
            return TYPE_BGRA_8;
    }
}

using Matrix = std::array<std::array<double, 3>, 3>;

// The colorant matrix (linear RGB to the connection space) of a matrix-shaper profile.
bool ColorantMatrix(cmsHPROFILE profile, Matrix& m) {
    const cmsTagSignature tags[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag,
                                     cmsSigBlueColorantTag};
    for (int c = 0; c < 3; ++c) {
        const auto* xyz = static_cast<const cmsCIEXYZ*>(cmsReadTag(profile, tags[c]));
        if (xyz == nullptr) {
            return false;
        }
        m[0][c] = xyz->X;
        m[1][c] = xyz->Y;
        m[2][c] = xyz->Z;
    }
    return true;
}

bool Invert(const Matrix& m, Matrix& inverse) {
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    if (std::fabs(det) < 1e-12) {
        return false;
    }
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            const int r1 = (c + 1) % 3, r2 = (c + 2) % 3, c1 = (r + 1) % 3, c2 = (r + 2) % 3;
            inverse[r][c] = (m[r1][c1] * m[r2][c2] - m[r1][c2] * m[r2][c1]) / det;
        }
    }
    return true;
}

const cmsToneCurve* Trc(cmsHPROFILE profile, int channel) {
    const cmsTagSignature tags[3] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    return static_cast<const cmsToneCurve*>(cmsReadTag(profile, tags[channel]));
}

bool UsesMatrixShaper(cmsHPROFILE profile, cmsUInt32Number direction) {
    return cmsIsMatrixShaper(profile) && !cmsIsCLUT(profile, INTENT_PERCEPTUAL, direction);
}

std::uint8_t Premultiply(std::uint32_t c, std::uint32_t a) {
    const auto t = static_cast<std::uint16_t>(c * a + 128);
    return static_cast<std::uint8_t>((t + (t >> 8)) >> 8);
}

std::uint8_t Unpremultiply(std::uint32_t p, std::uint32_t a) {
    const std::uint32_t c = (p * 255 + a / 2) / a;
    return static_cast<std::uint8_t>(c > 255 ? 255 : c);
}

}  // namespace

// Tables of the matrix-shaper path; channels in R, G, B order.
struct ColourTransform::Tables {
    std::array<std::array<float, 256>, 3> toLinear;
    std::array<float, 9> matrix;  // target linear RGB from source linear RGB, row-major
    // One table per channel; the channels of the usual targets share one curve, and then
    // one table, which keeps the lookups in the first-level cache.
    std::array<std::shared_ptr<const std::vector<std::uint8_t>>, 3> fromLinear;

    static std::unique_ptr<Tables> Make(cmsHPROFILE source, cmsHPROFILE target);
    void Apply(std::uint8_t* row, std::uint32_t width, std::uint32_t pixelBytes,
               bool premultiplied) const;
    void ApplyOne(std::uint8_t* p) const;
    void ApplyCareful(std::uint8_t* p, bool premultiplied) const;
};

std::unique_ptr<ColourTransform::Tables> ColourTransform::Tables::Make(cmsHPROFILE source,
                                                                       cmsHPROFILE target) {
    if (!UsesMatrixShaper(source, LCMS_USED_AS_INPUT) ||
        !UsesMatrixShaper(target, LCMS_USED_AS_OUTPUT)) {
        return nullptr;
    }
    Matrix sourceMatrix, targetMatrix, targetInverse;
    if (!ColorantMatrix(source, sourceMatrix) || !ColorantMatrix(target, targetMatrix) ||
        !Invert(targetMatrix, targetInverse)) {
        return nullptr;
    }
    auto tables = std::make_unique<Tables>();
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            double sum = 0;
            for (int k = 0; k < 3; ++k) {
                sum += targetInverse[r][k] * sourceMatrix[k][c];
            }
            tables->matrix[r * 3 + c] = static_cast<float>(sum);
        }
    }
    for (int c = 0; c < 3; ++c) {
        const cmsToneCurve* in = Trc(source, c);
        const cmsToneCurve* out = Trc(target, c);
        if (in == nullptr || out == nullptr) {
            return nullptr;
        }
        for (int v = 0; v < 256; ++v) {
            tables->toLinear[c][v] = cmsEvalToneCurveFloat(in, static_cast<float>(v / 255.0));
        }
        std::unique_ptr<cmsToneCurve, decltype(&cmsFreeToneCurve)> reverse(
            cmsReverseToneCurveEx(4096, out), &cmsFreeToneCurve);
        if (!reverse) {
            return nullptr;
        }
        auto table = std::make_shared<std::vector<std::uint8_t>>(kOutputSteps);
        for (int k = 0; k < kOutputSteps; ++k) {
            const float encoded = cmsEvalToneCurveFloat(
                reverse.get(), static_cast<float>(double(k) / (kOutputSteps - 1)));
            (*table)[k] =
                static_cast<std::uint8_t>(std::lround(std::clamp(encoded, 0.0f, 1.0f) * 255.0f));
        }
        tables->fromLinear[c] = std::move(table);
        for (int earlier = 0; earlier < c; ++earlier) {
            if (*tables->fromLinear[earlier] == *tables->fromLinear[c]) {
                tables->fromLinear[c] = tables->fromLinear[earlier];
                break;
            }
        }
    }
    return tables;
}

void ColourTransform::Tables::ApplyOne(std::uint8_t* p) const {
    const float r = toLinear[0][p[2]], g = toLinear[1][p[1]], b = toLinear[2][p[0]];
    std::uint8_t* const out[3] = {p + 2, p + 1, p};
    for (int c = 0; c < 3; ++c) {
        const float v = matrix[c * 3] * r + matrix[c * 3 + 1] * g + matrix[c * 3 + 2] * b;
        const float clamped = std::min(std::max(v, 0.0f), 1.0f);
        *out[c] = (*fromLinear[c])[static_cast<int>(clamped * (kOutputSteps - 1) + 0.5f)];
    }
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVANTA_MATRIX_VERSIONS \
    __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define ORVANTA_MATRIX_VERSIONS
#endif

namespace {

// Eight pixels at a time: the tables to linear light fill the lanes straight from the
// pixels (no trip through memory, which would stall on store forwarding), the matrix runs
// in the lanes, and the lanes index the table back. Pixels are B, G, R, X words; X is kept.
using Lanes = float __attribute__((vector_size(32)));
using IntLanes = std::int32_t __attribute__((vector_size(32)));
using PixelWord = std::uint32_t __attribute__((may_alias, aligned(1)));

struct FastTables {
    const float* toLinear[3];
    const float* matrix;
    const std::uint8_t* fromLinear[3];
};

ORVANTA_MATRIX_VERSIONS
void ConvertWords(const FastTables& t, PixelWord* pixels, std::size_t count) {
    constexpr float kScale = kOutputSteps - 1;
    const float* const m = t.matrix;
    const float *const lr = t.toLinear[0], *const lg = t.toLinear[1], *const lb = t.toLinear[2];
    const Lanes zero = {}, one = zero + 1.0f;
    // Locals, not the struct's fields: byte stores may alias anything, and would make the
    // compiler load the table pointers again after every store.
    const std::uint8_t *const outR = t.fromLinear[0], *const outG = t.fromLinear[1],
                              *const outB = t.fromLinear[2];
    auto* const bytes = reinterpret_cast<std::uint8_t*>(pixels);
    for (std::size_t i = 0; i + 8 <= count; i += 8) {
        std::uint8_t* const p = bytes + 4 * i;
#define ORVANTA_LANES(table, c)                                                            \
    Lanes {                                                                                \
        table[p[c]], table[p[4 + c]], table[p[8 + c]], table[p[12 + c]], table[p[16 + c]], \
            table[p[20 + c]], table[p[24 + c]], table[p[28 + c]]                           \
    }
        const Lanes vr = ORVANTA_LANES(lr, 2);
        const Lanes vg = ORVANTA_LANES(lg, 1);
        const Lanes vb = ORVANTA_LANES(lb, 0);
#undef ORVANTA_LANES
        IntLanes index[3];
        for (int c = 0; c < 3; ++c) {
            Lanes v = m[3 * c] * vr + m[3 * c + 1] * vg + m[3 * c + 2] * vb;
            v = v < zero ? zero : v;
            v = v > one ? one : v;
            index[c] = __builtin_convertvector(v * kScale + 0.5f, IntLanes);
        }
        for (int k = 0; k < 8; ++k) {
            p[4 * k] = outB[index[2][k]];
            p[4 * k + 1] = outG[index[1][k]];
            p[4 * k + 2] = outR[index[0][k]];
        }
    }
}

bool Opaque(const PixelWord* pixels) {
    std::uint32_t alpha = 0xFFFFFFFFu;
    for (int k = 0; k < 8; ++k) {
        alpha &= pixels[k];
    }
    return (alpha >> 24) == 0xFF;
}

}  // namespace

void ColourTransform::Tables::ApplyCareful(std::uint8_t* p, bool premultiplied) const {
    if (!premultiplied || p[3] == 255) {
        ApplyOne(p);
    } else if (p[3] != 0) {
        const std::uint32_t a = p[3];
        for (int c = 0; c < 3; ++c) {
            p[c] = Unpremultiply(p[c], a);
        }
        ApplyOne(p);
        for (int c = 0; c < 3; ++c) {
            p[c] = Premultiply(p[c], a);
        }
    }
}

void ColourTransform::Tables::Apply(std::uint8_t* row, std::uint32_t width,
                                    std::uint32_t pixelBytes, bool premultiplied) const {
    const FastTables t{{toLinear[0].data(), toLinear[1].data(), toLinear[2].data()},
                       matrix.data(),
                       {fromLinear[0]->data(), fromLinear[1]->data(), fromLinear[2]->data()}};
    std::size_t i = 0;
    if (pixelBytes == 4) {
        auto* const words = reinterpret_cast<PixelWord*>(row);
        while (i + 8 <= width) {
            std::size_t end = i;
            while (end + 8 <= width && (!premultiplied || Opaque(words + end))) {
                end += 8;
            }
            if (end > i) {
                ConvertWords(t, words + i, end - i);
                i = end;
            } else {
                for (const std::size_t stop = i + 8; i < stop; ++i) {
                    ApplyCareful(row + 4 * i, premultiplied);
                }
            }
        }
    } else {
        // Three-byte pixels are widened to words a block at a time.
        std::uint32_t words[64];
        for (; i + 64 <= width; i += 64) {
            std::uint8_t* const p = row + 3 * i;
            for (int k = 0; k < 64; ++k) {
                words[k] =
                    p[3 * k] | std::uint32_t{p[3 * k + 1]} << 8 | std::uint32_t{p[3 * k + 2]} << 16;
            }
            ConvertWords(t, reinterpret_cast<PixelWord*>(words), 64);
            for (int k = 0; k < 64; ++k) {
                p[3 * k] = static_cast<std::uint8_t>(words[k]);
                p[3 * k + 1] = static_cast<std::uint8_t>(words[k] >> 8);
                p[3 * k + 2] = static_cast<std::uint8_t>(words[k] >> 16);
            }
        }
    }
    for (; i < width; ++i) {
        ApplyCareful(row + std::size_t{i} * pixelBytes, premultiplied);
    }
}

bool CanTransformColour(PixelFormat format) {
    return format == PixelFormat::Bgr24 || format == PixelFormat::Bgr32 ||
           format == PixelFormat::Bgra32 || format == PixelFormat::Pbgra32;
}

Result ColourTransform::Create(const Profile& source, const Profile& target, PixelFormat format,
                               std::shared_ptr<const ColourTransform>& transform) {
    transform.reset();
    if (!CanTransformColour(format)) {
        return WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT;
    }
    if (!IsRgbProfile(source) || !IsRgbProfile(target)) {
        return E_INVALID_PROFILE;
    }
    const cmsUInt32Number lcmsFormat = LcmsFormat(format);
    const cmsUInt32Number flags = format == PixelFormat::Bgr24 ? 0 : cmsFLAGS_COPY_ALPHA;
    cmsHTRANSFORM lcms = cmsCreateTransform(source.get(), lcmsFormat, target.get(), lcmsFormat,
                                            INTENT_PERCEPTUAL, flags);
    if (lcms == nullptr) {
        return E_INVALID_PROFILE;
    }
    transform.reset(new ColourTransform(format, lcms, Tables::Make(source.get(), target.get())));
    return S_OK;
}

ColourTransform::ColourTransform(PixelFormat format, void* lcms, std::unique_ptr<Tables> fast)
    : format_(format), lcms_(lcms), fast_(std::move(fast)) {
}

ColourTransform::~ColourTransform() {
    cmsDeleteTransform(static_cast<cmsHTRANSFORM>(lcms_));
}

void ColourTransform::Apply(std::byte* row, std::uint32_t width) const {
    if (fast_) {
        fast_->Apply(reinterpret_cast<std::uint8_t*>(row), width, PixelBytes(format_),
                     format_ == PixelFormat::Pbgra32);
    } else {
        ApplyWithLcms(row, width);
    }
}

void ColourTransform::ApplyWithLcms(std::byte* row, std::uint32_t width) const {
    // Premultiplied colour is converted straight and multiplied again here: the
    // premultiplied layouts of lcms2 2.14 do not round-trip partly transparent pixels.
    auto* p = reinterpret_cast<std::uint8_t*>(row);
    const bool premultiplied = format_ == PixelFormat::Pbgra32;
    if (premultiplied) {
        for (std::uint32_t i = 0; i < width; ++i) {
            if (const std::uint32_t a = p[4 * i + 3]; a != 0 && a != 255) {
                for (int c = 0; c < 3; ++c) {
                    p[4 * i + c] = Unpremultiply(p[4 * i + c], a);
                }
            }
        }
    }
    // In place: lcms2 reads each pixel before it writes it back in the same layout.
    cmsDoTransform(static_cast<cmsHTRANSFORM>(lcms_), row, row, width);
    if (premultiplied) {
        for (std::uint32_t i = 0; i < width; ++i) {
            if (const std::uint32_t a = p[4 * i + 3]; a != 255) {
                for (int c = 0; c < 3; ++c) {
                    p[4 * i + c] = Premultiply(p[4 * i + c], a);
                }
            }
        }
    }
}

namespace {

class ColourStage final : public imaging::BitmapSource {
public:
    ColourStage(std::unique_ptr<BitmapSource> source,
                std::shared_ptr<const ColourTransform> transform)
        : BitmapSource(source->Size(), source->Format(), source->GetAccess()),
          source_(std::move(source)),
          transform_(std::move(transform)) {}

private:
    // The rows are pulled in pieces of about kPieceBytes and converted as soon as each
    // piece is in, while it is still in the cache.
    Result DoCopyPixels(const imaging::PixelRect& rect, std::size_t stride,
                        std::span<std::byte> out) override {
        constexpr std::size_t kPieceBytes = std::size_t{256} << 10;
        const std::size_t rowBytes = RowBytes(static_cast<std::uint32_t>(rect.width));
        const auto pieceRows =
            static_cast<std::int32_t>(std::max<std::size_t>(1, kPieceBytes / stride));
        Result worst = S_OK;
        for (std::int32_t y = 0; y < rect.height; y += pieceRows) {
            const std::int32_t rows = std::min(pieceRows, rect.height - y);
            std::byte* const start = out.data() + static_cast<std::size_t>(y) * stride;
            const Result copied = source_->CopyPixels(
                {rect.x, rect.y + y, rect.width, rows}, stride,
                {start, static_cast<std::size_t>(rows - 1) * stride + rowBytes});
            if (copied.Failed()) {
                return copied;
            }
            if (copied != S_OK) {
                worst = copied;
            }
            for (std::int32_t row = 0; row < rows; ++row) {
                transform_->Apply(start + static_cast<std::size_t>(row) * stride,
                                  static_cast<std::uint32_t>(rect.width));
            }
        }
        return worst;
    }

    std::unique_ptr<BitmapSource> source_;
    std::shared_ptr<const ColourTransform> transform_;
};

}  // namespace

std::unique_ptr<imaging::BitmapSource> ColourTransformed(
    std::unique_ptr<imaging::BitmapSource> source,
    std::shared_ptr<const ColourTransform> transform) {
    if (!source || !transform || source->Format() != transform->Format()) {
        return nullptr;
    }
    return std::make_unique<ColourStage>(std::move(source), std::move(transform));
}

}  // namespace orvanta::decode
