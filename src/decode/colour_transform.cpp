#include "decode/colour_transform.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include <lcms2.h>

namespace orvanta::decode {

using imaging::PixelFormat;

namespace {

// The table from linear light back to 8 bits is indexed by the bits of the linear value as
// a float: exponent and top 8 bits of the mantissa, 256 entries per octave from 2^-24 to 1.
// That spreads the entries as the tone curves need them (a pure gamma curve is vertical at
// black), keeps each within a quarter of a level of the exact value, fits in the first-level
// cache, and costs a shift where a square root or a logarithm would cost far more.
constexpr float kLowestLinear = 1.0f / 16777216.0f;  // 2^-24; below it every curve gives 0
constexpr int kMantissaShift = 23 - 8;
constexpr std::int32_t kFirstCode = std::bit_cast<std::int32_t>(kLowestLinear) >> kMantissaShift;
constexpr int kOutputSteps = (std::bit_cast<std::int32_t>(1.0f) >> kMantissaShift) - kFirstCode + 1;

// The entry of a linear value already clamped to [kLowestLinear, 1].
int OutputEntry(float linear) {
    return (std::bit_cast<std::int32_t>(linear) >> kMantissaShift) - kFirstCode;
}

// The linear value an entry stands for: the middle of the values that fall on it.
double EntryLinear(int entry) {
    if (entry == kOutputSteps - 1) {
        return 1.0;
    }
    const auto bits = static_cast<std::uint32_t>(entry + kFirstCode) << kMantissaShift |
                      (1u << (kMantissaShift - 1));
    return std::bit_cast<float>(bits);
}

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
    // The matrix folded into the tables: for source channel c and value v, column c of the
    // matrix times v in linear light, scaled to the entries of the table back, as target
    // R, G, B and a zero lane. A pixel is then three loads and two additions in one vector.
    using Quad = float __attribute__((vector_size(16)));
    std::array<std::array<Quad, 256>, 3> columns;

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
            const float encoded =
                cmsEvalToneCurveFloat(reverse.get(), static_cast<float>(EntryLinear(k)));
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
    for (int c = 0; c < 3; ++c) {
        for (int v = 0; v < 256; ++v) {
            const float linear = tables->toLinear[c][v];
            tables->columns[c][v] = Quad{tables->matrix[c] * linear, tables->matrix[3 + c] * linear,
                                         tables->matrix[6 + c] * linear, 0.0f};
        }
    }
    return tables;
}

void ColourTransform::Tables::ApplyOne(std::uint8_t* p) const {
    const float r = toLinear[0][p[2]], g = toLinear[1][p[1]], b = toLinear[2][p[0]];
    std::uint8_t* const out[3] = {p + 2, p + 1, p};
    for (int c = 0; c < 3; ++c) {
        const float v = matrix[c * 3] * r + matrix[c * 3 + 1] * g + matrix[c * 3 + 2] * b;
        *out[c] = (*fromLinear[c])[OutputEntry(std::min(std::max(v, kLowestLinear), 1.0f))];
    }
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVANTA_MATRIX_VERSIONS \
    __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define ORVANTA_MATRIX_VERSIONS
#endif

namespace {

using Quad = ColourTransform::Tables::Quad;
using IndexQuad = std::uint32_t __attribute__((vector_size(16)));

// Clamps every lane to [low, high] (single instructions where the processor has them; the
// lanes are never NaN).
inline Quad Clamp(Quad v, Quad low, Quad high) {
#if defined(__SSE__)
    return __builtin_ia32_minps(__builtin_ia32_maxps(v, low), high);
#else
    v = v < low ? low : v;
    return v > high ? high : v;
#endif
}

// Pixels through the folded tables, one vector per pixel.
#define ORVANTA_FOLDED_PIXEL(b, g, r) \
    Quad v = cr[r] + cg[g] + cb[b];   \
    v = Clamp(v, lowest, one);        \
    const IndexQuad index = (std::bit_cast<IndexQuad>(v) >> kMantissaShift) - kFirstCode;

#define ORVANTA_FOLDED_TABLES(t)                                     \
    const Quad* const cr = t.columns[0].data();                      \
    const Quad* const cg = t.columns[1].data();                      \
    const Quad* const cb = t.columns[2].data();                      \
    const std::uint8_t *const outR = t.fromLinear[0]->data(),        \
                              *const outG = t.fromLinear[1]->data(), \
                              *const outB = t.fromLinear[2]->data(); \
    const Quad lowest = Quad{} + kLowestLinear, one = Quad{} + 1.0f;

// Three-byte pixels. The table pointers are locals, not the tables' fields: byte stores may
// alias anything and would make the compiler load the fields again after every store.
ORVANTA_MATRIX_VERSIONS
void ConvertFolded3(const ColourTransform::Tables& t, std::uint8_t* p, std::size_t count) {
    ORVANTA_FOLDED_TABLES(t)
    for (std::size_t i = 0; i < count; ++i, p += 3) {
        ORVANTA_FOLDED_PIXEL(p[0], p[1], p[2])
        p[0] = outB[index[2]];
        p[1] = outG[index[1]];
        p[2] = outR[index[0]];
    }
}

// Four-byte pixels, the fourth byte kept. With `stopAtAlpha` it stops at the first pixel
// that is not opaque and returns how many it converted.
ORVANTA_MATRIX_VERSIONS
std::size_t ConvertFolded4(const ColourTransform::Tables& t, std::uint8_t* p, std::size_t count,
                           bool stopAtAlpha) {
    ORVANTA_FOLDED_TABLES(t)
    for (std::size_t i = 0; i < count; ++i, p += 4) {
        std::uint32_t pixel;
        std::memcpy(&pixel, p, 4);
        if (stopAtAlpha && pixel < 0xFF000000u) {
            return i;
        }
        ORVANTA_FOLDED_PIXEL(pixel & 0xFF, (pixel >> 8) & 0xFF, (pixel >> 16) & 0xFF)
        pixel = (pixel & 0xFF000000u) | outB[index[2]] | std::uint32_t{outG[index[1]]} << 8 |
                std::uint32_t{outR[index[0]]} << 16;
        std::memcpy(p, &pixel, 4);
    }
    return count;
}

#undef ORVANTA_FOLDED_PIXEL
#undef ORVANTA_FOLDED_TABLES

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
    if (pixelBytes == 3) {
        ConvertFolded3(*this, row, width);
        return;
    }
    // Premultiplied colour: a pixel that is not opaque is unpremultiplied around the
    // conversion; runs of opaque ones go the fast way.
    for (std::size_t i = 0; i < width;) {
        i += ConvertFolded4(*this, row + 4 * i, width - i, premultiplied);
        if (i < width) {
            ApplyCareful(row + 4 * i, premultiplied);
            ++i;
        }
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

    std::unique_ptr<BitmapSource> TakeSource() { return std::move(source_); }
    std::shared_ptr<const ColourTransform> Transform() const { return transform_; }

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

std::shared_ptr<const ColourTransform> TakeApartColourStage(
    std::unique_ptr<imaging::BitmapSource>& source) {
    auto* stage = dynamic_cast<ColourStage*>(source.get());
    if (stage == nullptr) {
        return nullptr;
    }
    std::shared_ptr<const ColourTransform> transform = stage->Transform();
    source = stage->TakeSource();
    return transform;
}

std::unique_ptr<imaging::BitmapSource> ColourTransformed(
    std::unique_ptr<imaging::BitmapSource> source,
    std::shared_ptr<const ColourTransform> transform) {
    if (!source || !transform || source->Format() != transform->Format()) {
        return nullptr;
    }
    return std::make_unique<ColourStage>(std::move(source), std::move(transform));
}

}  // namespace orvanta::decode
