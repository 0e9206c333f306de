// KyCrypto: digests and key derivation against published vectors, AES-256-GCM
// sealing that opens only with the right key and untouched bytes, and strict
// base64.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "core/platform/KyCrypto.h"

namespace {

std::string fromHex(const std::string& hex) {
    std::string out;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) out.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

} // namespace

TEST(KyCrypto, DigestsMatchPublishedVectors) {
    struct Row { const char* input; const char* sha256; const char* sha1; };
    const Row rows[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
         "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
         "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(KyCrypto::sha256Hex(r.input), r.sha256) << r.input;
        EXPECT_EQ(KyCrypto::sha1Hex(r.input), r.sha1) << r.input;
        EXPECT_EQ(KyCrypto::sha256(r.input), fromHex(r.sha256)) << r.input;
        EXPECT_EQ(KyCrypto::sha1(r.input).size(), 20u);
    }
    const std::string million(1000000, 'a');
    EXPECT_EQ(KyCrypto::sha256Hex(million), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(KyCrypto, KeyDerivationMatchesVectorsAndRefusesBadParameters) {
    const KyCrypto::Result a = KyCrypto::deriveKey("passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096, 40);
    ASSERT_TRUE(a.ok) << a.error;
    EXPECT_EQ(KyCrypto::toHex(a.data), "348c89dbcbd32b2f32d814b8116e84cf2b17347ebc1800181c4e2a1fb8dd53e1c635518c7dac47e9");
    const KyCrypto::Result b = KyCrypto::deriveKey("velmo", "12345678", 1);
    ASSERT_TRUE(b.ok);
    EXPECT_EQ(KyCrypto::toHex(b.data), "4f794a3db12ca40162a714cb30d42436e37128ab5ee12dcf5f232a7c737a8ba5");

    struct Row { const char* name; const char* salt; int iterations; std::size_t bytes; const char* error; };
    const Row rows[] = {
        {"short salt", "1234567", 10, 32, "salt too short (need at least 8 bytes)"},
        {"zero iterations", "12345678", 0, 32, "iteration count must be positive"},
        {"no key bytes", "12345678", 10, 0, "key length must be 1 to 1024 bytes"},
    };
    for (const Row& r : rows) {
        const KyCrypto::Result bad = KyCrypto::deriveKey("pw", r.salt, r.iterations, r.bytes);
        EXPECT_FALSE(bad.ok) << r.name;
        EXPECT_TRUE(bad.data.empty()) << r.name;
        EXPECT_EQ(bad.error, r.error) << r.name;
    }
}

TEST(KyCrypto, GcmOpensPublishedCiphertexts) {
    // AES-256-GCM with an all-zero key and nonce: a 16-byte zero block and the empty message.
    const std::string key(32, '\0');
    const std::string nonce(12, '\0');
    const KyCrypto::Result block = KyCrypto::decryptAes256Gcm(
        key, nonce + fromHex("cea7403d4d606b6e074ec5d3baf39d18d0d1c8a799996bf0265b98b5d48ab919"));
    ASSERT_TRUE(block.ok) << block.error;
    EXPECT_EQ(block.data, std::string(16, '\0'));
    const KyCrypto::Result empty = KyCrypto::decryptAes256Gcm(key, nonce + fromHex("530f8afbc74536b9a963b4f1c4cb738b"));
    ASSERT_TRUE(empty.ok) << empty.error;
    EXPECT_TRUE(empty.data.empty());
}

TEST(KyCrypto, SealedDataOpensOnlyWithTheRightKeyAndUntouchedBytes) {
    const std::string key = KyCrypto::randomBytes(32).data;
    const std::string otherKey = KyCrypto::randomBytes(32).data;
    const std::string message = "token=\x01\x02 secret \xc3\xa9";
    const KyCrypto::Result sealed = KyCrypto::encryptAes256Gcm(key, message, "vpn/token");
    ASSERT_TRUE(sealed.ok) << sealed.error;
    ASSERT_EQ(sealed.data.size(), 12 + message.size() + 16);
    EXPECT_EQ(sealed.data.find("secret"), std::string::npos);

    const KyCrypto::Result opened = KyCrypto::decryptAes256Gcm(key, sealed.data, "vpn/token");
    ASSERT_TRUE(opened.ok) << opened.error;
    EXPECT_EQ(opened.data, message);

    EXPECT_EQ(KyCrypto::decryptAes256Gcm(otherKey, sealed.data, "vpn/token").error, "authentication failed");
    EXPECT_EQ(KyCrypto::decryptAes256Gcm(key, sealed.data, "vpn/other").error, "authentication failed");
    // Every single flipped bit, in nonce, ciphertext or tag, is caught.
    for (std::size_t i = 0; i < sealed.data.size(); ++i) {
        std::string tampered = sealed.data;
        tampered[i] = static_cast<char>(tampered[i] ^ 0x10);
        const KyCrypto::Result r = KyCrypto::decryptAes256Gcm(key, tampered, "vpn/token");
        EXPECT_FALSE(r.ok) << "byte " << i;
        EXPECT_TRUE(r.data.empty()) << "byte " << i;
        EXPECT_EQ(r.error, "authentication failed") << "byte " << i;
    }
    EXPECT_EQ(KyCrypto::decryptAes256Gcm(key, sealed.data.substr(0, 27)).error, "ciphertext too short");
    EXPECT_EQ(KyCrypto::encryptAes256Gcm(key.substr(0, 16), message).error, "key must be 32 bytes");
    EXPECT_EQ(KyCrypto::decryptAes256Gcm(key + "x", sealed.data).error, "key must be 32 bytes");
}

TEST(KyCrypto, NoncesAreFreshAcrossThreads) {
    const std::string key(32, 'k');
    std::vector<std::vector<std::string>> perThread(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < perThread.size(); ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i) perThread[t].push_back(KyCrypto::encryptAes256Gcm(key, "same").data.substr(0, 12));
        });
    for (std::thread& th : threads) th.join();
    std::set<std::string> nonces;
    for (const auto& list : perThread) nonces.insert(list.begin(), list.end());
    EXPECT_EQ(nonces.size(), 400u);
}

TEST(KyCrypto, Base64RoundTripsAndRefusesMalformedText) {
    struct Row { const char* bytes; const char* text; };
    const Row rows[] = {{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
    for (const Row& r : rows) {
        EXPECT_EQ(KyCrypto::toBase64(r.bytes), r.text);
        const KyCrypto::Result back = KyCrypto::fromBase64(r.text);
        ASSERT_TRUE(back.ok) << r.text;
        EXPECT_EQ(back.data, r.bytes);
    }
    std::string all;
    for (int c = 0; c < 256; ++c) all.push_back(static_cast<char>(c));
    EXPECT_EQ(KyCrypto::fromBase64(KyCrypto::toBase64(all).view()).data, all);

    struct Bad { const char* text; const char* error; };
    const Bad bad[] = {
        {"Zm9", "invalid base64 length"},  {"Zm9v\n", "invalid base64 length"},
        {"Zm=v", "invalid base64 padding"}, {"Zh==", "invalid base64 padding"},
        {"Z===", "invalid base64 character"}, {"Zm9-", "invalid base64 character"},
        {"Zg==Zg==", "invalid base64 character"},
    };
    for (const Bad& b : bad) EXPECT_EQ(KyCrypto::fromBase64(b.text).error, b.error) << b.text;
}
