#pragma once

#include "canlog/problem.h"
#include "cim/canMessage.h"

#include <QByteArray>

#include <cstdint>
#include <functional>

/// The text protocol of socketcand, as values: what clients send, and what they are sent. Elements stand in angle
/// brackets, with a blank behind the first and before the last.
namespace vexmor::Apps::Cimshare
{

enum class EVerb {
    eOpen,
    eRawMode,
    eBcmMode,
    eControlMode,
    eEcho,
    eSend,
    eStatistics,
    eSubscribe,
    eUnsubscribe,
    eAdd,
    eDelete
};

/// What a client asks for; what its verb does not have is at its default.
struct SCommand {
    EVerb verb = EVerb::eEcho;
    QByteArray busName;
    std::int64_t microseconds = 0; ///< an interval
    int milliseconds = 0;
    Cim::CCanMessage message; ///< its identifier alone, or with data
};

/// Reads an element, without the brackets. A failure's text is for the client.
Result<SCommand> readCommand(const QByteArray& element);

/// Cuts what a client sends into elements; one may come in pieces, and several at once. What stands between them is
/// left out.
class CElementReader
{
public:
    static constexpr int MAX_ELEMENT = 256;

    /// Calls `onElement` with each element that is complete, until it gives false. False then, and when an element is
    /// too long: the stream is of no use any more.
    bool feed(const QByteArray& bytes, const std::function<bool(const QByteArray& element)>& onElement);

private:
    QByteArray m_rest; ///< begins with an opening bracket, or is empty
};

// What comes unasked begins with a line end: one widespread client needs a character between two elements, and no other
// minds.
QByteArray frameElement(const Cim::CCanMessage& message, std::int64_t microseconds);
/// Angle brackets in the text become round ones, and what is not ASCII "?": clients know nothing else.
QByteArray errorElement(const QString& text);

} // namespace vexmor::Apps::Cimshare
