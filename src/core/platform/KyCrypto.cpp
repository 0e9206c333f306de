// KyCrypto: EVP digests, RAND_bytes, PKCS5_PBKDF2_HMAC and EVP AES-256-GCM.
// See KyCrypto.h for the model. OpenSSL's error queue is drained after every
// failure so a stale entry never lands on an unrelated later call of the
// same thread.
#include "core/platform/KyCrypto.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <memory>

namespace {

struct CipherCtxDeleter {
    void operator()(EVP_CIPHER_CTX* c) const { EVP_CIPHER_CTX_free(c); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxDeleter>;

KyCrypto::Result failure(const char* error) {
    ERR_clear_error();
    KyCrypto::Result r;
    r.error = error;
    return r;
}

KyCrypto::Result success(std::string data) {
    KyCrypto::Result r;
    r.ok = true;
    r.data = std::move(data);
    return r;
}

std::string digest(const EVP_MD* md, std::string_view data) {
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int n = 0;
    if (EVP_Digest(data.data(), data.size(), out, &n, md, nullptr) != 1) {
        ERR_clear_error();
        return std::string();
    }
    return std::string(reinterpret_cast<const char*>(out), n);
}

bool fitsInt(std::size_t n) { return n <= static_cast<std::size_t>(INT_MAX); }

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int base64Value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

} // namespace

std::string KyCrypto::sha256(std::string_view data) { return digest(EVP_sha256(), data); }

std::string KyCrypto::sha1(std::string_view data) { return digest(EVP_sha1(), data); }

KyString KyCrypto::sha256Hex(std::string_view data) { return toHex(sha256(data)); }

KyString KyCrypto::sha1Hex(std::string_view data) { return toHex(sha1(data)); }

KyCrypto::Result KyCrypto::randomBytes(std::size_t count) {
    if (!fitsInt(count)) return failure("too many random bytes requested");
    std::string out(count, '\0');
    if (count > 0 && RAND_bytes(reinterpret_cast<unsigned char*>(out.data()), static_cast<int>(count)) != 1)
        return failure("random generator failed");
    return success(std::move(out));
}

KyCrypto::Result KyCrypto::deriveKey(std::string_view passphrase, std::string_view salt, int iterations,
                                     std::size_t keyBytes) {
    if (iterations < 1) return failure("iteration count must be positive");
    if (salt.size() < kMinSaltBytes) return failure("salt too short (need at least 8 bytes)");
    if (keyBytes == 0 || keyBytes > 1024) return failure("key length must be 1 to 1024 bytes");
    if (!fitsInt(passphrase.size()) || !fitsInt(salt.size())) return failure("input too large");
    std::string key(keyBytes, '\0');
    if (PKCS5_PBKDF2_HMAC(passphrase.data(), static_cast<int>(passphrase.size()),
                          reinterpret_cast<const unsigned char*>(salt.data()), static_cast<int>(salt.size()),
                          iterations, EVP_sha256(), static_cast<int>(keyBytes),
                          reinterpret_cast<unsigned char*>(key.data())) != 1)
        return failure("key derivation failed");
    return success(std::move(key));
}

KyCrypto::Result KyCrypto::encryptAes256Gcm(std::string_view key, std::string_view plaintext,
                                            std::string_view associatedData) {
    if (key.size() != kAesKeyBytes) return failure("key must be 32 bytes");
    if (!fitsInt(plaintext.size()) || !fitsInt(associatedData.size())) return failure("input too large");
    Result nonce = randomBytes(kGcmNonceBytes);
    if (!nonce.ok) return nonce;

    CipherCtx ctx(EVP_CIPHER_CTX_new());
    if (!ctx) return failure("cipher context allocation failed");
    const auto* keyBytes = reinterpret_cast<const unsigned char*>(key.data());
    const auto* nonceBytes = reinterpret_cast<const unsigned char*>(nonce.data.data());
    // Nonce length is set before the key and nonce go in, as GCM requires.
    if (EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmNonceBytes), nullptr) != 1 ||
        EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, keyBytes, nonceBytes) != 1)
        return failure("cipher setup failed");

    int n = 0;
    if (!associatedData.empty() &&
        EVP_EncryptUpdate(ctx.get(), nullptr, &n, reinterpret_cast<const unsigned char*>(associatedData.data()),
                          static_cast<int>(associatedData.size())) != 1)
        return failure("encryption failed");

    std::string out;
    out.resize(kGcmNonceBytes + plaintext.size() + kGcmTagBytes);
    out.replace(0, kGcmNonceBytes, nonce.data);
    auto* cipherBytes = reinterpret_cast<unsigned char*>(out.data()) + kGcmNonceBytes;
    int written = 0;
    if (!plaintext.empty()) {
        if (EVP_EncryptUpdate(ctx.get(), cipherBytes, &n, reinterpret_cast<const unsigned char*>(plaintext.data()),
                              static_cast<int>(plaintext.size())) != 1)
            return failure("encryption failed");
        written = n;
    }
    if (EVP_EncryptFinal_ex(ctx.get(), cipherBytes + written, &n) != 1) return failure("encryption failed");
    written += n;
    if (static_cast<std::size_t>(written) != plaintext.size()) return failure("encryption failed");
    if (EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kGcmTagBytes),
                            cipherBytes + written) != 1)
        return failure("encryption failed");
    return success(std::move(out));
}

