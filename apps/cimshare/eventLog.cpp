#include "apps/cimshare/eventLog.h"

#include <QJsonDocument>

#include <algorithm>
#include <cstdio>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int LINES_A_SECOND = 300;
constexpr int MAX_LENGTH = 300;
constexpr qint64 SECOND_MS = 1000;

QString plain(const QString& text)
{
    QString result = text.left(MAX_LENGTH);
    std::replace_if(
        result.begin(), result.end(), [](QChar one) { return !one.isPrint(); }, QLatin1Char('?'));
    return result;
}
} // namespace

void CEventLog::tell(const QString& event, const QString& text, QJsonObject fields)
{
    if (!m_second.isValid() || m_second.hasExpired(SECOND_MS)) {
        if (m_lines > LINES_A_SECOND) {
            print(QStringLiteral("leftOut"), QStringLiteral("%1 lines left out").arg(m_lines - LINES_A_SECOND), {});
        }
        m_lines = 0;
        m_second.start();
    }
    if (++m_lines <= LINES_A_SECOND) {
        print(event, plain(text), std::move(fields));
    }
}

void CEventLog::print(const QString& event, const QString& text, QJsonObject fields)
{
    QByteArray line = text.toUtf8();
    if (m_json) {
        fields.insert(QStringLiteral("event"), event);
        fields.insert(QStringLiteral("text"), text);
        line = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    }
    std::puts(line.constData());
    std::fflush(stdout);
}

} // namespace vexmor::Apps::Cimshare
