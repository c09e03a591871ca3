#pragma once

#include <QString>

#include <chrono>
#include <cstdint>
#include <optional>

namespace vexmor::Apps
{

/// The connection to a gateway, by the evidence for it. Every program shows these states in the words of
/// `connectionText`.
enum class EConnection {
    eClosed,     ///< not in use, or the opening failed
    eConnecting, ///< the first attempt is under way
    eOpen,       ///< the link stands (over UDP: the socket is bound), and no valid frame has come yet
    eConnected,  ///< a valid frame came within the last three polls of the bus load
    eSilent,     ///< the link stands, and the last valid frame is older than that
    eLost        ///< there is no link; attempts to make one go on
};

/// What an open interface itself says of its connection.
struct SEvidence {
    bool isOpen = false;
    bool hasLink = false;
    std::int64_t sinceFrameMs = -1; ///< since the last valid frame; -1: none has come
    std::int64_t pollMs = 0;        ///< from one poll of the bus load to the next
};

/// Decides what the evidence means. Silence is a fact, not a fault: a gateway that does not measure the load is not
/// polled, and is silent while its bus is idle.
EConnection connectionOf(const SEvidence& evidence);

/// All that is known of an interface in use at one moment.
struct SInterfaceStatus {
    using Clock = std::chrono::steady_clock;

    EConnection connection = EConnection::eClosed;
    unsigned losses = 0; ///< of the link since the opening; one that was regained at once is seen here alone
    int code = 0;        ///< result code of the last attempt to open it; 0: it is open, or none was made
    QString reason;      ///< why it is lost or was not opened, a line for the user; else empty
    std::optional<Clock::time_point> lastFrame; ///< arrival of the last valid frame; nothing: none has come
    QString interfaceId;                        ///< MAC address of the gateway; empty until the gateway has sent it
    QString firmwareVersion;                    ///< of the gateway; empty until the gateway has sent it
    std::optional<int> busload;                 ///< percent; nothing while it is not known

    bool isConnected() const { return connection == EConnection::eConnected; }
    /// True while messages can be handed to the gateway, as far as is known.
    bool hasLink() const;
    bool isIdentified() const { return !interfaceId.isEmpty() && !firmwareVersion.isEmpty(); }
};

/// Compares all but the time of the last frame: a later one alone is no news.
bool operator==(const SInterfaceStatus& one, const SInterfaceStatus& other);

/// The connection as one English word for programs to read: closed, connecting, open, connected, silent, lost.
const char* connectionName(EConnection connection);
/// The connection in words, for example "connected" or "silent for 12 s"; without the reason.
QString connectionText(const SInterfaceStatus& status);
/// The same, with the reason in parentheses where there is one.
QString connectionTextWithReason(const SInterfaceStatus& status);

} // namespace vexmor::Apps
