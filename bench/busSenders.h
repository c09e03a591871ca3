#pragma once

#include "bench/processes.h"

#include <cstdint>
#include <optional>

namespace vexmor::Bench
{

/// Frames of 8 data bytes that a bus of 1 Mbit/s carries.
constexpr int FRAMES_PER_SECOND = 9000;
/// Gateways at full buses, all in a process of their own behind one TCP port of 127.0.0.1: every connection is a
/// gateway. They start when all are connected, and deliver frames at the pace of a bus, spread over time, whether the
/// host keeps up or not. Each frame carries a number (sequence.h); what does not fit into a connection's buffer (some
/// tenths of a second) is lost, as a gateway's is, and leaves a gap in the sequence. When the process itself cannot
/// keep the pace it sends less, without a gap. Ends with this object.
class CBusSenders
{
public:
    /// Throws std::system_error when there is no socket or no process to be had.
    CBusSenders(int gateways, int framesPerSegment, int processor);

    std::uint16_t port() const { return m_port; }

private:
    std::uint16_t m_port = 0;
    std::optional<CChildProcess> m_process;
};

} // namespace vexmor::Bench
