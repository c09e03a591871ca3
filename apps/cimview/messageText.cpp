#include "apps/cimview/messageText.h"

#include <QDateTime>
#include <QRegularExpression>
#include <QStringList>

#include <chrono>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

void appendHex(QString& text, unsigned char byte)
{
    text += QLatin1Char(HEX_DIGITS[byte >> 4]);
    text += QLatin1Char(HEX_DIGITS[byte & 0xF]);
}
} // namespace

std::int64_t microsecondsNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

QString timeText(std::int64_t microseconds)
{
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(microseconds / 1000);
    return time.toString(QStringLiteral("HH:mm:ss.zzz")) +
           QString::number(microseconds % 1000).rightJustified(3, QLatin1Char('0'));
}

QString idText(const Cim::CCanMessage& message)
{
    return QString::number(message.id().value(), 16).toUpper().rightJustified(3, QLatin1Char('0'));
}

QString dataText(const Cim::CCanMessage& message)
{
    QString text;
    for (unsigned int i = 0; i < message.length(); ++i) {
        if (i > 0) {
            text += QLatin1Char(' ');
        }
        appendHex(text, message.data()[i]);
    }
    return text;
}

QString asciiText(const Cim::CCanMessage& message)
{
    QString text;
    for (unsigned int i = 0; i < message.length(); ++i) {
        const unsigned char byte = message.data()[i];
        text += QLatin1Char(byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.');
    }
    return text;
}

QString directionText(bool sent)
{
    return sent ? QStringLiteral("TX") : QStringLiteral("RX");
}

CMessageMatcher::CMessageMatcher(std::vector<SFilter> filters, const QString& text)
    : m_filters(std::move(filters)), m_text(text.trimmed().toUpper())
{
}

bool CMessageMatcher::matches(const STraceRecord& record, const QString& sourceName) const
{
    if (!passesFilters(m_filters, record.message)) {
        return false;
    }
    if (m_text.isEmpty()) {
        return true;
    }
    const QString data = dataText(record.message);
    const QString line = QStringList{sourceName.toUpper(),
                                     directionText(record.sent),
                                     idText(record.message),
                                     data,
                                     QString(data).remove(QLatin1Char(' ')),
                                     asciiText(record.message).toUpper()}
                             .join(QLatin1Char(' '));
    return line.contains(m_text);
}

std::vector<SFilter> parseFilters(const QString& text)
{
    static const QRegularExpression SEPARATOR(QStringLiteral("[\\s,]+"));
    std::vector<SFilter> filters;
    for (const QString& part : text.split(SEPARATOR, Qt::SkipEmptyParts)) {
        filters.push_back(parseFilter(part.contains(QLatin1Char(':')) ? part : part + QStringLiteral(":7FF")));
    }
    return filters;
}

} // namespace vexmor::Apps::Cimview
