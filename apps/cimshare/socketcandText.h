#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArray>
#include <QStringList>

#include <cstdint>
#include <functional>

/// The text protocol of socketcand, as functions of values. An element is a text between "< " and " >".
namespace vexmor::Apps::Cimshare
{

/// Returns names of buses for clients, in the order of `names`. Each has 1 to 16 letters and digits, because any other
/// character breaks the discovery of one widespread client: "hall 1" becomes "hall1", an address "bus1". All names
/// differ, and none equals the given name of another bus.
QStringList busNames(const QStringList& names);

/// The state of a client. Bits, so that they combine to the set of states in which a command is allowed.
enum EMode : unsigned { eEnded = 0, eNoBus = 1, eBroadcastManager = 2, eRaw = 4, eControl = 8 };

/// A command of a client. Members that its verb does not use keep their defaults.
struct SCommand {
    QByteArray verb;    ///< The verb, a known one.
    unsigned modes = 0; ///< The states in which the command is allowed: bits of EMode.
    QByteArray busName;
    int milliseconds = 0;     ///< The interval in milliseconds, rounded up.
    Cim::CCanMessage message; ///< The identifier, and the data if the verb has data.

    std::uint16_t id() const { return message.id().value(); }
};

/// Reads a command from an element without its brackets. The text of a failure is written for the client.
Result<SCommand> readCommand(const QByteArray& element);

constexpr int MAX_ELEMENT = 256; ///< Maximum number of characters between the brackets.

/// Removes the complete elements from the beginning of a client's stream and calls `onElement` with each of them,
/// without its brackets. The beginning of an incomplete element remains; blanks between elements are skipped. Returns
/// false when `onElement` does, when an element is too long, and when a byte between elements is not a blank, because a
/// web page could hide elements in its request. The stream must not be used after that.
bool takeElements(QByteArray& stream, const std::function<bool(const QByteArray& element)>& onElement);

/// The kind of error that an error element reports, with the numbers of the error classes in linux/can/error.h.
enum class EErrorClass : unsigned {
    eRefused = 0x001, ///< A command was refused, or a message was not sent.
    eLost = 0x004,    ///< Frames were lost, or may be lost soon.
    eAway = 0x040,    ///< The gateway does not answer, or its bus is off.
};
/// Returns the class of an error that an interface raised.
EErrorClass classOf(int interfaceError);

// The next functions return elements that are not answers. They begin with a line end: one widespread client needs a
// character between two elements, and the other clients skip it. Times are in microseconds since the epoch.
QByteArray frameElement(const Cim::CCanMessage& message, std::int64_t microseconds);
/// Returns an error for a client without a bus. Angle brackets in the text become round ones, and characters outside
/// ASCII become "?".
QByteArray errorElement(const QString& text);
/// Returns an error for a client with a bus. It has a class and a time, because one widespread client stops receiving
/// after an error without them.
QByteArray errorElement(EErrorClass errorClass, std::int64_t microseconds, const QString& text);

} // namespace vexmor::Apps::Cimshare
