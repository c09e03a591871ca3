#include "apps/cimshare/eventLog.h"

#include "apps/cli/program.h"
#include "apps/host/clock.h"

#include <QJsonDocument>
#include <QTimer>

#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int LINES_PER_SECOND = 100;
constexpr int SECOND_MS = 1000;
constexpr std::size_t WAITING_LINES = 1000;
} // namespace

CEventLog::CEventLog(bool json, std::FILE* stream) : m_json(json), m_stream(stream)
{
    m_writer.setMaxThreadCount(1);
    m_writer.setExpiryTimeout(-1);
}

CEventLog::~CEventLog()
{
    m_writer.waitForDone();
    // Orders the thread's last access before the destruction: the thread sanitizer does not know Qt's own locks.
    const std::lock_guard<std::mutex> guard(m_lock);
}

void CEventLog::print(const char* event, const QString& subject, const QString& text, QJsonObject fields)
{
    QByteArray line = (printableText(subject) + QStringLiteral(": ") + printableText(text)).toUtf8();
    if (m_json) {
        fields.insert(QStringLiteral("event"), QLatin1String(event));
        fields.insert(QStringLiteral("subject"), subject);
        fields.insert(QStringLiteral("time"), secondsNow());
        fields.insert(QStringLiteral("text"), printableText(text));
        line = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    }
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_waiting.size() < WAITING_LINES) {
        m_waiting.push_back(line + '\n');
        m_writer.start([this] { writeNext(); });
    } else {
        ++m_leftOut;
        ++m_allLeftOut;
    }
}

/// Writes the oldest line. Runs in the writer's thread.
void CEventLog::writeNext()
{
    std::unique_lock<std::mutex> guard(m_lock);
    const QByteArray line = m_waiting.front();
    m_waiting.pop_front();
    const int leftOut = m_waiting.empty() ? std::exchange(m_leftOut, 0) : 0;
    guard.unlock();
    std::fputs(line.constData(), m_stream);
    std::fflush(m_stream);
    if (leftOut > 0) {
        print("leftOut", QStringLiteral("log"), QStringLiteral("%1 lines were left out").arg(leftOut));
    }
}

void CEventLog::printLimited(const char* event, const QString& subject, const QString& text)
{
    int& lines = m_lines[QLatin1String(event) + subject];
    if (lines == 0) {
        QTimer::singleShot(SECOND_MS, this, [=, &lines] {
            if (const int leftOut = std::exchange(lines, 0) - LINES_PER_SECOND; leftOut > 0) {
                print("leftOut", subject,
                      QStringLiteral("%1 lines were left out (%2)").arg(leftOut).arg(QLatin1String(event)));
            }
        });
    }
    if (++lines <= LINES_PER_SECOND) {
        print(event, subject, text);
    } else {
        ++m_allLeftOut;
    }
}

} // namespace vexmor::Apps::Cimshare
