#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace vexmor::Apps
{

/// Returns the time in microseconds since the epoch; 0 when the clock is set to a time before the epoch, which logs
/// cannot hold.
inline std::int64_t microsecondsNow()
{
    using namespace std::chrono;
    return std::max<std::int64_t>(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count(), 0);
}

/// Returns the present time in seconds since the epoch, the unit in JSON objects.
inline double secondsNow()
{
    return static_cast<double>(microsecondsNow()) / 1e6;
}

} // namespace vexmor::Apps
