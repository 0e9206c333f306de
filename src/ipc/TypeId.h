// TypeId: the 64-bit identity of a channel's signature.
//
// The id is the framework hash of a compiler-style text naming the argument
// list ("uint64_t ky::ipc::detail::type_id() [with Args = {bool, KyString};
// uint64_t = long unsigned int]"), so a peer in another language reaches the
// same id by hashing the same text. Only the five codec types have a
// spelling; any other type fails to compile. Ids and names are computed once
// per signature in function-local statics: safe from any thread.
#pragma once

#include <cstdint>
#include <string>

#include "core/types/KyString.h"

namespace ky::ipc::detail {

template <typename T>
struct TypeSpelling;  // undefined: only the codec's types may travel
template <> struct TypeSpelling<bool> { static constexpr const char* text = "bool"; };
template <> struct TypeSpelling<int> { static constexpr const char* text = "int"; };
template <> struct TypeSpelling<unsigned int> { static constexpr const char* text = "unsigned int"; };
template <> struct TypeSpelling<unsigned long> { static constexpr const char* text = "long unsigned int"; };
template <> struct TypeSpelling<KyString> { static constexpr const char* text = "KyString"; };

/// "bool, KyString" for <bool, KyString>; "" for no arguments.
template <typename... Args>
std::string argumentList() {
    std::string out;
    ((out += (out.empty() ? "" : ", "), out += TypeSpelling<Args>::text), ...);
    return out;
}

/// The hashed text for an argument list such as "bool, KyString".
KyString typeIdText(const KyString& argumentList);
/// The stored human-readable signature for an argument list.
KyString typeNameText(const KyString& argumentList);
/// Hash of typeIdText(argumentList): the run-time form of type_id.
uint64_t typeIdFromArgList(const KyString& argumentList);

template <typename... Args>
uint64_t type_id() {
    static const uint64_t id = typeIdFromArgList(KyString(argumentList<Args...>()));
    return id;
}

template <typename... Args>
KyString type_name() {
    static const KyString name = typeNameText(KyString(argumentList<Args...>()));
    return name;
}

}  // namespace ky::ipc::detail
