// KyCrypto: the framework's door to libcrypto — digests, random bytes,
// passphrase key derivation and authenticated encryption.
//
// Binary data travels as std::string (bytes, not text) and is read through
// std::string_view. Every call is a stateless function over OpenSSL's EVP
// interface, which keeps no shared state per call, so any thread may call any
// of them at any time. Failures are values: a Result with ok false and a short
// English error; a wrong key or altered ciphertext is always reported as
// "authentication failed" and never yields bytes.
//
// Sealed AES-256-GCM data is laid out as nonce (12 random bytes) | ciphertext |
// tag (16 bytes), so one string carries everything decryption needs.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "core/types/KyString.h"

/// Digests, random bytes, PBKDF2 key derivation and AES-256-GCM sealing.
class KyCrypto {
public:
    /// Outcome of a call that can fail: bytes on success, a reason otherwise.
    struct Result {
        bool ok = false;
        std::string data;
        KyString error;
        explicit operator bool() const { return ok; }
    };

    static constexpr std::size_t kAesKeyBytes = 32;
    static constexpr std::size_t kGcmNonceBytes = 12;
    static constexpr std::size_t kGcmTagBytes = 16;
    static constexpr std::size_t kMinSaltBytes = 8;
    static constexpr int kDefaultPbkdf2Iterations = 600000;

    /// Raw digests (32 and 20 bytes); empty only if libcrypto itself fails.
    static std::string sha256(std::string_view data);
    static std::string sha1(std::string_view data);
    /// Lower-case hex of the digests.
    static KyString sha256Hex(std::string_view data);
    static KyString sha1Hex(std::string_view data);

    /// count bytes from the system's cryptographic generator.
    static Result randomBytes(std::size_t count);

    /// PBKDF2-HMAC-SHA256 of passphrase with salt (at least kMinSaltBytes) into
    /// keyBytes bytes.
    static Result deriveKey(std::string_view passphrase, std::string_view salt,
                            int iterations = kDefaultPbkdf2Iterations, std::size_t keyBytes = kAesKeyBytes);

    /// Seals plaintext under a 32-byte key with a fresh random nonce; the
    /// associated data is authenticated but not stored.
    static Result encryptAes256Gcm(std::string_view key, std::string_view plaintext,
                                   std::string_view associatedData = {});
    /// Opens what encryptAes256Gcm sealed; "authentication failed" for a wrong
    /// key, wrong associated data or any altered byte.
    static Result decryptAes256Gcm(std::string_view key, std::string_view sealed,
                                   std::string_view associatedData = {});

    static KyString toHex(std::string_view bytes);
    /// Standard base64 with padding.
    static KyString toBase64(std::string_view bytes);
    /// Strict: only the standard alphabet, correct padding, no blanks.
    static Result fromBase64(std::string_view text);
};
