// KyJsonValue: storage management, typed getters, path walking and deep
// equality. See KyJsonValue.h for the model.
#include "core/types/KyJsonValue.h"

#include <cmath>
#include <limits>
#include <new>
#include <utility>

namespace {

constexpr std::int64_t kInt64Max = std::numeric_limits<std::int64_t>::max();

// A path segment that names an array item: decimal digits only, no sign, no
// blanks, and small enough to be an index.
bool parseIndex(std::string_view segment, std::size_t& index) {
    if (segment.empty() || segment.size() > 18) return false;
    std::size_t v = 0;
    for (char c : segment) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + static_cast<std::size_t>(c - '0');
    }
    index = v;
    return true;
}

// Splits off the next non-empty segment of a slash-separated path.
bool nextSegment(std::string_view& rest, std::string_view& segment) {
    while (!rest.empty() && rest.front() == '/') rest.remove_prefix(1);
    if (rest.empty()) return false;
    const std::size_t slash = rest.find('/');
    segment = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    return true;
}

} // namespace

KyJsonValue::KyJsonValue(Type type) : type_(type) {
    switch (type) {
    case Null: u_.i = 0; break;
    case Bool: u_.b = false; break;
    case Integer: u_.i = 0; break;
    case Double: u_.d = 0.0; break;
    case String: new (&u_.s) KyString(); break;
    case Array: u_.a = new KyJsonArray(); break;
    case Object: u_.o = new KyJsonObject(); break;
    default: type_ = Null; u_.i = 0; break;
    }
}

KyJsonValue::KyJsonValue(unsigned long v) noexcept : KyJsonValue(static_cast<unsigned long long>(v)) {}

KyJsonValue::KyJsonValue(unsigned long long v) noexcept {
    if (v <= static_cast<unsigned long long>(kInt64Max)) {
        type_ = Integer;
        u_.i = static_cast<std::int64_t>(v);
    } else {
        type_ = Double;
        u_.d = static_cast<double>(v);
    }
}

KyJsonValue::KyJsonValue(const char* v) : type_(String) { new (&u_.s) KyString(v); }
KyJsonValue::KyJsonValue(const std::string& v) : type_(String) { new (&u_.s) KyString(v); }
KyJsonValue::KyJsonValue(const KyString& v) : type_(String) { new (&u_.s) KyString(v); }
KyJsonValue::KyJsonValue(KyString&& v) noexcept : type_(String) { new (&u_.s) KyString(std::move(v)); }
KyJsonValue::KyJsonValue(const KyJsonArray& v) : type_(Array) { u_.a = new KyJsonArray(v); }
KyJsonValue::KyJsonValue(KyJsonArray&& v) : type_(Array) { u_.a = new KyJsonArray(std::move(v)); }
KyJsonValue::KyJsonValue(const KyJsonObject& v) : type_(Object) { u_.o = new KyJsonObject(v); }
KyJsonValue::KyJsonValue(KyJsonObject&& v) : type_(Object) { u_.o = new KyJsonObject(std::move(v)); }

KyJsonValue::KyJsonValue(const KyJsonValue& other) : type_(Null) { copyFrom_(other); }

KyJsonValue& KyJsonValue::operator=(const KyJsonValue& other) {
    if (this != &other) {
        // Copy first: other may be a member of this value's own tree.
        KyJsonValue copy(other);
        swap(copy);
    }
    return *this;
}

KyJsonValue& KyJsonValue::operator=(KyJsonValue&& other) noexcept {
    if (this == &other) return *this;
    if (type_ != Array && type_ != Object) {
        destroy_();
        moveFrom_(other);
        return *this;
    }
    // Take other out before destroying ours, as other may live inside ours.
    KyJsonValue taken(std::move(other));
    destroy_();
    moveFrom_(taken);
    return *this;
}

void KyJsonValue::swap(KyJsonValue& other) noexcept {
    if (this == &other) return;
    KyJsonValue tmp;
    tmp.moveFrom_(*this);
    moveFrom_(other);
    other.moveFrom_(tmp);
}

void KyJsonValue::destroyOwned_() noexcept {
    switch (type_) {
    case String: u_.s.~KyString(); break;
    case Array: delete u_.a; break;
    case Object: delete u_.o; break;
    default: break;
    }
}

void KyJsonValue::moveStringFrom_(KyJsonValue& other) noexcept {
    new (&u_.s) KyString(std::move(other.u_.s));
    other.u_.s.~KyString();
    type_ = String;
    other.type_ = Null;
}

void KyJsonValue::copyFrom_(const KyJsonValue& other) {
    // Called on a null value only.
    switch (other.type_) {
    case String: new (&u_.s) KyString(other.u_.s); break;
    case Array: u_.a = new KyJsonArray(*other.u_.a); break;
    case Object: u_.o = new KyJsonObject(*other.u_.o); break;
    case Bool: u_.b = other.u_.b; break;
    case Double: u_.d = other.u_.d; break;
    default: u_.i = other.u_.i; break;
    }
    type_ = other.type_;
}

int KyJsonValue::toInt(int fallback) const {
    if (type_ != Integer && type_ != Double) return fallback;
    const std::int64_t v = toInt64(std::numeric_limits<std::int64_t>::max());
    if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max()) return fallback;
    return static_cast<int>(v);
}

