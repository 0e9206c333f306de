// KyJsonCipher: encipherment of the string values of a JSON tree, so secrets
// in configuration files and snapshots (tokens, passwords) rest as printable
// text instead of plain text.
//
// A string value is sealed with AES-256-GCM through KyCrypto and replaced by
// "enc:v1:" + base64(nonce | ciphertext | tag). Keys of objects, numbers,
// bools and nulls are never touched; strings that already carry the prefix
// are left as they are, so sealing twice seals once. Opening turns every
// prefixed string back into its text and leaves other strings alone, so
// partly sealed trees open cleanly.
//
// Both tree operations work in two phases: every new string is computed
// first, and the tree is changed only when all of them succeeded. A wrong
// key or an altered value therefore fails the whole call with the path of the
// first bad value ("vpn/token: authentication failed") and leaves the tree
// exactly as it was.
//
// The object owns a copy of the key (wiped on destruction). Its calls are
// const and keep no state, so one cipher may serve several threads; the trees
// passed in belong to the caller.
#pragma once

#include <string>
#include <string_view>

#include "core/platform/KyCrypto.h"
#include "core/types/KyJsonDocument.h"
#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"

/// Seals and opens the string values of JSON trees with one AES-256 key.
class KyJsonCipher {
public:
    /// Marks a sealed string value; the number is the layout's version.
    static constexpr std::string_view kPrefix = "enc:v1:";

    /// No key yet: every operation fails with "no key set".
    KyJsonCipher() = default;
    /// Takes a 32-byte key; another length leaves the cipher without a key.
    explicit KyJsonCipher(std::string_view key);
    KyJsonCipher(const KyJsonCipher& other) = default;
    KyJsonCipher& operator=(const KyJsonCipher& other) = default;
    ~KyJsonCipher();

    bool setKey(std::string_view key, KyString* error = nullptr);
    /// Derives the key with PBKDF2-HMAC-SHA256 (see KyCrypto::deriveKey).
    bool setPassphrase(std::string_view passphrase, std::string_view salt,
                       int iterations = KyCrypto::kDefaultPbkdf2Iterations, KyString* error = nullptr);
    bool hasKey() const { return !key_.empty(); }

    static bool isSealed(std::string_view text) { return text.substr(0, kPrefix.size()) == kPrefix; }
    /// data holds the printable sealed text.
    KyCrypto::Result sealString(std::string_view plain) const;
    /// data holds the original text; the input must carry kPrefix.
    KyCrypto::Result openString(std::string_view sealed) const;

    /// Seals every string value under the given slash-separated paths (a path
    /// to a container covers everything inside it; absent paths are skipped),
    /// or in the whole tree when paths is empty.
    bool encryptStrings(KyJsonValue& root, const KyList<KyString>& paths = {}, KyString* error = nullptr) const;
    bool encryptStrings(KyJsonDocument& doc, const KyList<KyString>& paths = {}, KyString* error = nullptr) const {
        return encryptStrings(doc.root(), paths, error);
    }
    /// Opens every sealed string value in the tree.
    bool decryptStrings(KyJsonValue& root, KyString* error = nullptr) const;
    bool decryptStrings(KyJsonDocument& doc, KyString* error = nullptr) const {
        return decryptStrings(doc.root(), error);
    }

private:
    std::string key_;
};
