#include "metadata/maker_notes.h"

#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace orvanta::metadata {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Writes maker-note blobs byte by byte in one byte order.
class Blob {
public:
    explicit Blob(bool bigEndian) : big_(bigEndian) {}

    Blob& Text(std::string_view text, bool withNul = false) {
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        if (withNul) {
            bytes_.push_back(0);
        }
        return *this;
    }
    Blob& U8(std::uint8_t v) {
        bytes_.push_back(v);
        return *this;
    }
    Blob& U16(std::uint16_t v) {
        return big_ ? U8(static_cast<std::uint8_t>(v >> 8)).U8(static_cast<std::uint8_t>(v))
                    : U8(static_cast<std::uint8_t>(v)).U8(static_cast<std::uint8_t>(v >> 8));
    }
    Blob& U32(std::uint32_t v) {
        return big_ ? U16(static_cast<std::uint16_t>(v >> 16)).U16(static_cast<std::uint16_t>(v))
                    : U16(static_cast<std::uint16_t>(v)).U16(static_cast<std::uint16_t>(v >> 16));
    }
    Blob& Entry(std::uint16_t tag, std::uint16_t type, std::uint32_t count, std::uint32_t value) {
        return U16(tag).U16(type).U32(count).U32(value);
    }
    // A SHORT entry's value sits in the first two bytes of the value field.
    Blob& ShortEntry(std::uint16_t tag, std::uint16_t value) {
        return U16(tag).U16(3).U32(1).U16(value).U16(0);
    }
    std::size_t Size() const { return bytes_.size(); }
    Bytes Done() const { return bytes_; }

private:
    bool big_;
    Bytes bytes_;
};

// "Nikon\0" 2 0x10 0 0, a TIFF header at 10 and its directory right after (offset 8).
Blob NikonHeader(bool bigEndian, std::uint16_t entries) {
    Blob blob(bigEndian);
    blob.Text("Nikon", true).U8(2).U8(0x10).U8(0).U8(0);
    blob.Text(bigEndian ? "MM" : "II").U16(42).U32(8).U16(entries);
    return blob;
}

// A big-endian note whose only entry is tag 0x0025 with its ISO byte `b`.
Bytes NikonIsoInfo(std::uint8_t b) {
    Blob blob = NikonHeader(true, 1);
    const std::uint32_t data = 8 + 2 + 12 + 4;  // past the directory and its next offset
    blob.Entry(0x0025, 7, 14, data).U32(0);
    blob.U8(b);
    for (int i = 0; i < 13; ++i) {
        blob.U8(0);
    }
    return blob.Done();
}

struct IsoInfoCase {
    std::uint8_t b;
    std::int32_t iso;
};

void PrintTo(const IsoInfoCase& c, std::ostream* os) {
    *os << "byte " << int{c.b};
}

class NikonIsoInfoByte : public testing::TestWithParam<IsoInfoCase> {};

// The byte counts twelfths of a stop: 84 is ISO 400, 72 ISO 200, 48 ISO 50; values between
// stops round to a multiple of 5.
TEST_P(NikonIsoInfoByte, GivesNominalIso) {
    EXPECT_EQ(NikonIsoFromMakerNote(NikonIsoInfo(GetParam().b)), GetParam().iso);
}

INSTANTIATE_TEST_SUITE_P(Bytes, NikonIsoInfoByte,
                         testing::Values(IsoInfoCase{84, 400}, IsoInfoCase{72, 200},
                                         IsoInfoCase{48, 50}, IsoInfoCase{60, 100},
                                         IsoInfoCase{64, 125}, IsoInfoCase{68, 160},
                                         IsoInfoCase{0, 5}));

Bytes NikonIsoShort(bool bigEndian, std::uint16_t iso) {
    Blob blob = NikonHeader(bigEndian, 2);
    blob.ShortEntry(0x001E, 1);
    blob.U16(0x0002).U16(3).U32(2).U16(0).U16(iso);
    return blob.U32(0).Done();
}

TEST(NikonMakerNote, ReadsIsoAndColourSpaceInBothByteOrders) {
    for (bool big : {true, false}) {
        EXPECT_EQ(NikonIsoFromMakerNote(NikonIsoShort(big, 800)), 800);
        EXPECT_EQ(NikonColourSpaceFromMakerNote(NikonIsoShort(big, 800)), 1);
    }
}

