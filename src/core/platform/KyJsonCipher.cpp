// KyJsonCipher: two-phase sealing and opening of JSON string values.
// See KyJsonCipher.h for the model.
#include "core/platform/KyJsonCipher.h"

#include <openssl/crypto.h>

#include <unordered_set>
#include <utility>
#include <vector>

namespace {

struct Pending {
    KyJsonValue* value;
    std::string text;
};

KyString childPath(const KyString& parent, std::string_view segment) {
    return parent.isEmpty() ? KyString(segment) : parent + "/" + KyString(segment);
}

// Visits every string value below v with its path, depth first in document order.
template <typename Fn> bool forEachString(KyJsonValue& v, const KyString& path, Fn& fn) {
    if (v.isString()) return fn(v, path);
    if (KyJsonObject* o = v.objectPtr()) {
        for (std::size_t i = 0; i < o->size(); ++i)
            if (!forEachString(o->valueAt(i), childPath(path, o->keyAt(i).view()), fn)) return false;
    } else if (KyJsonArray* a = v.arrayPtr()) {
        for (std::size_t i = 0; i < a->size(); ++i)
            if (!forEachString((*a)[i], childPath(path, KyString::number(static_cast<unsigned long>(i)).view()), fn))
                return false;
    }
    return true;
}

void setError(KyString* error, const KyString& text) {
    if (error) *error = text;
}

KyString located(const KyString& path, const KyString& what) {
    return path.isEmpty() ? what : path + ": " + what;
}

} // namespace

KyJsonCipher::KyJsonCipher(std::string_view key) { setKey(key); }

KyJsonCipher::~KyJsonCipher() {
    if (!key_.empty()) OPENSSL_cleanse(key_.data(), key_.size());
}

bool KyJsonCipher::setKey(std::string_view key, KyString* error) {
    if (!key_.empty()) OPENSSL_cleanse(key_.data(), key_.size());
    key_.clear();
    if (key.size() != KyCrypto::kAesKeyBytes) {
        setError(error, "key must be 32 bytes");
        return false;
    }
    key_.assign(key);
    return true;
}

bool KyJsonCipher::setPassphrase(std::string_view passphrase, std::string_view salt, int iterations,
                                 KyString* error) {
    KyCrypto::Result derived = KyCrypto::deriveKey(passphrase, salt, iterations, KyCrypto::kAesKeyBytes);
    if (!derived.ok) {
        setError(error, derived.error);
        return false;
    }
    const bool ok = setKey(derived.data, error);
    OPENSSL_cleanse(derived.data.data(), derived.data.size());
    return ok;
}

KyCrypto::Result KyJsonCipher::sealString(std::string_view plain) const {
    if (key_.empty()) return KyCrypto::Result{false, {}, "no key set"};
    KyCrypto::Result sealed = KyCrypto::encryptAes256Gcm(key_, plain);
    if (!sealed.ok) return sealed;
    std::string text(kPrefix);
    text += KyCrypto::toBase64(sealed.data).str();
    return KyCrypto::Result{true, std::move(text), {}};
}

KyCrypto::Result KyJsonCipher::openString(std::string_view sealed) const {
    if (key_.empty()) return KyCrypto::Result{false, {}, "no key set"};
    if (!isSealed(sealed)) return KyCrypto::Result{false, {}, "not a sealed value"};
    KyCrypto::Result raw = KyCrypto::fromBase64(sealed.substr(kPrefix.size()));
    if (!raw.ok) return raw;
    return KyCrypto::decryptAes256Gcm(key_, raw.data);
}

bool KyJsonCipher::encryptStrings(KyJsonValue& root, const KyList<KyString>& paths, KyString* error) const {
    if (key_.empty()) {
        setError(error, "no key set");
        return false;
    }
    std::vector<Pending> pending;
    std::unordered_set<const KyJsonValue*> seen;
    KyString failure;
    auto seal = [&](KyJsonValue& v, const KyString& path) {
        // Overlapping paths reach the same value twice; seal it once.
        if (isSealed(v.asString().view()) || !seen.insert(&v).second) return true;
        KyCrypto::Result r = sealString(v.asString().view());
        if (!r.ok) {
            failure = located(path, r.error);
            return false;
        }
        pending.push_back(Pending{&v, std::move(r.data)});
        return true;
    };
    bool ok = true;
    if (paths.isEmpty()) {
        ok = forEachString(root, KyString(), seal);
    } else {
        for (const KyString& path : paths) {
            KyJsonValue* start = root.find(path.view(), false);
            if (!start) continue;
            // Name values by their path from the root, without stray slashes.
            KyString base = KyString::join(path.split('/', true), "/");
            ok = forEachString(*start, base, seal);
            if (!ok) break;
        }
    }
    if (!ok) {
        setError(error, failure);
        return false;
    }
    for (Pending& p : pending) *p.value = KyJsonValue(KyString(std::move(p.text)));
    return true;
}

bool KyJsonCipher::decryptStrings(KyJsonValue& root, KyString* error) const {
    if (key_.empty()) {
        setError(error, "no key set");
        return false;
    }
    std::vector<Pending> pending;
    KyString failure;
    auto open = [&](KyJsonValue& v, const KyString& path) {
        if (!isSealed(v.asString().view())) return true;
        KyCrypto::Result r = openString(v.asString().view());
        if (!r.ok) {
            failure = located(path, r.error);
            return false;
        }
        pending.push_back(Pending{&v, std::move(r.data)});
        return true;
    };
    if (!forEachString(root, KyString(), open)) {
        for (Pending& p : pending) OPENSSL_cleanse(p.text.data(), p.text.size());
        setError(error, failure);
        return false;
    }
    for (Pending& p : pending) *p.value = KyJsonValue(KyString(std::move(p.text)));
    return true;
}
