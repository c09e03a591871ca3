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

/// Prints events, one line per event. Lines have no time, because the system's journal adds one. Texts from the network
/// cannot start a line of their own: control characters become "?". Clients and gateways cannot flood the log: when
/// they cause too many lines of one event within a second, a line with their number replaces the rest.
///
/// A thread of its own writes the lines, so that a slow reader delays nothing else. Lines that do not fit into its
/// queue are left out; their number is printed when the queue is empty. `print` may be called from any thread,
/// `printLimited` only from the thread of this object.
class CEventLog : public QObject
{
public:
    /// With `json`, each line is a JSON object with "event", "subject", "text", "time" (seconds since the epoch) and
    /// the additional fields of the event. `stream` must outlive this object.
    explicit CEventLog(bool json, std::FILE* stream = stdout);
    /// Waits until all queued lines are printed.
    ~CEventLog() override;

    /// Prints "SUBJECT: TEXT", or a JSON object that also has `fields`.
    void print(const char* event, const QString& subject, const QString& text, QJsonObject fields = {});
    /// Prints an event that a client or a gateway caused. The number of lines per second is limited for each event and
    /// subject.
    void printLimited(const char* event, const QString& subject, const QString& text);
    /// Returns the number of lines left out since the start.
    quint64 leftOut() const { return m_allLeftOut; }

private:
    void writeNext();

    const bool m_json;
    std::FILE* const m_stream;
    std::map<QString, int> m_lines; ///< Number of lines in the present second, printed or not, by event and subject.

    std::atomic<quint64> m_allLeftOut{0};
    std::mutex m_lock; ///< Guards the next two members.
    std::deque<QByteArray> m_waiting;
    int m_leftOut = 0;    ///< Lines left out since the last report of their number.
    QThreadPool m_writer; ///< Has one thread, which writes the lines.
};

} // namespace vexmor::Apps::Cimshare
