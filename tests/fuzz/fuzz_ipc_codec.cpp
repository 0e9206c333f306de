// Fuzz target: a payload from another process decoded as each signature the
// console and its agent use. A truncated or lying payload must decode to a
// clean false, never read past its end; what decodes must encode back to the
// the same values.
#include <cstddef>
#include <cstdint>
#include <tuple>

#include "ipc/Codec.h"

namespace {

template <typename... Args>
void roundTrip(const uint8_t* data, size_t size) {
    ky::ipc::Decoder d{data, size, 0};
    std::tuple<Args...> values;
    if (!ky::ipc::detail::readTuple(d, values)) return;
    uint8_t buffer[ky::ipc::kPayloadCapacity];
    ky::ipc::Encoder e{buffer, sizeof(buffer), 0};
    const bool encoded = std::apply([&](const Args&... v) { return ky::ipc::detail::encodeArgs(e, v...); }, values);
    if (!encoded || e.pos != d.pos) __builtin_trap();
    ky::ipc::Decoder again{buffer, e.pos, 0};
    std::tuple<Args...> reread;
    if (!ky::ipc::detail::readTuple(again, reread) || reread != values) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > ky::ipc::kPayloadCapacity) return 0;
    roundTrip<KyString>(data, size);
    roundTrip<int, int, int>(data, size);
    roundTrip<bool, KyString>(data, size);
    roundTrip<KyString, KyString, KyString>(data, size);
    roundTrip<uint64_t, uint32_t, KyString, KyString, KyString, bool>(data, size);
    roundTrip<uint64_t, bool, KyString, bool>(data, size);
    return 0;
}
