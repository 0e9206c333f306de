// DynamicRingQueue: mapping a queue object of a run-time slot count.
#include "ipc/DynamicRingQueue.h"

#include "ipc/ShmMapping.h"

namespace ky::ipc::detail {

namespace {
// Header and tail of the queue layout around its slots.
constexpr size_t kQueueFixedBytes = sizeof(ShmQueueLayout<kPayloadCapacity, 1>) - sizeof(ShmQueueSlot<kPayloadCapacity>);
static_assert(kQueueFixedBytes == 192);
}  // namespace

std::shared_ptr<QueueRegion> QueueRegion::openOrCreate(const KyString& name, size_t slots, uint64_t typeId) {
    using Layout = ShmQueueLayout<kPayloadCapacity, 1>;
    const size_t size = kQueueFixedBytes + slots * sizeof(ShmQueueSlot<kPayloadCapacity>);
    ChannelObjectIdentity identity;
    void* base =
        openChannelObject_(name, {size, Layout::kMagic, Layout::kVersion, Layout::kInitialSeq}, typeId, &identity);
    return std::shared_ptr<QueueRegion>(new QueueRegion(name, base, slots, identity));
}

QueueRegion::~QueueRegion() {
    unmapChannelObject_(base_, kQueueFixedBytes + slots_ * sizeof(ShmQueueSlot<kPayloadCapacity>));
}

}  // namespace ky::ipc::detail
