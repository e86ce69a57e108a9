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
constexpr int kBlock = 16;

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
    std::array<std::vector<std::uint8_t>, 3> fromLinear;

    static std::unique_ptr<Tables> Make(cmsHPROFILE source, cmsHPROFILE target);
    void Apply(std::uint8_t* row, std::uint32_t width, std::uint32_t pixelBytes,
               bool premultiplied) const;
    void ApplyOne(std::uint8_t* p) const;
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
        auto& table = tables->fromLinear[c];
        table.resize(kOutputSteps);
        for (int k = 0; k < kOutputSteps; ++k) {
            const float encoded = cmsEvalToneCurveFloat(
                reverse.get(), static_cast<float>(double(k) / (kOutputSteps - 1)));
            table[k] =
                static_cast<std::uint8_t>(std::lround(std::clamp(encoded, 0.0f, 1.0f) * 255.0f));
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
        *out[c] = fromLinear[c][static_cast<int>(clamped * (kOutputSteps - 1) + 0.5f)];
    }
}

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define ORVANTA_MATRIX_VERSIONS \
    __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define ORVANTA_MATRIX_VERSIONS
#endif

namespace {

// The matrix over one block of pixels, in lanes: linear R, G, B in, table indices out.
ORVANTA_MATRIX_VERSIONS
void MatrixBlock(const float* m, const float* r, const float* g, const float* b, std::int32_t* ri,
                 std::int32_t* gi, std::int32_t* bi) {
    constexpr float kScale = kOutputSteps - 1;
    for (int i = 0; i < kBlock; ++i) {
        const float x = m[0] * r[i] + m[1] * g[i] + m[2] * b[i];
        const float y = m[3] * r[i] + m[4] * g[i] + m[5] * b[i];
        const float z = m[6] * r[i] + m[7] * g[i] + m[8] * b[i];
        ri[i] = static_cast<std::int32_t>(std::min(std::max(x, 0.0f), 1.0f) * kScale + 0.5f);
        gi[i] = static_cast<std::int32_t>(std::min(std::max(y, 0.0f), 1.0f) * kScale + 0.5f);
        bi[i] = static_cast<std::int32_t>(std::min(std::max(z, 0.0f), 1.0f) * kScale + 0.5f);
    }
}

}  // namespace

void ColourTransform::Tables::Apply(std::uint8_t* row, std::uint32_t width,
                                    std::uint32_t pixelBytes, bool premultiplied) const {
    std::uint32_t i = 0;
    alignas(64) float r[kBlock], g[kBlock], b[kBlock];
    alignas(64) std::int32_t ri[kBlock], gi[kBlock], bi[kBlock];
    const std::uint8_t* const outR = fromLinear[0].data();
    const std::uint8_t* const outG = fromLinear[1].data();
    const std::uint8_t* const outB = fromLinear[2].data();
    for (; i + kBlock <= width; i += kBlock) {
        std::uint8_t* const p = row + std::size_t{i} * pixelBytes;
        bool opaque = true;
        for (int k = 0; k < kBlock; ++k) {
            const std::uint8_t* q = p + k * pixelBytes;
            b[k] = toLinear[2][q[0]];
            g[k] = toLinear[1][q[1]];
            r[k] = toLinear[0][q[2]];
            if (premultiplied) {
                opaque &= q[3] == 255;
            }
        }
        if (!opaque) {
            break;  // the rest of the row takes the careful path
        }
        MatrixBlock(matrix.data(), r, g, b, ri, gi, bi);
        for (int k = 0; k < kBlock; ++k) {
            std::uint8_t* q = p + k * pixelBytes;
            q[0] = outB[bi[k]];
            q[1] = outG[gi[k]];
            q[2] = outR[ri[k]];
        }
    }
    for (; i < width; ++i) {
        std::uint8_t* p = row + std::size_t{i} * pixelBytes;
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
