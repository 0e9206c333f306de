// Registry: the address (domain, object) under which channels live.
//
// A plain value; channels keep a reference to it, so it must outlive them
// (owners keep it as a member next to their channels).
#pragma once

#include "core/types/KyString.h"

namespace ky::ipc {

/// Names the pair (domain, object) that a channel's name is formed under.
struct Registry {
    KyString domain;
    KyString object;
};

}  // namespace ky::ipc
