#pragma once

#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QThreadPool>

#include <atomic>
#include <cstdio>
#include <deque>
#include <map>
#include <mutex>

namespace vexmor::Apps::Cimshare
{

/// Prints events, one line per event, without a time: a journal has its own. Texts from the network cannot begin a line
/// of their own: control characters become "?". Clients and gateways cannot hide other lines: when they cause
/// too many lines of one event within a second, one line with a count replaces the rest.
///
/// A thread of its own waits for the reader. Lines that do not fit into its queue are left out, and their number is
/// printed after those that waited. Any thread may call `print`.
class CEventLog : public QObject
{
public:
    /// With `json` each line is an object of "event", "subject", "text", "time" (seconds since the epoch) and the
    /// fields.
    explicit CEventLog(bool json, std::FILE* stream = stdout);
    /// Waits until everything is printed.
    ~CEventLog() override;

    /// Prints "SUBJECT: TEXT".
    void print(const char* event, const QString& subject, const QString& text, QJsonObject fields = {});
    /// Prints an event that a client or a gateway caused.
    void printLimited(const char* event, const QString& subject, const QString& text);
    /// Lines that were not printed, since the start.
    quint64 leftOut() const { return m_allLeftOut; }

private:
    void writeNext();

    const bool m_json;
    std::FILE* const m_stream;
    std::map<QString, int> m_lines; ///< In this second, printed or not, by event and subject.

    std::atomic<quint64> m_allLeftOut{0};
    std::mutex m_lock; ///< Guards the next two members.
    std::deque<QByteArray> m_waiting;
    int m_leftOut = 0;    ///< Lines.
    QThreadPool m_writer; ///< One thread.
};

} // namespace vexmor::Apps::Cimshare
