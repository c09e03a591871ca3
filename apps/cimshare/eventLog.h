#pragma once

#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonObject>
#include <QString>

#include <map>

namespace vexmor::Apps::Cimshare
{

/// Prints events on stdout, one line per event, without a time: a journal has its own. Texts from the network cannot
/// begin a line of their own: control characters become "?". Clients and gateways cannot hide other lines: when they
/// cause too many lines of one event within a second, one line with a count replaces the rest.
class CEventLog
{
public:
    /// With `json` each line is an object of "event", "subject", "text" and the fields.
    explicit CEventLog(bool json) : m_json(json) {}

    /// Prints "SUBJECT: TEXT".
    void print(const char* event, const QString& subject, const QString& text, QJsonObject fields = {});
    /// Prints the place where a protocol can be reached.
    void printListening(const QString& subject, const QHostAddress& address, quint16 port);
    /// Prints an event that a client or a gateway caused.
    void printLimited(const char* event, const QString& subject, const QString& text);

private:
    struct SSecond {
        QElapsedTimer clock;
        int lines = 0; ///< In this second, printed or not.
    };

    const bool m_json;
    std::map<QString, SSecond> m_seconds; ///< By event and subject.
};

} // namespace vexmor::Apps::Cimshare
