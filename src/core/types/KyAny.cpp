// KyAny: copying and moving through the per-type tables, the conversions
// behind value() and convertTo(), and the process-wide type registry.
//
// The registry maps names to type tables and types to their first registered
// name. It is guarded by one mutex that is never held while user code runs
// (copies happen after the lookup). The built-in names are registered exactly
// once, on the first registry access from any thread; a thread-local flag lets
// registerBuiltinTypes_() itself call registerType<T>() without waiting on its
// own once-flag.
#include "core/types/KyAny.h"

#include <cxxabi.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <typeindex>
#include <unordered_map>

#include "core/types/KyColor.h"
#include "core/types/KyJsonArray.h"
#include "core/types/KyJsonObject.h"
#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyPoint.h"
#include "core/types/KyRect.h"
#include "core/types/KySize.h"

namespace {

using ky::detail::AnyScalar;
using ky::detail::AnyTypeOps;

struct TypeRegistry {
    std::mutex mutex;
    std::unordered_map<std::string, const AnyTypeOps*> byName;
    std::unordered_map<std::type_index, std::string> nameOf;
};

// Never destroyed: values held in other objects' statics may ask for their
// type name while the process exits.
TypeRegistry& registry() {
    static TypeRegistry* r = new TypeRegistry;
    return *r;
}

std::once_flag gBuiltinsOnce;
thread_local bool tRegisteringBuiltins = false;

const AnyTypeOps* findByName(const std::string& name) {
    TypeRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto it = r.byName.find(name);
    return it == r.byName.end() ? nullptr : it->second;
}

KyString demangled(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return KyString(status == 0 && name ? name.get() : type.name());
}

bool isText(const AnyTypeOps* ops) { return *ops->type == typeid(KyString); }
const KyString& textOf(const void* p) { return *static_cast<const KyString*>(p); }

// Largest doubles strictly below 2^63 and 2^64 are exact; anything at or past
// those bounds does not fit the 64-bit integer types.
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

} // namespace

KyAny::KyAny(const KyAny& other) {
    if (other.ops_) {
        other.ops_->copyConstruct(storage_, other.address_());
        ops_ = other.ops_;
    }
}

KyAny::KyAny(KyAny&& other) noexcept {
    if (other.ops_) {
        other.ops_->moveStorage(storage_, other.storage_);
        ops_ = std::exchange(other.ops_, nullptr);
    }
}

KyAny& KyAny::operator=(const KyAny& other) {
    if (this != &other) {
        // Copy first: a throwing copy leaves this value as it was.
        KyAny copy(other);
        swap(copy);
    }
    return *this;
}

KyAny& KyAny::operator=(KyAny&& other) noexcept {
    if (this != &other) {
        clear();
        if (other.ops_) {
            other.ops_->moveStorage(storage_, other.storage_);
            ops_ = std::exchange(other.ops_, nullptr);
        }
    }
    return *this;
}

KyAny::~KyAny() { clear(); }

void KyAny::clear() noexcept {
    if (ops_) {
        ops_->destroy(storage_);
        ops_ = nullptr;
    }
}

void KyAny::swap(KyAny& other) noexcept {
    if (this == &other) return;
    KyAny parked(std::move(other));
    other = std::move(*this);
    *this = std::move(parked);
}

void KyAny::throwTypeMismatch_() { throw std::runtime_error("Type mismatch in KyAny::get"); }

KyString KyAny::typeName() const {
    if (!ops_) return KyString();
    ensureBuiltinTypes_();
    {
        TypeRegistry& r = registry();
        std::lock_guard<std::mutex> lock(r.mutex);
        const auto it = r.nameOf.find(std::type_index(*ops_->type));
        if (it != r.nameOf.end()) return KyString(it->second);
    }
    return demangled(*ops_->type);
}

KyAny KyAny::fromVoidPtr(const void* ptr, const KyString& typeName) {
    if (!ptr) return KyAny();
    ensureBuiltinTypes_();
    const AnyTypeOps* ops = findByName(typeName.toStdString());
    KyAny out;
    if (ops) {
        ops->copyConstruct(out.storage_, ptr);
        out.ops_ = ops;
    }
    return out;
}