KyCrypto::Result KyCrypto::decryptAes256Gcm(std::string_view key, std::string_view sealed,
                                            std::string_view associatedData) {
    if (key.size() != kAesKeyBytes) return failure("key must be 32 bytes");
    if (sealed.size() < kGcmNonceBytes + kGcmTagBytes) return failure("ciphertext too short");
    if (!fitsInt(sealed.size()) || !fitsInt(associatedData.size())) return failure("input too large");
    const std::size_t cipherSize = sealed.size() - kGcmNonceBytes - kGcmTagBytes;
    const auto* nonceBytes = reinterpret_cast<const unsigned char*>(sealed.data());
    const auto* cipherBytes = nonceBytes + kGcmNonceBytes;
    // The tag control takes a non-const pointer; give it a private copy.
    unsigned char tag[kGcmTagBytes];
    std::copy(cipherBytes + cipherSize, cipherBytes + cipherSize + kGcmTagBytes, tag);

    CipherCtx ctx(EVP_CIPHER_CTX_new());
    if (!ctx) return failure("cipher context allocation failed");
    if (EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmNonceBytes), nullptr) != 1 ||
        EVP_DecryptInit_ex(ctx.get(), nullptr, nullptr, reinterpret_cast<const unsigned char*>(key.data()),
                           nonceBytes) != 1)
        return failure("cipher setup failed");

    int n = 0;
    if (!associatedData.empty() &&
        EVP_DecryptUpdate(ctx.get(), nullptr, &n, reinterpret_cast<const unsigned char*>(associatedData.data()),
                          static_cast<int>(associatedData.size())) != 1)
        return failure("decryption failed");

    std::string plain(cipherSize, '\0');
    auto* plainBytes = reinterpret_cast<unsigned char*>(plain.data());
    int written = 0;
    if (cipherSize > 0) {
        if (EVP_DecryptUpdate(ctx.get(), plainBytes, &n, cipherBytes, static_cast<int>(cipherSize)) != 1)
            return failure("decryption failed");
        written = n;
    }
    if (EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kGcmTagBytes), tag) != 1)
        return failure("decryption failed");
    // Final checks the tag; until it passes, the bytes in plain are untrusted
    // and are wiped rather than returned.
    if (EVP_DecryptFinal_ex(ctx.get(), plainBytes + written, &n) != 1) {
        OPENSSL_cleanse(plain.data(), plain.size());
        return failure("authentication failed");
    }
    return success(std::move(plain));
}

KyString KyCrypto::toHex(std::string_view bytes) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char c : bytes) {
        out.push_back(kHex[c >> 4]);
        out.push_back(kHex[c & 0xF]);
    }
    return KyString(std::move(out));
}

KyString KyCrypto::toBase64(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const unsigned v = (p[i] << 16) | (p[i + 1] << 8) | p[i + 2];
        out.push_back(kBase64Alphabet[(v >> 18) & 63]);
        out.push_back(kBase64Alphabet[(v >> 12) & 63]);
        out.push_back(kBase64Alphabet[(v >> 6) & 63]);
        out.push_back(kBase64Alphabet[v & 63]);
    }
    const std::size_t rest = bytes.size() - i;
    if (rest == 1) {
        const unsigned v = p[i] << 16;
        out.push_back(kBase64Alphabet[(v >> 18) & 63]);
        out.push_back(kBase64Alphabet[(v >> 12) & 63]);
        out.append("==");
    } else if (rest == 2) {
        const unsigned v = (p[i] << 16) | (p[i + 1] << 8);
        out.push_back(kBase64Alphabet[(v >> 18) & 63]);
        out.push_back(kBase64Alphabet[(v >> 12) & 63]);
        out.push_back(kBase64Alphabet[(v >> 6) & 63]);
        out.push_back('=');
    }
    return KyString(std::move(out));
}

KyCrypto::Result KyCrypto::fromBase64(std::string_view text) {
    if (text.size() % 4 != 0) return failure("invalid base64 length");
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        int v[4];
        int pad = 0;
        for (int k = 0; k < 4; ++k) {
            const unsigned char c = static_cast<unsigned char>(text[i + k]);
            if (c == '=' && last && k >= 2) {
                v[k] = 0;
                ++pad;
                continue;
            }
            if (pad > 0) return failure("invalid base64 padding");
            v[k] = base64Value(c);
            if (v[k] < 0) return failure("invalid base64 character");
        }
        const unsigned bits = (v[0] << 18) | (v[1] << 12) | (v[2] << 6) | v[3];
        // Unused low bits must be zero, so every text has exactly one decoding.
        if ((pad == 1 && (bits & 0xFF) != 0) || (pad == 2 && (bits & 0xFFFF) != 0))
            return failure("invalid base64 padding");
        out.push_back(static_cast<char>((bits >> 16) & 0xFF));
        if (pad < 2) out.push_back(static_cast<char>((bits >> 8) & 0xFF));
        if (pad < 1) out.push_back(static_cast<char>(bits & 0xFF));
    }
    return success(std::move(out));
}
