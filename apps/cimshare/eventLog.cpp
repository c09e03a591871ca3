#include "apps/cimshare/eventLog.h"

#include <QJsonDocument>

#include <algorithm>
#include <utility>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int LINES_PER_SECOND = 100;
constexpr qint64 SECOND_MS = 1000;
constexpr std::size_t WAITING_LINES = 1000;

QString plain(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar one) { return !one.isPrint(); }, QLatin1Char('?'));
    return text;
}
} // namespace

CEventLog::CEventLog(bool json, std::FILE* stream) : m_json(json), m_stream(stream), m_thread([this] { run(); }) {}

CEventLog::~CEventLog()
{
    std::unique_lock<std::mutex> guard(m_lock);
    m_isEnding = true;
    guard.unlock();
    m_changed.notify_one();
    m_thread.join();
}

void CEventLog::print(const char* event, const QString& subject, const QString& text, QJsonObject fields)
{
    QByteArray line = (plain(subject) + QStringLiteral(": ") + plain(text)).toUtf8();
    if (m_json) {
        fields.insert(QStringLiteral("event"), QLatin1String(event));
        fields.insert(QStringLiteral("subject"), subject);
        fields.insert(QStringLiteral("text"), plain(text));
        line = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    }
    const std::lock_guard<std::mutex> guard(m_lock);
    const bool fits = m_waiting.size() < WAITING_LINES;
    fits ? m_waiting.push_back(line + '\n') : void((++m_leftOut, ++m_allLeftOut));
    m_changed.notify_one();
}

void CEventLog::run()
{
    std::unique_lock<std::mutex> guard(m_lock);
    const auto hasWork = [this] { return m_isEnding || !m_waiting.empty(); };
    while (m_changed.wait(guard, hasWork), !m_waiting.empty()) {
        const QByteArray line = m_waiting.front();
        m_waiting.pop_front();
        const int leftOut = m_waiting.empty() ? std::exchange(m_leftOut, 0) : 0;
        guard.unlock();
        std::fputs(line.constData(), m_stream);
        std::fflush(m_stream);
        if (leftOut > 0) {
            print("leftOut", QStringLiteral("log"), QStringLiteral("%1 lines left out").arg(leftOut));
        }
        guard.lock();
    }
}

void CEventLog::printLimited(const char* event, const QString& subject, const QString& text)
{
    SSecond& second = m_seconds[QLatin1String(event) + subject];
    if (!second.clock.isValid() || second.clock.hasExpired(SECOND_MS)) {
        if (second.lines > LINES_PER_SECOND) {
            print("leftOut", subject,
                  QStringLiteral("%1 lines left out (%2)")
                      .arg(second.lines - LINES_PER_SECOND)
                      .arg(QLatin1String(event)));
        }
        second.lines = 0;
        second.clock.start();
    }
    if (++second.lines <= LINES_PER_SECOND) {
        print(event, subject, text);
    } else {
        ++m_allLeftOut;
    }
}

} // namespace vexmor::Apps::Cimshare
