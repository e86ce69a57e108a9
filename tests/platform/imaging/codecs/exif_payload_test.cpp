#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/imaging/codecs/exif_payload_internal.h"

namespace orvanta::imaging::codecs {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

const Bytes kIntel = {'I', 'I', 42, 0, 8, 0, 0, 0};
const Bytes kMotorola = {'M', 'M', 0, 42, 0, 0, 0, 8};
const Bytes kExifPrefix = {'E', 'x', 'i', 'f', 0, 0};

struct PayloadCase {
    const char* name;
    Bytes payload;
    std::optional<std::size_t> start;
};

class ExifPayload : public testing::TestWithParam<PayloadCase> {};

TEST_P(ExifPayload, FindsTheTiffHeader) {
    EXPECT_EQ(FindExifTiffHeader(GetParam().payload), GetParam().start);
}

INSTANTIATE_TEST_SUITE_P(
    Payloads, ExifPayload,
    testing::Values(
        PayloadCase{"OffsetZero", Join({{0, 0, 0, 0}, kIntel}), 4},
        PayloadCase{"OffsetOverExifPrefix", Join({{0, 0, 0, 6}, kExifPrefix, kMotorola}), 10},
        PayloadCase{"OffsetSkipsPadding", Join({{0, 0, 0, 3}, {1, 2, 3}, kIntel}), 7},
        // Writers that wrote 0 but kept the "Exif\0\0" prefix, or a wild offset.
        PayloadCase{"WrongOffsetWithPrefix", Join({{0, 0, 0, 0}, kExifPrefix, kIntel}), 10},
        PayloadCase{"WildOffset", Join({{0xFF, 0xFF, 0xFF, 0xFF}, kMotorola}), 4},
        PayloadCase{"OffsetPastTheEnd", Join({{0, 0, 0, 40}, {1, 2, 3, 4}}), std::nullopt},
        PayloadCase{"NoTiff", Join({{0, 0, 0, 0}, {'I', 'I', 43, 0}}), std::nullopt},
        PayloadCase{"CutHeader", Bytes{0, 0, 0, 0, 'I', 'I', 42}, std::nullopt},
        PayloadCase{"TooShort", Bytes{0, 0, 0}, std::nullopt}),
    [](const testing::TestParamInfo<PayloadCase>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace orvanta::imaging::codecs