TEST(NikonMakerNote, IsoInfoCountsOnlyInTheBigEndianLayout) {
    Blob blob = NikonHeader(false, 1);
    blob.Entry(0x0025, 7, 1, 8 + 2 + 12 + 4).U32(0).U8(84);
    EXPECT_EQ(NikonIsoFromMakerNote(blob.Done()), 0);
}

TEST(NikonMakerNote, TakesTheFirstQualifyingEntry) {
    Blob blob = NikonHeader(true, 3);
    blob.U16(0x0002).U16(3).U32(1).U32(640);  // wrong count: not ISO
    blob.Entry(0x0025, 7, 1, 8 + 2 + 36 + 4);
    blob.U16(0x0002).U16(3).U32(2).U16(0).U16(1600);
    blob.U32(0).U8(84);
    EXPECT_EQ(NikonIsoFromMakerNote(blob.Done()), 400);
}

class NikonMakerNoteRefuses : public testing::TestWithParam<std::pair<std::size_t, std::uint8_t>> {
};

// One byte of a good note changed: the signature, the byte order, the directory offset.
TEST_P(NikonMakerNoteRefuses, DamagedHeader) {
    Bytes note = NikonIsoShort(true, 800);
    note[GetParam().first] = GetParam().second;
    EXPECT_EQ(NikonIsoFromMakerNote(note), 0);
    EXPECT_EQ(NikonColourSpaceFromMakerNote(note), -1);
}

INSTANTIATE_TEST_SUITE_P(Bytes, NikonMakerNoteRefuses,
                         testing::Values(std::pair<std::size_t, std::uint8_t>{0, 'n'},
                                         std::pair<std::size_t, std::uint8_t>{5, ' '},
                                         std::pair<std::size_t, std::uint8_t>{6, 3},
                                         std::pair<std::size_t, std::uint8_t>{7, 0x20},
                                         std::pair<std::size_t, std::uint8_t>{8, 1},
                                         std::pair<std::size_t, std::uint8_t>{10, 'X'},
                                         std::pair<std::size_t, std::uint8_t>{14, 0x80},
                                         std::pair<std::size_t, std::uint8_t>{17, 0xF0},
                                         // an entry count that runs past the blob
                                         std::pair<std::size_t, std::uint8_t>{18, 0x40}));

TEST(NikonMakerNote, IsoInfoOutsideTheBlobIsIgnored) {
    Blob blob = NikonHeader(true, 1);
    blob.Entry(0x0025, 7, 14, 0xFFFFFFF0u).U32(0);
    EXPECT_EQ(NikonIsoFromMakerNote(blob.Done()), 0);
    Blob longCount = NikonHeader(true, 1);
    longCount.Entry(0x0025, 7, 0xFFFFFFFFu, 26).U32(0).U8(84);
    EXPECT_EQ(NikonIsoFromMakerNote(longCount.Done()), 0);
}

Bytes CanonNote() {
    Blob blob(false);
    blob.U16(2).ShortEntry(0x0001, 7).ShortEntry(0x00B4, 2);
    return blob.U32(0).Done();
}

TEST(CanonMakerNote, ReadsColourSpace) {
    EXPECT_EQ(CanonColourSpaceFromMakerNote(CanonNote()), 2);
    Blob wrongType(false);
    wrongType.U16(1).Entry(0x00B4, 4, 1, 2);
    EXPECT_EQ(CanonColourSpaceFromMakerNote(wrongType.Done()), -1);
    EXPECT_EQ(CanonColourSpaceFromMakerNote(Bytes{}), -1);
}

// "OLYMPUS\0" + byte order + version 3: directory at 12 with 0x2020, and the camera-settings
// block (first entry tag 0, version "0100") further on.
Bytes OlympusNewNote(bool bigEndian, std::uint16_t colourSpace) {
    Blob blob(bigEndian);
    blob.Text("OLYMPUS", true).Text(bigEndian ? "MM" : "II").U16(3);
    blob.U16(1).Entry(0x2020, 13, 1, 0x1234).U32(0);
    blob.U16(2).U16(0).U16(7).U32(4).Text("0100");
    blob.ShortEntry(0x0507, colourSpace).U32(0);
    return blob.Done();
}

