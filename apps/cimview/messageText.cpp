#include "apps/cimview/messageText.h"

#include "canlog/candumpLog.h"

#include <QDateTime>
#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <string_view>

namespace vexmor::Apps::Cimview
{
namespace
{
/// The line of a message that the text filter searches, in upper case: direction, identifier, data with blanks and
/// without, ASCII, administration. It allocates no memory, because one is made for every message of a busy bus.
class CSearchLine
{
public:
    explicit CSearchLine(const SBusRecord& record)
    {
        const unsigned char* const begin = record.message.data();
        const unsigned char* const end = begin + record.message.length();
        append(record.sent ? 'T' : 'R');
        append('X');
        append(' ');
        appendHex(record.message.id().value(), 3);
        for (const unsigned char* byte = begin; byte != end; ++byte) {
            append(' ');
            appendHex(*byte, 2);
        }
        append(' ');
        std::for_each(begin, end, [this](unsigned char byte) { appendHex(byte, 2); });
        append(' ');
        std::for_each(begin, end, [this](unsigned char byte) { append(upper(CanLog::asciiOf(byte))); });
        append(' ');
        for (const char letter : CanLog::formatAdministration(record.message)) {
            append(upper(letter));
        }
    }
    bool contains(const std::string& text) const
    {
        return std::string_view(m_text.data(), m_size).find(text) != std::string_view::npos;
    }

private:
    static char upper(char letter)
    {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
    }
    void append(char letter) { m_text[m_size++] = letter; }
    void appendHex(unsigned int number, int digits)
    {
        while (--digits >= 0) {
            append("0123456789ABCDEF"[(number >> (4 * digits)) & 0xF]);
        }
    }

    /// At most 92 bytes: direction 3, identifier 3, data 24 with blanks and 17 without, ASCII 9, administration 36.
    std::array<char, 96> m_text{};
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
    return QString::fromLatin1(CanLog::formatId(message.id().value()));
}

QString dataText(const Cim::CCanMessage& message)
{
    return QString::fromLatin1(CanLog::formatData(message));
}

QString asciiText(const Cim::CCanMessage& message)
{
    return QString::fromLatin1(CanLog::formatAscii(message));
}

QString adminText(const Cim::CCanMessage& message)
{
    return QString::fromStdString(CanLog::formatAdministration(message));
}

QString directionText(bool sent)
{
    return sent ? QStringLiteral("TX") : QStringLiteral("RX");
}

CMessageMatcher::CMessageMatcher(std::vector<SFilter> filters, const QString& text)
    : m_filters(std::move(filters)), m_text(text.trimmed()), m_searched(m_text.toUpper().toStdString())
{
}

bool CMessageMatcher::matches(const SBusRecord& record, const CSourceNames& names) const
{
    if (!passesFilters(m_filters, record.message)) {
        return false;
    }
    if (m_text.isEmpty()) {
        return true;
    }
    return CSearchLine(record).contains(m_searched) ||
           names.name(record.source).contains(m_text, Qt::CaseInsensitive) ||
           names.idName(record.message.id().value()).contains(m_text, Qt::CaseInsensitive);
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
