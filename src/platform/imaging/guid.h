// The 16-byte identifiers that name container formats, vendors and pixel formats, kept
// with the platform's numeric values so that the design's tables stay in the code as
// written. Immutable value type.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::imaging {

struct Guid {
    std::array<std::uint8_t, 16> bytes{};

    // "{19e4a5aa-5662-4fc5-a0c0-1758028e1057}" (braces optional); nullopt when malformed.
    static std::optional<Guid> Parse(std::string_view text);
    // Lower-case text with braces, as the tables write it.
    std::string ToString() const;
    bool IsNull() const;
    constexpr bool operator==(const Guid&) const = default;
    constexpr auto operator<=>(const Guid&) const = default;
};

// For the constant tables: aborts at compile time on a malformed literal.
consteval Guid MakeGuid(std::string_view text) {
    Guid guid;
    int nibble = 0;
    for (char c : text) {
        int v = -1;
        if (c >= '0' && c <= '9')
            v = c - '0';
        else if (c >= 'a' && c <= 'f')
            v = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            v = c - 'A' + 10;
        else if (c == '{' || c == '}' || c == '-')
            continue;
        else
            throw "bad character in identifier";
        if (nibble >= 32)
            throw "identifier too long";
        guid.bytes[nibble / 2] =
            static_cast<std::uint8_t>(guid.bytes[nibble / 2] | (nibble % 2 ? v : v << 4));
        ++nibble;
    }
    if (nibble != 32)
        throw "identifier too short";
    return guid;
}

// Container formats of the formats table, the alternate raw container and the vendor.
namespace container {
inline constexpr Guid Jpeg = MakeGuid("19e4a5aa-5662-4fc5-a0c0-1758028e1057");
inline constexpr Guid Tiff = MakeGuid("163bcc30-e2e9-4f0b-961d-a3e9fdb788a3");
inline constexpr Guid Wmp = MakeGuid("57a37caa-367a-4540-916b-f183c5093a4b");  // HD Photo
inline constexpr Guid Bmp = MakeGuid("0af1d87e-fcfe-4188-bdeb-a7906471cbe3");
inline constexpr Guid Png = MakeGuid("1b7cfaf4-713f-473c-bbcd-6137425faeaf");
inline constexpr Guid Gif = MakeGuid("1f8a5601-7d4d-4cbd-9c82-1bc8d4eeb9a5");
inline constexpr Guid Ico = MakeGuid("a3a860c4-338f-4c17-919a-fba4b5628f21");
inline constexpr Guid Nef = MakeGuid("466423fc-c8b4-4074-8102-982d5e15210f");
inline constexpr Guid Cr2 = MakeGuid("cb9b42b1-840b-4862-9244-cbdd4ff8ac0f");
inline constexpr Guid Pef = MakeGuid("c15f8ef9-8650-4f34-80d1-2ce5b3aeb17f");
inline constexpr Guid Orf = MakeGuid("b013f484-2eba-4a86-95e1-ab2fad147905");
inline constexpr Guid Arw = MakeGuid("1d3b9fcd-f3ab-416a-8569-a402868c360f");
inline constexpr Guid Dng = MakeGuid("56c11740-ccd9-4cdd-9139-bd5f89299ba5");
inline constexpr Guid Rw2 = MakeGuid("af815a17-3280-42cc-bb7b-475f6262bf42");
inline constexpr Guid Tga = MakeGuid("7c241004-48b9-4cff-9ea2-cb8240e5cf88");
inline constexpr Guid RawAlternate = MakeGuid("91f7c464-6252-4ce0-b4e3-fcc7a07cc322");
inline constexpr Guid RawOther = MakeGuid("cba90bec-46e4-4cb9-824f-41a09a123c8d");
// Formats the tables lack: identifiers of our own (version-4 style, fixed forever).
inline constexpr Guid WebP = MakeGuid("e094b0e2-67f2-45b3-b0ea-115337ca7cbf");
inline constexpr Guid Heif = MakeGuid("e1e62521-6787-405b-a339-500715b5763f");
inline constexpr Guid Avif = MakeGuid("b3b4f2a6-77a1-4f4e-9c3e-1f1d7c2a0d61");
inline constexpr Guid Jxl = MakeGuid("fec14e3f-427a-4736-aae6-27ed84f69322");
inline constexpr Guid Raw =
    MakeGuid("5b0a2c6e-3e52-4d5f-8e43-7a9d1f0c2b84");  // LibRaw, other extensions
}  // namespace container

namespace vendor {
inline constexpr Guid Microsoft = MakeGuid("f0e749ca-edef-4589-a73a-ee0e626a2a2b");
inline constexpr Guid None{};
inline constexpr Guid Orvanta = MakeGuid("7d3f8a51-9c2e-4b6a-a1f0-3e5d2c8b9a47");
}  // namespace vendor

}  // namespace orvanta::imaging