TEST(OlympusMakerNote, ReadsColourSpacePlusOne) {
    EXPECT_EQ(OlympusColourSpaceFromMakerNote(OlympusNewNote(false, 0)), 1);
    EXPECT_EQ(OlympusColourSpaceFromMakerNote(OlympusNewNote(true, 1)), 2);
}

// "OLYMP\0" version 1: the block whose entry count is the 0x2020 value / 12 is the one.
TEST(OlympusMakerNote, OldLayoutPrefersTheBlockThatFitsTheSettingsValue) {
    Blob blob(false);
    blob.Text("OLYMP", true).U16(1);
    blob.U16(1).Entry(0x2020, 7, 100, 2 * 12).U32(0);
    // A block of three entries (not the settings) holding 0x0507 = 5, then the settings
    // block of two holding 0x0507 = 1.
    blob.U16(3).U16(0).U16(7).U32(4).Text("0100").ShortEntry(0x0507, 5).ShortEntry(0x0100, 0);
    blob.U16(2).U16(0).U16(7).U32(4).Text("0100").ShortEntry(0x0507, 1);
    EXPECT_EQ(OlympusColourSpaceFromMakerNote(blob.U32(0).Done()), 2);
    // With no block of the right size the first block holding a colour space is taken.
    Blob none(false);
    none.Text("OLYMP", true).U16(2);
    none.U16(1).Entry(0x2020, 7, 100, 9 * 12).U32(0);
    none.U16(2).U16(0).U16(7).U32(4).Text("0100").ShortEntry(0x0507, 1);
    EXPECT_EQ(OlympusColourSpaceFromMakerNote(none.U32(0).Done()), 2);
}

TEST(OlympusMakerNote, RefusesOtherMakersAndMissingSettings) {
    EXPECT_EQ(OlympusColourSpaceFromMakerNote(NikonIsoShort(false, 100)), -1);
    Blob noSettings(false);
    noSettings.Text("OLYMPUS", true).Text("II").U16(3).U16(1).ShortEntry(0x0200, 1).U32(0);
    EXPECT_EQ(OlympusColourSpaceFromMakerNote(noSettings.Done()), -1);
    Blob notDigits(false);
    notDigits.Text("OLYMPUS", true).Text("II").U16(3).U16(1).Entry(0x2020, 13, 1, 0).U32(0);
    notDigits.U16(1).U16(0).U16(7).U32(4).Text("01x0").ShortEntry(0x0507, 1);
    EXPECT_EQ(OlympusColourSpaceFromMakerNote(notDigits.Done()), -1);
}

// Every prefix of a good note is read without leaving the blob (each prefix is its own
// allocation, so the address sanitizer sees a read past it) and gives the full answer or
// none.
TEST(MakerNotes, EveryTruncationStaysInsideTheBlob) {
    const Bytes nikon = NikonIsoShort(true, 800);
    const Bytes isoInfo = NikonIsoInfo(84);
    const Bytes canon = CanonNote();
    const Bytes olympus = OlympusNewNote(false, 0);
    for (const Bytes* note : {&nikon, &isoInfo, &canon, &olympus}) {
        for (std::size_t size = 0; size <= note->size(); ++size) {
            const Bytes prefix(note->begin(), note->begin() + static_cast<std::ptrdiff_t>(size));
            const std::int32_t iso = NikonIsoFromMakerNote(prefix);
            EXPECT_TRUE(iso == 0 || iso == 800 || iso == 400) << size;
            const std::int32_t nikonSpace = NikonColourSpaceFromMakerNote(prefix);
            EXPECT_TRUE(nikonSpace == -1 || nikonSpace == 1) << size;
            const std::int32_t canonSpace = CanonColourSpaceFromMakerNote(prefix);
            EXPECT_TRUE(canonSpace == -1 || canonSpace == 2 || note != &canon) << size;
            const std::int32_t olympusSpace = OlympusColourSpaceFromMakerNote(prefix);
            EXPECT_TRUE(olympusSpace == -1 || olympusSpace == 1) << size;
        }
    }
    EXPECT_EQ(NikonIsoFromMakerNote(Bytes(nikon.begin(), nikon.end() - 4)), 800);
}

}  // namespace
}  // namespace orvanta::metadata
