// Trust of a language module: a module may carry a detached Ed25519 signature in a file of
// the same name with ".sig" appended (the 64 signature bytes, nothing else). A module is
// accepted when its signature verifies against one of the trusted public keys (compiled
// into the program, plus those of a trusted-keys file), or when it has no signature at all;
// any other state refuses it with a code that the user sees. Pure functions over the bytes
// and files given; thread-safe once libsodium is initialised (done here on first use).
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

#include "platform/result.h"

namespace orvanta::i18n {

using PublicKey = std::array<std::uint8_t, 32>;

// The module has no signature file.
inline constexpr Result TRUST_E_NOSIGNATURE{0x80092026u};
// The signature file is there but does not verify against any trusted key (the module or
// its signature was changed, or a key the program does not trust signed it).
inline constexpr Result TRUST_E_BAD_DIGEST{0x80096010u};
// The signature file is not 64 bytes long.
inline constexpr Result TRUST_E_SUBJECT_FORM_UNKNOWN{0x800B0003u};
// The signature cannot be checked: libsodium is missing or failed to start.
inline constexpr Result TRUST_E_PROVIDER_UNKNOWN{0x800B0001u};

// The keys the program trusts without any file.
std::span<const PublicKey> BuiltInKeys();

// Reads a trusted-keys file: one key a line as 64 hexadecimal digits; blank lines and lines
// starting with '#' are skipped, so are malformed lines. A missing file gives no keys.
std::vector<PublicKey> ReadTrustedKeys(const std::filesystem::path& file);

// S_OK when `signature` (empty when there is none) verifies `content` with one of `keys`;
// TRUST_E_NOSIGNATURE without a signature; otherwise one of the refusal codes above.
Result CheckSignature(std::span<const std::uint8_t> content,
                      std::span<const std::uint8_t> signature, std::span<const PublicKey> keys,
                      bool signaturePresent);

// Whether a module should be loaded: trusted (S_OK) or unsigned (TRUST_E_NOSIGNATURE).
inline bool Acceptable(Result trust) {
    return trust == S_OK || trust == TRUST_E_NOSIGNATURE;
}

}  // namespace orvanta::i18n
