// KyFiberLane: the lane number under which posted work waits in a loop's
// fiber pool.
//
// Lane 0 is served first and spends no credit; lanes 1, 2 and 3 share the
// loop by credits of 8, 4 and 1 per cycle. Work posted without a lane goes on
// lane 2. Any value outside 0 to 2 is queued as lane 3. Plain numbers: safe to
// pass between threads.
#pragma once

#include <cstdint>

using KyFiberLane = int32_t;

/// Urgent work and resumed nested loops: always served before anything else.
inline constexpr KyFiberLane KyFiberLaneUrgent = 0;
/// Input (pointer and keyboard events posted by the platform).
inline constexpr KyFiberLane KyFiberLaneInput = 1;
/// The default lane of posted functions and timers.
inline constexpr KyFiberLane KyFiberLaneDefault = 2;
/// Background work; also where lane numbers above 2 end up.
inline constexpr KyFiberLane KyFiberLaneBackground = 3;

/// Queue index of a lane: 0, 1 and 2 as they are, anything else 3.
inline constexpr int kyFiberLaneIndex(KyFiberLane lane) {
    return (lane >= 0 && lane <= 2) ? static_cast<int>(lane) : 3;
}
