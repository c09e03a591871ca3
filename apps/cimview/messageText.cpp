#include "apps/cimview/messageText.h"

#include "canlog/candumpLog.h"

#include <QDateTime>
#include <QLocale>
#include <QRegularExpression>

#include <array>
#include <chrono>
#include <string_view>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

/// What the text filter looks at, in upper case: direction, identifier, data with blanks and without, ASCII. Made for
/// every message of a busy bus: without an allocation.
class CSearchLine
{
public:
    explicit CSearchLine(const STraceRecord& record)
    {
        const unsigned int id = record.message.id().value();
        append(record.sent ? "TX " : "RX ");
        for (int shift = 8; shift >= 0; shift -= 4) {
            append(HEX_DIGITS[(id >> shift) & 0xF]);
        }
        appendData(record.message, true);
        appendData(record.message, false);
        append(' ');
        for (unsigned int i = 0; i < record.message.length(); ++i) {
            const char letter = CanLog::asciiOf(record.message.data()[i]);
            append(letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter);
        }
    }
    bool contains(const std::string& text) const
    {
        return std::string_view(m_text.data(), m_size).find(text) != std::string_view::npos;
    }

private:
    void append(char letter) { m_text[m_size++] = letter; }
    void append(const char* text)
    {
        while (*text != '\0') {
            append(*text++);
        }
    }
    void appendData(const Cim::CCanMessage& message, bool blanks)
    {
        append(' ');
        for (unsigned int i = 0; i < message.length(); ++i) {
            if (blanks && i > 0) {
                append(' ');
            }
            append(HEX_DIGITS[message.data()[i] >> 4]);
            append(HEX_DIGITS[message.data()[i] & 0xF]);
        }
    }

    std::array<char, 64> m_text{}; ///< 3 + 3 + 1 + 23 + 1 + 16 + 1 + 8 at most
    std::size_t m_size = 0;
};
} // namespace

QString timeText(std::int64_t microseconds)
{
    const QDateTime time = QDateTime::fromMSecsSinceEpoch(microseconds / 1000);
    return time.toString(QStringLiteral("HH:mm:ss.zzz")) +
           QString::number(microseconds % 1000).rightJustified(3, QLatin1Char('0'));
}

QString dateText(std::int64_t microseconds)
{
    return QLocale::system().toString(QDateTime::fromMSecsSinceEpoch(microseconds / 1000), QLocale::LongFormat);
}

QString idText(const Cim::CCanMessage& message)
{
    return QString::number(message.id().value(), 16).toUpper().rightJustified(3, QLatin1Char('0'));
}

QString dataText(const Cim::CCanMessage& message)
{
    const QByteArray data(reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length()));
    return QString::fromLatin1(data.toHex(' ').toUpper());
}

QString asciiText(const Cim::CCanMessage& message)
{
    return QString::fromLatin1(CanLog::formatAscii(message));
}

QString adminText(const Cim::CCanMessage& message)
{
    if (message.length() == 0) {
        return {};
    }
    Cim::CCanMessage copy = message; // the functions that read it are not const
    QString text = QStringLiteral("type %1").arg(static_cast<int>(copy.messageType()));
    if (const int error = copy.errorNumber()) {
        text += QStringLiteral(", error %1").arg(error);
    }
    if (const int checksum = copy.deviceCheckSum()) {
        text += QStringLiteral(", checksum %1").arg(static_cast<std::uint16_t>(checksum), 4, 16, QLatin1Char('0'));
    }
    return text;
}

QString directionText(bool sent)
{
    return sent ? QStringLiteral("TX") : QStringLiteral("RX");
}

CMessageMatcher::CMessageMatcher(std::vector<SFilter> filters, const QString& text)
    : m_filters(std::move(filters)), m_text(text.trimmed()), m_searched(m_text.toUpper().toStdString())
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
    return CSearchLine(record).contains(m_searched) || sourceName.contains(m_text, Qt::CaseInsensitive);
}

Result<std::vector<SFilter>> readFilters(const QString& text)
{
    static const QRegularExpression SEPARATOR(QStringLiteral("[\\s,]+"));
    std::vector<SFilter> filters;
    for (const QString& part : text.split(SEPARATOR, Qt::SkipEmptyParts)) {
        auto filter = readFilter(part);
        if (!filter) {
            return filter.problem();
        }
        filters.push_back(*filter);
    }
    return filters;
}

} // namespace vexmor::Apps::Cimview
