#pragma once

#include "bench/wire.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <optional>
#include <stdexcept>

namespace vexmor::Bench
{

/// Runs the event loop until the condition holds; throws std::runtime_error with the complaint when it does not within
/// PATIENCE_S from the first turn that changed nothing. The clock is not read before.
template <typename Condition>
void waitUntil(Condition&& condition, const char* complaint)
{
    std::optional<QDeadlineTimer> patience;
    for (bool first = true; !condition(); first = false) {
        if (!first && !patience) {
            patience.emplace(PATIENCE_S * 1000);
        } else if (patience && patience->hasExpired()) {
            throw std::runtime_error(complaint);
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

} // namespace vexmor::Bench
