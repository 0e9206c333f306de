// The liveness hook behind KyPointer. One atomic slot: the object model writes
// it once at start-up, every thread may read it.
#include "core/types/KyPointer.h"

#include <atomic>

namespace {
std::atomic<ky::LivenessChecker> gLivenessChecker{nullptr};
} // namespace

namespace ky {

void setLivenessChecker(LivenessChecker checker) { gLivenessChecker.store(checker, std::memory_order_release); }

bool isObjectLive(const void* object) {
    if (!object) return false;
    const LivenessChecker checker = gLivenessChecker.load(std::memory_order_acquire);
    return checker ? checker(object) : true;
}

} // namespace ky