KyAny KyAny::convertedTo(const KyString& typeName) const {
    if (!ops_) return KyAny();
    ensureBuiltinTypes_();
    const AnyTypeOps* target = findByName(typeName.toStdString());
    if (!target) return KyAny();
    if (*target->type == *ops_->type) return *this;
    auto as = [this]<typename T>(T) -> KyAny {
        T v{};
        return convertTo(v) ? KyAny(v) : KyAny();
    };
    const std::type_info& t = *target->type;
    if (t == typeid(bool)) return as(bool{});
    if (t == typeid(int)) return as(int{});
    if (t == typeid(unsigned int)) return as(0u);
    if (t == typeid(long long)) return as(0ll);
    if (t == typeid(unsigned long long)) return as(0ull);
    if (t == typeid(double)) return as(0.0);
    if (t == typeid(float)) return as(0.0f);
    if (t == typeid(KyString)) return as(KyString());
    return KyAny();
}

bool KyAny::toBool_(bool& out) const {
    if (!ops_) return false;
    if (ops_->readScalar) {
        AnyScalar n;
        ops_->readScalar(address_(), n);
        switch (n.kind) {
        case AnyScalar::Kind::Bool:
        case AnyScalar::Kind::Unsigned: out = n.u != 0; return true;
        case AnyScalar::Kind::Signed: out = n.s != 0; return true;
        case AnyScalar::Kind::Floating:
            if (std::isnan(n.d)) return false;
            out = n.d != 0;
            return true;
        }
        return false;
    }
    if (isText(ops_)) {
        const KyString t = textOf(address_()).trimmed().toLower();
        if (t == "true" || t == "1" || t == "yes" || t == "on") return out = true, true;
        if (t.isEmpty() || t == "false" || t == "0" || t == "no" || t == "off") return out = false, true;
    }
    return false;
}

bool KyAny::toSigned_(long long lo, long long hi, long long& out) const {
    if (!ops_) return false;
    long long v = 0;
    if (ops_->readScalar) {
        AnyScalar n;
        ops_->readScalar(address_(), n);
        switch (n.kind) {
        case AnyScalar::Kind::Bool: v = static_cast<long long>(n.u); break;
        case AnyScalar::Kind::Signed: v = n.s; break;
        case AnyScalar::Kind::Unsigned:
            if (n.u > static_cast<unsigned long long>(hi)) return false;
            v = static_cast<long long>(n.u);
            break;
        case AnyScalar::Kind::Floating: {
            // Rounded to the nearest integer, halves away from zero.
            const double r = std::round(n.d);
            if (!(r >= -kTwoTo63 && r < kTwoTo63)) return false;
            v = static_cast<long long>(r);
            break;
        }
        }
    } else if (isText(ops_)) {
        bool ok = false;
        v = textOf(address_()).toLongLong(&ok);
        if (!ok) return false;
    } else {
        return false;
    }
    if (v < lo || v > hi) return false;
    out = v;
    return true;
}

bool KyAny::toUnsigned_(unsigned long long hi, unsigned long long& out) const {
    if (!ops_) return false;
    unsigned long long v = 0;
    if (ops_->readScalar) {
        AnyScalar n;
        ops_->readScalar(address_(), n);
        switch (n.kind) {
        case AnyScalar::Kind::Bool:
        case AnyScalar::Kind::Unsigned: v = n.u; break;
        case AnyScalar::Kind::Signed:
            if (n.s < 0) return false;
            v = static_cast<unsigned long long>(n.s);
            break;
        case AnyScalar::Kind::Floating: {
            const double r = std::round(n.d);
            if (!(r >= 0 && r < kTwoTo64)) return false;
            v = static_cast<unsigned long long>(r);
            break;
        }
        }
    } else if (isText(ops_)) {
        bool ok = false;
        v = textOf(address_()).toULongLong(&ok);
        if (!ok) return false;
    } else {
        return false;
    }
    if (v > hi) return false;
    out = v;
    return true;
}

