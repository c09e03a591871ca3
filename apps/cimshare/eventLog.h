#pragma once

#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonObject>
#include <QString>

namespace vexmor::Apps::Cimshare
{

/// Prints events on stdout, one line per event, without a time: a journal has its own. Texts from the network cannot
/// begin a line of their own: control characters become "?". Clients cannot hide the lines of the service: when they
/// cause too many lines within a second, one line with a count replaces the rest.
class CEventLog
{
public:
    /// With `json` each line is an object of "event", "subject", "text" and the fields.
    explicit CEventLog(bool json) : m_json(json) {}

    /// Prints "SUBJECT: TEXT".
    void print(const char* event, const QString& subject, const QString& text, QJsonObject fields = {});
    /// Prints the place where a protocol can be reached.
    void printListening(const QString& subject, const QHostAddress& address, quint16 port);
    /// Prints an event that a client caused.
    void printOfClient(const char* event, const QString& subject, const QString& text);

private:
    const bool m_json;
    QElapsedTimer m_second;
    int m_clientLines = 0; ///< Lines in this second, printed or not.
};

} // namespace vexmor::Apps::Cimshare
