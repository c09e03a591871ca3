#pragma once

#include "bench/languages.h"
#include "bench/processes.h"

#include <optional>

namespace vexmor::Bench
{

/// The least that can stand for a gateway: a process of its own with a plain socket on 127.0.0.1, which does with a CAN
/// message what the message's identifier says (wire.h) and answers nothing else. One client at a time; ends with this
/// object, or with the process that made it.
class CGatewayProcess
{
public:
    /// Runs on the given processor. Throws std::system_error when there is no socket or no process to be had.
    CGatewayProcess(EProtocol protocol, int processor, const SLanguage& language = RM_LANGUAGE);

    std::uint16_t port() const { return m_port; }

private:
    std::uint16_t m_port = 0;
    std::optional<CChildProcess> m_process;
};

} // namespace vexmor::Bench