bool KyAny::toDouble_(double& out) const {
    if (!ops_) return false;
    if (ops_->readScalar) {
        AnyScalar n;
        ops_->readScalar(address_(), n);
        switch (n.kind) {
        case AnyScalar::Kind::Bool:
        case AnyScalar::Kind::Unsigned: out = static_cast<double>(n.u); return true;
        case AnyScalar::Kind::Signed: out = static_cast<double>(n.s); return true;
        case AnyScalar::Kind::Floating: out = n.d; return true;
        }
        return false;
    }
    if (isText(ops_)) {
        bool ok = false;
        const double v = textOf(address_()).toDouble(&ok);
        if (ok) out = v;
        return ok;
    }
    return false;
}

bool KyAny::toText_(KyString& out) const {
    if (!ops_) return false;
    if (ops_->readScalar) {
        AnyScalar n;
        ops_->readScalar(address_(), n);
        switch (n.kind) {
        case AnyScalar::Kind::Bool: out = n.u ? "true" : "false"; return true;
        case AnyScalar::Kind::Signed: out = KyString::number(n.s); return true;
        case AnyScalar::Kind::Unsigned: out = KyString::number(n.u); return true;
        case AnyScalar::Kind::Floating:
            if (n.single && std::isfinite(n.d)) {
                // A float printed at double precision shows digits it never had.
                char buf[32];
                const auto r = std::to_chars(buf, buf + sizeof buf, static_cast<float>(n.d));
                out = KyString(buf, static_cast<std::size_t>(r.ptr - buf));
            } else {
                out = KyString::number(n.d);
            }
            return true;
        }
        return false;
    }
    if (*ops_->type == typeid(KyColor)) {
        out = static_cast<const KyColor*>(address_())->name();
        return true;
    }
    return false;
}

bool operator==(const KyAny& a, const KyAny& b) {
    if (!a.ops_ || !b.ops_) return !a.ops_ && !b.ops_;
    if (*a.ops_->type != *b.ops_->type || !a.ops_->equals) return false;
    return a.ops_->equals(a.address_(), b.address_());
}

bool KyAny::registerType_(const KyString& name, const AnyTypeOps* ops) {
    if (name.isEmpty()) return false;
    ensureBuiltinTypes_();
    TypeRegistry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    const auto [it, inserted] = r.byName.emplace(name.toStdString(), ops);
    if (!inserted) return *it->second->type == *ops->type;
    // A type registered under several names reports the first one.
    r.nameOf.emplace(std::type_index(*ops->type), name.toStdString());
    return true;
}

bool KyAny::isRegistered(const KyString& name) {
    ensureBuiltinTypes_();
    return findByName(name.toStdString()) != nullptr;
}

void KyAny::ensureBuiltinTypes_() {
    if (tRegisteringBuiltins) return;
    std::call_once(gBuiltinsOnce, [] {
        struct Flag {
            Flag() { tRegisteringBuiltins = true; }
            ~Flag() { tRegisteringBuiltins = false; }
        } flag;
        registerBuiltinTypes_();
    });
}

void KyAny::registerBuiltinTypes_() {
    registerType<bool>("bool");
    registerType<int>("int");
    registerType<unsigned int>("unsigned int");
    registerType<long long>("long long");
    registerType<unsigned long long>("unsigned long long");
    registerType<double>("double");
    registerType<float>("float");
    registerType<KyString>("KyString");
    registerType<KyList<KyString>>("KyList<KyString>");
    registerType<KyColor>("KyColor");
    registerType<KyRect>("KyRect");
    registerType<KyPoint>("KyPoint");
    registerType<KySize>("KySize");
    registerType<KyJsonValue>("KyJsonValue");
    registerType<KyJsonObject>("KyJsonObject");
    registerType<KyJsonArray>("KyJsonArray");
}

std::ostream& operator<<(std::ostream& os, const KyAny& value) {
    if (value.isEmpty()) return os << "KyAny()";
    return os << "KyAny(" << value.typeName().toStdString() << ", " << value.toString().toStdString() << ")";
}
