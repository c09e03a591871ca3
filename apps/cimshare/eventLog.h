#pragma once

#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonObject>
#include <QString>
#include <QThread>

#include <atomic>
#include <cstdio>

namespace vexmor::Apps::Cimshare
{

/// Prints events, one line per event, without a time: a journal has its own. Texts from the network cannot begin a line
/// of their own: control characters become "?". Clients cannot hide the lines of the service: when they cause too many
/// lines within a second, one line with a count replaces the rest.
///
/// A thread of its own waits for the reader. Lines that do not fit into its queue are left out, and their number is
/// printed after those that waited. Any thread may call `print`.
class CEventLog
{
public:
    /// With `json` each line is an object of "event", "subject", "text" and the fields.
    explicit CEventLog(bool json, std::FILE* stream = stdout);
    /// Waits until everything is printed.
    ~CEventLog();

    /// Prints "SUBJECT: TEXT".
    void print(const char* event, const QString& subject, const QString& text, QJsonObject fields = {});
    /// Prints the place where a protocol can be reached.
    void printListening(const QString& subject, const QHostAddress& address, quint16 port);
    /// Prints an event that a client caused.
    void printOfClient(const char* event, const QString& subject, const QString& text);

private:
    const bool m_json;
    std::FILE* const m_stream;
    QThread m_thread;
    QObject m_writer;               ///< Lives in the thread.
    std::atomic<int> m_waiting = 0; ///< Lines.
    std::atomic<int> m_leftOut = 0; ///< Lines.
    QElapsedTimer m_second;
    int m_clientLines = 0; ///< Lines in this second, printed or not.
};

} // namespace vexmor::Apps::Cimshare
