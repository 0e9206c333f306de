// KyIpcSignature: a channel signature given at run time as letters, for the
// kyipc inspector.
//
// The letters b (bool), i (int), u (unsigned int), t (64-bit unsigned, the
// "long unsigned int" of the type texts) and s (KyString) name the argument
// list of a signal or queue. From them this class builds the argument list
// text ("long unsigned int, KyString"), the type id and type name that the
// typed channels compute at compile time, and it encodes values parsed from
// command-line words into the wire tuple and decodes a payload back into
// values. It also reads a registry row's type name back into letters, so a
// mismatch can say which signature the remote side has.
//
// Plain values and pure functions: any thread, no shared state. Bad input is
// reported as a false result or an empty optional with an error text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "core/types/KyJsonValue.h"
#include "core/types/KyList.h"
#include "core/types/KyString.h"
#include "ipc/Codec.h"

/// One argument value of a run-time signature; `letter` says which member holds it.
struct KyIpcValue {
    char letter = 'b';
    bool b = false;
    int32_t i = 0;
    uint32_t u = 0;
    uint64_t t = 0;
    KyString s;

    static KyIpcValue fromBool(bool v);
    static KyIpcValue fromInt(int32_t v);
    static KyIpcValue fromUInt(uint32_t v);
    static KyIpcValue fromUInt64(uint64_t v);
    static KyIpcValue fromString(const KyString& v);

    /// "true"/"false", decimal numbers, strings in double quotes with C escapes.
    KyString toText() const;
    /// bool, integer or string; a t above the signed 64-bit range becomes a
    /// decimal string, since a JSON number of that size would lose digits.
    KyJsonValue toJson() const;
};

/// A signature of letters b, i, u, t, s, and what the wire makes of it.
class KyIpcSignature {
public:
    /// The empty signature (no arguments).
    KyIpcSignature() = default;

    /// Parses letters such as "tbs"; blanks are not allowed. The empty text is
    /// the empty signature. On a bad letter: nullopt and an error naming it.
    static std::optional<KyIpcSignature> parse(const KyString& letters, KyString* error = nullptr);
    /// Reads a comma-blank argument list ("long unsigned int, KyString") back
    /// into letters; nullopt when a type has no letter.
    static std::optional<KyIpcSignature> fromArgumentList(const KyString& list);
    /// Reads a stored type name ("KyString ky::ipc::detail::type_name() [with
    /// Args = {bool}]") back into letters; nullopt when it is cut or unknown.
    static std::optional<KyIpcSignature> fromTypeName(const KyString& typeName);
    /// The type spelling of one letter ("long unsigned int" for t), empty for others.
    static KyString spelling(char letter);

    const KyString& letters() const { return letters_; }
    size_t size() const { return letters_.size(); }
    bool isEmpty() const { return letters_.isEmpty(); }

    /// "bool, KyString": the list the type texts are built from.
    KyString argumentList() const;
    /// The framework hash of the type id text: equal to type_id<Args...>().
    uint64_t typeId() const;
    /// The human-readable signature stored in the signal registry.
    KyString typeName() const;
    /// This signature followed by `tail`.
    KyIpcSignature operator+(const KyIpcSignature& tail) const;
    /// The letters from `pos` on.
    KyIpcSignature tail(size_t pos) const;

    /// Turns command-line words into values: one word per letter; "true",
    /// "false", "yes", "no", "on", "off", "1", "0" for b (any case); strict
    /// decimal numbers in range for i, u and t; any text for s. False with an
    /// error such as "argument 2 (i): \"abc\" is not an int".
    bool parseArguments(const KyList<KyString>& words, std::vector<KyIpcValue>& out, KyString* error) const;
    /// Encodes values that follow this signature; false when they do not
    /// match it or do not fit the encoder.
    bool encode(const std::vector<KyIpcValue>& values, ky::ipc::Encoder& e) const;
    /// Decodes one tuple of this signature; false at the first member that
    /// is missing (bytes left over after the last member are ignored).
    bool decode(ky::ipc::Decoder& d, std::vector<KyIpcValue>& out) const;

    /// Values as one line of text: "bs true \"hello\"" (letters, then the values).
    static KyString formatText(const KyIpcSignature& signature, const std::vector<KyIpcValue>& values);

    friend bool operator==(const KyIpcSignature& a, const KyIpcSignature& b) { return a.letters_ == b.letters_; }

private:
    explicit KyIpcSignature(KyString letters) : letters_(std::move(letters)) {}
    KyString letters_;
};
