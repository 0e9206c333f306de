// Codec: the wire encoding of argument tuples.
//
// Members are written one after the other, little-endian, without alignment,
// count or tag: bool 1 byte, int and unsigned int 4, uint64_t 8, KyString a
// u32 byte count and the bytes. Encoder and Decoder are plain cursors over a
// caller-owned buffer; every operation returns false instead of overrunning.
// Writers keep a 4096-byte buffer on their stack and wipe what they wrote
// once the bytes are pushed (EncodedBytesWipe): a request may carry the
// user's password, and a fiber's stack is reused memory that outlives the
// call. Pure functions: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <tuple>

#include "core/types/KySecureMemory.h"
#include "core/types/KyString.h"

namespace ky::ipc {

/// The largest encoded tuple a channel carries.
inline constexpr size_t kPayloadCapacity = 4096;

/// Write cursor: caller's buffer, its capacity, the write position.
struct Encoder {
    uint8_t* data = nullptr;
    size_t capacity = 0;
    size_t pos = 0;
};

/// Wipes the bytes an encoder wrote when the scope ends, whatever the outcome
/// of the push that used them.
struct EncodedBytesWipe {
    const Encoder& e;
    ~EncodedBytesWipe() { kySecureZero(e.data, e.pos < e.capacity ? e.pos : e.capacity); }
};

/// Read cursor: buffer, size, read position. Bytes after the last member are ignored.
struct Decoder {
    const uint8_t* data = nullptr;
    size_t size = 0;
    size_t pos = 0;
};

namespace detail {
bool writeBytes_(Encoder& e, const void* bytes, size_t n);
bool readBytes_(Decoder& d, void* bytes, size_t n);
}  // namespace detail

template <typename T>
struct Codec;

/// The fixed-width members: copied as they are (the wire is little-endian, as this machine).
template <typename T>
struct FixedCodec_ {
    static bool write(Encoder& e, const T& v) { return detail::writeBytes_(e, &v, sizeof(T)); }
    static bool read(Decoder& d, T& v) { return detail::readBytes_(d, &v, sizeof(T)); }
};
/// One byte; a reader takes any non-zero byte as true (a peer may send any).
template <>
struct Codec<bool> {
    static bool write(Encoder& e, const bool& v) {
        const uint8_t byte = v ? 1 : 0;
        return detail::writeBytes_(e, &byte, 1);
    }
    static bool read(Decoder& d, bool& v) {
        uint8_t byte = 0;
        if (!detail::readBytes_(d, &byte, 1)) return false;
        v = byte != 0;
        return true;
    }
};
template <> struct Codec<int> : FixedCodec_<int> {};
template <> struct Codec<unsigned int> : FixedCodec_<unsigned int> {};
template <> struct Codec<unsigned long> : FixedCodec_<unsigned long> {};

template <>
struct Codec<KyString> {
    static bool write(Encoder& e, const KyString& v);
    static bool read(Decoder& d, KyString& v);
};

namespace detail {

/// Encodes the arguments in order; false at the first that does not fit.
template <typename... Args>
bool encodeArgs(Encoder& e, const Args&... args) {
    return (Codec<Args>::write(e, args) && ...);
}

/// Reads the members of tuple from index I on; false at the first failure.
template <typename Tuple, size_t I = 0>
bool readTuple(Decoder& d, Tuple& t) {
    if constexpr (I == std::tuple_size_v<Tuple>) {
        return true;
    } else {
        if (!Codec<std::tuple_element_t<I, Tuple>>::read(d, std::get<I>(t))) return false;
        return readTuple<Tuple, I + 1>(d, t);
    }
}

}  // namespace detail
}  // namespace ky::ipc
