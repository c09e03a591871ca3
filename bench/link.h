#pragma once

#include "bench/wire.h"

/// What every link (CRawLink, CPluginLink, CVirtualcanLink) can be asked for.
namespace vexmor::Bench
{

template <typename Link>
void roundTrip(Link& link)
{
    link.send({ID_ECHO, {}});
    link.receive(1);
}

template <typename Link>
void receiveBurst(Link& link, int frames)
{
    link.send(burstRequest(frames));
    link.receive(frames);
}

} // namespace vexmor::Bench
