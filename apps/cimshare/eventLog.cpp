#include "apps/cimshare/eventLog.h"

#include <QJsonDocument>

#include <algorithm>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int CLIENT_LINES_A_SECOND = 300;
constexpr qint64 SECOND_MS = 1000;
constexpr int WAITING_LIMIT = 1000;

QString plain(QString text)
{
    std::replace_if(
        text.begin(), text.end(), [](QChar one) { return !one.isPrint(); }, QLatin1Char('?'));
    return text;
}
} // namespace

CEventLog::CEventLog(bool json, std::FILE* stream) : m_json(json), m_stream(stream)
{
    m_writer.moveToThread(&m_thread);
    m_thread.start();
}

CEventLog::~CEventLog()
{
    QMetaObject::invokeMethod(&m_writer, [this] { m_thread.quit(); }); // after all lines
    m_thread.wait();
}

void CEventLog::print(const char* event, const QString& subject, const QString& text, QJsonObject fields)
{
    if (m_waiting >= WAITING_LIMIT) {
        ++m_leftOut;
        return;
    }
    QByteArray line = (plain(subject) + QStringLiteral(": ") + plain(text)).toUtf8();
    if (m_json) {
        fields.insert(QStringLiteral("event"), QLatin1String(event));
        fields.insert(QStringLiteral("subject"), subject);
        fields.insert(QStringLiteral("text"), plain(text));
        line = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    }
    ++m_waiting;
    QMetaObject::invokeMethod(&m_writer, [this, line = line + '\n'] {
        std::fputs(line.constData(), m_stream);
        std::fflush(m_stream);
        if (const int leftOut = --m_waiting == 0 ? m_leftOut.exchange(0) : 0; leftOut > 0) {
            print("leftOut", QStringLiteral("log"), QStringLiteral("%1 lines left out").arg(leftOut));
        }
    });
}

void CEventLog::printListening(const QString& subject, const QHostAddress& address, quint16 port)
{
    print("listening", subject, QStringLiteral("on %1:%2").arg(address.toString()).arg(port),
          {{QStringLiteral("port"), port}});
}

void CEventLog::printOfClient(const char* event, const QString& subject, const QString& text)
{
    if (!m_second.isValid() || m_second.hasExpired(SECOND_MS)) {
        if (m_clientLines > CLIENT_LINES_A_SECOND) {
            print("leftOut", QStringLiteral("clients"),
                  QStringLiteral("%1 lines left out").arg(m_clientLines - CLIENT_LINES_A_SECOND));
        }
        m_clientLines = 0;
        m_second.start();
    }
    if (++m_clientLines <= CLIENT_LINES_A_SECOND) {
        print(event, subject, text);
    }
}

} // namespace vexmor::Apps::Cimshare
