#include "apps/cimshare/eventLog.h"

#include <QJsonDocument>

#include <algorithm>
#include <cstdio>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int LINES_PER_SECOND = 100;
constexpr qint64 SECOND_MS = 1000;

QString plain(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar one) { return !one.isPrint(); }, QLatin1Char('?'));
    return text;
}
} // namespace

void CEventLog::print(const char* event, const QString& subject, const QString& text, QJsonObject fields)
{
    QByteArray line = (plain(subject) + QStringLiteral(": ") + plain(text)).toUtf8();
    if (m_json) {
        fields.insert(QStringLiteral("event"), QLatin1String(event));
        fields.insert(QStringLiteral("subject"), subject);
        fields.insert(QStringLiteral("text"), plain(text));
        line = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    }
    std::puts(line.constData());
    std::fflush(stdout);
}

void CEventLog::printListening(const QString& subject, const QHostAddress& address, quint16 port)
{
    print("listening", subject, QStringLiteral("on %1:%2").arg(address.toString()).arg(port),
          {{QStringLiteral("port"), port}});
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
    }
}

} // namespace vexmor::Apps::Cimshare
