#pragma once

#include <QString>

#include <chrono>
#include <cstdint>
#include <optional>

namespace vexmor::Apps
{

/// The state of the connection to a gateway. All programs show it in the words of `connectionText`.
enum class EConnection {
    eClosed,     ///< The interface is not in use, or opening it failed.
    eConnecting, ///< The first attempt to open it is in progress.
    eOpen,       ///< The link is up (over UDP: the socket is bound), but no valid frame has arrived yet.
    eConnected,  ///< The last valid frame is no older than three times `pollMs` (SEvidence).
    eSilent,     ///< The link is up, but the last valid frame is older.
    eLost        ///< The link is down; attempts to regain it go on.
};

/// The facts from which the state of the connection is derived.
struct SEvidence {
    bool isOpen = false;
    bool hasLink = false;
    std::int64_t sinceFrameMs = -1; ///< Time since the last valid frame; -1 before the first.
    std::int64_t pollMs = 0;        ///< Time between two requests for the bus load.
};

/// Returns the state that follows from the evidence. Silence alone is no fault: a gateway that does not measure the
/// load is not polled, and is silent while its bus is idle.
EConnection connectionOf(const SEvidence& evidence);

/// The status of an interface in use at one moment.
struct SInterfaceStatus {
    using Clock = std::chrono::steady_clock;

    EConnection connection = EConnection::eClosed;
    unsigned losses = 0; ///< Number of link losses since the opening, including links that were regained at once.
    int code = 0;        ///< Result code of the last attempt to open; 0 after success and before the first.
    QString reason;      ///< Why the link is down or opening failed, as a line for the user; else empty.
    std::optional<Clock::time_point> lastFrame; ///< Arrival of the last valid frame; empty before the first.
    QString interfaceId;                        ///< MAC address of the gateway; empty until it was received.
    QString firmwareVersion;                    ///< Firmware version of the gateway; empty until it was received.
    std::optional<int> busload;                 ///< Bus load in percent; empty while it is unknown.

    bool isConnected() const { return connection == EConnection::eConnected; }
    /// Returns whether the link is up, so that messages can be sent.
    bool hasLink() const;
    bool isIdentified() const { return !interfaceId.isEmpty() && !firmwareVersion.isEmpty(); }
};

/// Compares everything except the time of the last frame, which does not count as a change.
bool operator==(const SInterfaceStatus& one, const SInterfaceStatus& other);

/// Returns the state as one English word for programs: closed, connecting, open, connected, silent or lost.
const char* connectionName(EConnection connection);
/// Returns the state in words for users, for example "connected" or "silent for 12 s", without the reason.
QString connectionText(const SInterfaceStatus& status);
/// Returns the state in words, followed by the reason, if any, in parentheses.
QString connectionTextWithReason(const SInterfaceStatus& status);

} // namespace vexmor::Apps
