// Codec: bounded byte copies and the string member.
#include "ipc/Codec.h"

#include <cstring>
#include <string>

namespace ky::ipc {

namespace detail {

bool writeBytes_(Encoder& e, const void* bytes, size_t n) {
    if (e.pos > e.capacity || n > e.capacity - e.pos) return false;
    if (n > 0) std::memcpy(e.data + e.pos, bytes, n);
    e.pos += n;
    return true;
}

bool readBytes_(Decoder& d, void* bytes, size_t n) {
    if (d.pos > d.size || n > d.size - d.pos) return false;
    if (n > 0) std::memcpy(bytes, d.data + d.pos, n);
    d.pos += n;
    return true;
}

}  // namespace detail

bool Codec<KyString>::write(Encoder& e, const KyString& v) {
    const std::string& bytes = v.toStdString();
    if (bytes.size() > UINT32_MAX) return false;
    uint32_t count = static_cast<uint32_t>(bytes.size());
    if (!detail::writeBytes_(e, &count, sizeof(count))) return false;
    return detail::writeBytes_(e, bytes.data(), bytes.size());
}

bool Codec<KyString>::read(Decoder& d, KyString& v) {
    uint32_t count = 0;
    if (!detail::readBytes_(d, &count, sizeof(count))) return false;
    if (count == 0) {
        v = KyString();
        return true;
    }
    if (d.pos > d.size || count > d.size - d.pos) return false;
    v = KyString(std::string(reinterpret_cast<const char*>(d.data + d.pos), count));
    d.pos += count;
    return true;
}

}  // namespace ky::ipc
