#include "i18n/module_signature.h"

#include <cctype>
#include <fstream>
#include <string>

#if ORVANTA_HAVE_SODIUM
#include <sodium.h>
#endif

namespace orvanta::i18n {
namespace {

// The release key that signs the modules the program ships with.
constexpr PublicKey kReleaseKey = {0xf5, 0x93, 0x27, 0x70, 0xb3, 0x3c, 0x43, 0x9d, 0xc5, 0x2e, 0x39,
                                   0x27, 0xfb, 0xd3, 0x8b, 0x1d, 0xed, 0xde, 0x0f, 0x51, 0x55, 0x1d,
                                   0x99, 0xe9, 0xd3, 0x92, 0xd2, 0x20, 0xca, 0x66, 0x74, 0xfc};

constexpr std::array<PublicKey, 1> kBuiltInKeys = {kReleaseKey};

int HexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

}  // namespace

std::span<const PublicKey> BuiltInKeys() {
    return kBuiltInKeys;
}

std::vector<PublicKey> ReadTrustedKeys(const std::filesystem::path& file) {
    std::vector<PublicKey> keys;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) {
            line.pop_back();
        }
        std::size_t start = line.find_first_not_of(" \t");
        if (start == std::string::npos || line[start] == '#' || line.size() - start != 64) {
            continue;
        }
        PublicKey key{};
        bool ok = true;
        for (std::size_t i = 0; i < key.size() && ok; ++i) {
            int hi = HexDigit(line[start + 2 * i]);
            int lo = HexDigit(line[start + 2 * i + 1]);
            ok = hi >= 0 && lo >= 0;
            key[i] = static_cast<std::uint8_t>(hi * 16 + lo);
        }
        if (ok) {
            keys.push_back(key);
        }
    }
    return keys;
}

Result CheckSignature(std::span<const std::uint8_t> content,
                      std::span<const std::uint8_t> signature, std::span<const PublicKey> keys,
                      bool signaturePresent) {
    if (!signaturePresent) {
        return TRUST_E_NOSIGNATURE;
    }
#if ORVANTA_HAVE_SODIUM
    if (signature.size() != crypto_sign_BYTES) {
        return TRUST_E_SUBJECT_FORM_UNKNOWN;
    }
    if (sodium_init() < 0) {
        return TRUST_E_PROVIDER_UNKNOWN;
    }
    for (const PublicKey& key : keys) {
        if (crypto_sign_verify_detached(signature.data(), content.data(), content.size(),
                                        key.data()) == 0) {
            return S_OK;
        }
    }
    return TRUST_E_BAD_DIGEST;
#else
    (void)content;
    (void)signature;
    (void)keys;
    return TRUST_E_PROVIDER_UNKNOWN;
#endif
}

}  // namespace orvanta::i18n