std::int64_t KyJsonValue::toInt64(std::int64_t fallback) const {
    if (type_ == Integer) return u_.i;
    if (type_ == Double) {
        const double d = u_.d;
        double whole = 0.0;
        if (!std::isfinite(d) || std::modf(d, &whole) != 0.0) return fallback;
        // 2^63 itself is out of range; -2^63 is the smallest int64.
        if (d >= 9223372036854775808.0 || d < -9223372036854775808.0) return fallback;
        return static_cast<std::int64_t>(d);
    }
    return fallback;
}

double KyJsonValue::toDouble(double fallback) const {
    if (type_ == Double) return u_.d;
    if (type_ == Integer) return static_cast<double>(u_.i);
    return fallback;
}

KyString KyJsonValue::toString(const KyString& fallback) const { return type_ == String ? u_.s : fallback; }

KyJsonArray KyJsonValue::toArray() const { return type_ == Array ? *u_.a : KyJsonArray(); }

KyJsonObject KyJsonValue::toObject() const { return type_ == Object ? *u_.o : KyJsonObject(); }

const KyString& KyJsonValue::asString() const {
    static const KyString empty;
    return type_ == String ? u_.s : empty;
}

const KyJsonArray& KyJsonValue::asArray() const {
    static const KyJsonArray empty;
    return type_ == Array ? *u_.a : empty;
}

const KyJsonObject& KyJsonValue::asObject() const {
    static const KyJsonObject empty;
    return type_ == Object ? *u_.o : empty;
}

const KyJsonValue& KyJsonValue::operator[](std::string_view key) const {
    // Through a const reference: the writable operator[] would add the member.
    return type_ == Object ? static_cast<const KyJsonObject&>(*u_.o)[key] : nullValue();
}

const KyJsonValue& KyJsonValue::operator[](std::size_t index) const {
    return type_ == Array ? u_.a->at(index) : nullValue();
}

const KyJsonValue& KyJsonValue::operator[](int index) const {
    return index < 0 ? nullValue() : (*this)[static_cast<std::size_t>(index)];
}

const KyJsonValue* KyJsonValue::find(std::string_view path) const {
    const KyJsonValue* v = this;
    std::string_view rest = path;
    std::string_view segment;
    while (nextSegment(rest, segment)) {
        if (v->type_ == Object) {
            v = v->u_.o->valuePtr(segment);
        } else if (v->type_ == Array) {
            std::size_t index = 0;
            if (!parseIndex(segment, index) || index >= v->u_.a->size()) return nullptr;
            v = &v->u_.a->at(index);
        } else {
            return nullptr;
        }
        if (!v) return nullptr;
    }
    return v;
}

KyJsonValue* KyJsonValue::find(std::string_view path, bool create) {
    if (!create) return const_cast<KyJsonValue*>(static_cast<const KyJsonValue*>(this)->find(path));
    // Check the whole path before touching anything, so a refused path leaves
    // the tree as it was.
    {
        const KyJsonValue* v = this;
        std::string_view rest = path;
        std::string_view segment;
        while (v && nextSegment(rest, segment)) {
            if (v->type_ == Object) {
                v = v->u_.o->valuePtr(segment);
            } else if (v->type_ == Array) {
                std::size_t index = 0;
                if (!parseIndex(segment, index) || index > v->u_.a->size()) return nullptr;
                v = index < v->u_.a->size() ? &(*v->u_.a)[index] : nullptr;
            } else if (v->type_ != Null) {
                return nullptr;
            } else {
                v = nullptr;
            }
        }
    }
    KyJsonValue* v = this;
    std::string_view rest = path;
    std::string_view segment;
    while (nextSegment(rest, segment)) {
        if (v->type_ == Null) *v = KyJsonValue(Object);
        if (v->type_ == Object) {
            v = &(*v->u_.o)[segment];
        } else {
            std::size_t index = 0;
            parseIndex(segment, index);
            if (index == v->u_.a->size()) v->u_.a->append(KyJsonValue());
            v = &(*v->u_.a)[index];
        }
    }
    return v;
}

bool operator==(const KyJsonValue& a, const KyJsonValue& b) {
    if (a.type_ != b.type_) return false;
    switch (a.type_) {
    case KyJsonValue::Null: return true;
    case KyJsonValue::Bool: return a.u_.b == b.u_.b;
    case KyJsonValue::Integer: return a.u_.i == b.u_.i;
    case KyJsonValue::Double: return a.u_.d == b.u_.d;
    case KyJsonValue::String: return a.u_.s == b.u_.s;
    case KyJsonValue::Array: return *a.u_.a == *b.u_.a;
    case KyJsonValue::Object: return *a.u_.o == *b.u_.o;
    default: return false;
    }
}

const KyJsonValue& KyJsonValue::nullValue() {
    static const KyJsonValue null;
    return null;
}

const char* KyJsonValue::typeName(Type type) {
    switch (type) {
    case Null: return "null";
    case Bool: return "bool";
    case Integer: return "integer";
    case Double: return "double";
    case String: return "string";
    case Array: return "array";
    case Object: return "object";
    }
    return "unknown";
}
