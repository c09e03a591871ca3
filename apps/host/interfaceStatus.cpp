#include "apps/host/interfaceStatus.h"

#include "apps/host/words.h"

#include <algorithm>
#include <tuple>

namespace vexmor::Apps
{
namespace
{
constexpr std::int64_t SILENT_POLLS = 3;
constexpr std::int64_t SHORTEST_POLL_MS = 100; ///< Poll time that interfaces use instead of 0.
} // namespace

EConnection connectionOf(const SEvidence& evidence)
{
    if (!evidence.isOpen) {
        return EConnection::eClosed;
    }
    if (!evidence.hasLink) {
        return EConnection::eLost;
    }
    if (evidence.sinceFrameMs < 0) {
        return EConnection::eOpen;
    }
    const std::int64_t silentAfterMs = SILENT_POLLS * std::max(evidence.pollMs, SHORTEST_POLL_MS);
    return evidence.sinceFrameMs > silentAfterMs ? EConnection::eSilent : EConnection::eConnected;
}

bool SInterfaceStatus::hasLink() const
{
    return connection == EConnection::eOpen || connection == EConnection::eConnected ||
           connection == EConnection::eSilent;
}

bool operator==(const SInterfaceStatus& one, const SInterfaceStatus& other)
{
    const auto shown = [](const SInterfaceStatus& status) {
        return std::tie(status.connection, status.losses, status.code, status.reason, status.interfaceId,
                        status.firmwareVersion, status.busload);
    };
    return shown(one) == shown(other);
}

const char* connectionName(EConnection connection)
{
    static const char* const NAMES[] = {"closed", "connecting", "open", "connected", "silent", "lost"};
    return NAMES[static_cast<int>(connection)];
}

QString connectionText(const SInterfaceStatus& status)
{
    switch (status.connection) {
    case EConnection::eClosed:
        return Words::tr("closed");
    case EConnection::eConnecting:
        return Words::tr("connecting");
    case EConnection::eOpen:
        return Words::tr("open, no answer yet");
    case EConnection::eConnected:
        return Words::tr("connected");
    case EConnection::eSilent: {
        const auto silence = SInterfaceStatus::Clock::now() - *status.lastFrame;
        return Words::tr("silent for %1 s").arg(std::chrono::duration_cast<std::chrono::seconds>(silence).count());
    }
    case EConnection::eLost:
        return Words::tr("lost, trying again");
    }
    return {};
}

QString connectionTextWithReason(const SInterfaceStatus& status)
{
    const QString text = connectionText(status);
    return status.reason.isEmpty() ? text : QStringLiteral("%1 (%2)").arg(text, status.reason);
}

} // namespace vexmor::Apps
