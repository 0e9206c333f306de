// ShmMapping: the two channel layouts in shared memory and the process-local
// handle that maps one.
//
// A signal block (ShmLayout) holds the latest publication; a ring queue
// (ShmQueueLayout<4096, N>) holds N message slots. Both start with magic,
// version, the signature's type id, a process-shared mutex and condition
// (not robust), and the counters. The layouts are a wire contract: every
// offset below is checked at compile time. A handle is made only by
// openOrCreate and shared by every channel object of the process; the last
// owner unmaps. A shared channel is never unlinked: it outlives its users and
// is reused by name (the objects named after one process, its reply queues,
// go with that process: see ProcessObjects.h). openOrCreate may be called
// from any thread; access to the counters and payloads happens under the
// object's mutex.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "core/types/KyString.h"

namespace ky::ipc {

/// Latest-value signal block.
template <size_t Capacity>
struct ShmLayout {
    static constexpr uint32_t kMagic = 0x53494731;
    static constexpr uint32_t kVersion = 2;
    static constexpr uint64_t kInitialSeq = 1;

    uint32_t magic;
    uint32_t version;
    uint64_t typeId;
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    uint64_t seq;
    uint32_t size;
    uint8_t payload[Capacity];
    uint8_t padding[(8 - (116 + Capacity) % 8) % 8];
    uint8_t reserved[64];
};

/// One message slot of a ring queue.
template <size_t Capacity>
struct ShmQueueSlot {
    uint64_t seq;
    uint32_t size;
    uint8_t payload[Capacity];
    uint8_t padding[(8 - (12 + Capacity) % 8) % 8];
};

/// Bounded message ring: seq is the last message written, head the last consumed.
template <size_t Capacity, size_t N>
struct ShmQueueLayout {
    static constexpr uint32_t kMagic = 0x51554531;
    static constexpr uint32_t kVersion = 1;
    static constexpr uint64_t kInitialSeq = 0;
    static constexpr size_t kSlots = N;

    uint32_t magic;
    uint32_t version;
    uint64_t typeId;
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    uint64_t seq;
    uint64_t head;
    uint64_t reserved0;
    ShmQueueSlot<Capacity> slots[N];
    uint8_t reserved[64];
};

static_assert(sizeof(pthread_mutex_t) == 40 && sizeof(pthread_cond_t) == 48,
              "the channel layouts need the x86-64 glibc mutex and condition sizes");
static_assert(sizeof(ShmLayout<4096>) == 4280);
static_assert(offsetof(ShmLayout<4096>, typeId) == 8 && offsetof(ShmLayout<4096>, mutex) == 16 &&
              offsetof(ShmLayout<4096>, cond) == 56 && offsetof(ShmLayout<4096>, seq) == 104 &&
              offsetof(ShmLayout<4096>, size) == 112 && offsetof(ShmLayout<4096>, payload) == 116 &&
              offsetof(ShmLayout<4096>, reserved) == 4216);
static_assert(sizeof(ShmQueueSlot<4096>) == 4112 && offsetof(ShmQueueSlot<4096>, size) == 8 &&
              offsetof(ShmQueueSlot<4096>, payload) == 12);
using ShmQueueLayout10_ = ShmQueueLayout<4096, 10>;
static_assert(offsetof(ShmQueueLayout10_, seq) == 104 && offsetof(ShmQueueLayout10_, head) == 112 &&
              offsetof(ShmQueueLayout10_, slots) == 128);
static_assert(sizeof(ShmQueueLayout<4096, 10>) == 41312 && sizeof(ShmQueueLayout<4096, 25>) == 102992 &&
              sizeof(ShmQueueLayout<4096, 50>) == 205792 && sizeof(ShmQueueLayout<4096, 100>) == 411392 &&
              sizeof(ShmQueueLayout<4096, 200>) == 822592 && sizeof(ShmQueueLayout<4096, 500>) == 2056192);

namespace detail {

/// What openChannelObject_ needs of a layout.
struct ChannelObjectSpec {
    size_t size;
    uint32_t magic;
    uint32_t version;
    uint64_t initialSeq;
};

/// Which object a name led to when it was opened (device and inode): a name
/// may be unlinked and made anew while a mapping of the old object lives on.
struct ChannelObjectIdentity {
    uint64_t device = 0;
    uint64_t inode = 0;
};

/// Creates or opens a channel object by the fixed rules (create exclusively
/// and initialise; or open, adopt an all-zero object, check magic, version
/// and type id). Returns the mapped base; throws std::runtime_error with the
/// documented texts. identity, when given, receives the object's identity.
void* openChannelObject_(const KyString& name, const ChannelObjectSpec& spec, uint64_t typeId,
                         ChannelObjectIdentity* identity = nullptr);
/// True while `name` still leads to the object of `identity`.
bool channelObjectStillNamed_(const KyString& name, const ChannelObjectIdentity& identity);
void unmapChannelObject_(void* base, size_t size);

}  // namespace detail

/// A mapped channel object of one layout; unmapped by its last owner.
template <typename Layout>
class ShmMappingT {
public:
    static std::shared_ptr<ShmMappingT> openOrCreate(const KyString& name, uint64_t typeId) {
        void* base = detail::openChannelObject_(
            name, {sizeof(Layout), Layout::kMagic, Layout::kVersion, Layout::kInitialSeq}, typeId);
        return std::shared_ptr<ShmMappingT>(new ShmMappingT(name, static_cast<Layout*>(base)));
    }
    ~ShmMappingT() { detail::unmapChannelObject_(layout_, sizeof(Layout)); }
    ShmMappingT(const ShmMappingT&) = delete;
    ShmMappingT& operator=(const ShmMappingT&) = delete;

    Layout* layout() const { return layout_; }
    const KyString& name() const { return name_; }

private:
    ShmMappingT(const KyString& name, Layout* layout) : name_(name), layout_(layout) {}
    KyString name_;
    Layout* layout_;
};

/// The signal block's handle: ShmMapping<4096>.
template <size_t Capacity>
using ShmMapping = ShmMappingT<ShmLayout<Capacity>>;

}  // namespace ky::ipc
