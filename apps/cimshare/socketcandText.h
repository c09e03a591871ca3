#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArray>
#include <QStringList>

#include <cstdint>
#include <functional>

/// The text protocol of socketcand, as values. Elements stand in angle brackets, with a blank after the first and
/// before the last.
namespace vexmor::Apps::Cimshare
{

/// Makes names of buses for clients, in the order of `names`: 1 to 16 letters and digits, because any other character
/// ends the discovery of one widespread client. "hall 1" becomes "hall1", an address "bus1". All differ, and none is
/// the given name of another bus.
QStringList busNames(const QStringList& names);

/// The state of a client. As bits: the states in which a command is allowed.
enum EMode : unsigned { eEnded = 0, eNoBus = 1, eBroadcastManager = 2, eRaw = 4, eControl = 8 };

/// A command of a client. What its verb does not have is at its default.
struct SCommand {
    QByteArray verb;    ///< One that a T93 can serve.
    unsigned modes = 0; ///< Bits of EMode.
    QByteArray busName;
    int milliseconds = 0;     ///< An interval, rounded up.
    Cim::CCanMessage message; ///< The identifier, and the data where the verb has data.

    std::uint16_t id() const { return message.id().value(); }
};

/// Reads an element, without the brackets. A failure's text is for the client.
Result<SCommand> readCommand(const QByteArray& element);

constexpr int MAX_ELEMENT = 256; ///< Characters between the brackets.

/// Calls `onElement` with each complete element at the beginning of a client's stream, and keeps the rest: an element
/// may arrive in pieces, and blanks between elements are skipped. Returns false when `onElement` does, when an element
/// is too long, and at any other byte between elements, because a web page could write elements into its request. Then
/// the stream cannot be used any more.
bool takeElements(QByteArray& stream, const std::function<bool(const QByteArray& element)>& onElement);

/// What an error element reports, in the error classes of linux/can/error.h.
enum class EErrorClass : unsigned {
    eRefused = 0x001, ///< A command was refused, or a message was not sent.
    eLost = 0x004,    ///< Frames were lost, or may be lost soon.
    eAway = 0x040,    ///< The gateway does not answer, or its bus is off.
};
/// The class of an error that an interface raised.
EErrorClass classOf(int interfaceError);

// Elements that are not answers begin with a line end: one widespread client needs a character between two elements,
// and the other clients skip it. Times are since the epoch.
QByteArray frameElement(const Cim::CCanMessage& message, std::int64_t microseconds);
/// For a client without a bus. Angle brackets in the text become round ones, and characters that are not ASCII "?".
QByteArray errorElement(const QString& text);
/// For a client with a bus: one widespread client reads class and time, and receives nothing after an error without.
QByteArray errorElement(EErrorClass errorClass, std::int64_t microseconds, const QString& text);

} // namespace vexmor::Apps::Cimshare
