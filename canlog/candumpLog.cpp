#include "canlog/candumpLog.h"

#include "canlog/words.h"

#include <QBuffer>
#include <QFile>
#include <QList>

#include <cstdio>
#include <utility>

namespace vexmor::CanLog
{
namespace
{
constexpr int ID_DIGITS = 3;
constexpr int MAX_LINE = 4096;
constexpr std::int64_t MICROSECONDS = 1000000;

bool isHex(const QByteArray& text)
{
    for (const char character : text) {
        if (std::isxdigit(static_cast<unsigned char>(character)) == 0) {
            return false;
        }
    }
    return !text.isEmpty();
}

SProblem noFrame(const QByteArray& text, const QString& reason)
{
    return wrongUsage(Words::tr("frame \"%1\": %2").arg(QString::fromLocal8Bit(text), reason));
}

constexpr int EXTENDED_DIGITS = 8;
constexpr unsigned int ERROR_FLAG = 0x20000000; ///< Flag of an error frame, above the 29 bits of the identifier.

/// Returns the kind of a frame that can-utils write and that a CCanMessage cannot represent; nothing for other texts.
std::optional<EForeign> foreignKind(const QByteArray& frame)
{
    const int mark = frame.indexOf('#');
    const bool isExtended = mark == EXTENDED_DIGITS && isHex(frame.left(mark));
    if (frame.contains("##")) {
        return EForeign::eFd;
    }
    if (isExtended && (frame.left(mark).toUInt(nullptr, 16) & ERROR_FLAG) != 0) {
        return EForeign::eError;
    }
    if (frame.mid(mark + 1, 1).toUpper() == "R") {
        return EForeign::eRemote;
    }
    return isExtended ? std::optional(EForeign::eExtended) : std::nullopt;
}

/// Parses (seconds.fraction) and returns microseconds. Digits after the sixth of the fraction are ignored.
std::optional<std::int64_t> parseTime(const QByteArray& text)
{
    if (!text.startsWith('(') || !text.endsWith(')')) {
        return std::nullopt;
    }
    const QList<QByteArray> parts = text.mid(1, text.size() - 2).split('.');
    bool wholeOk = false;
    bool fractionOk = true;
    const qlonglong whole = parts.at(0).toLongLong(&wholeOk);
    qlonglong fraction = 0;
    if (parts.size() == 2) {
        fraction = parts.at(1).leftJustified(6, '0', true).toLongLong(&fractionOk);
    }
    if (!wholeOk || !fractionOk || parts.size() > 2 || whole < 0 || whole > INT64_MAX / MICROSECONDS - 1 ||
        fraction < 0) {
        return std::nullopt;
    }
    return whole * MICROSECONDS + fraction;
}

QByteArray bytesOf(const Cim::CCanMessage& message)
{
    return {reinterpret_cast<const char*>(message.data()), static_cast<int>(message.length())};
}
} // namespace

Result<Cim::CCanMessage> parseFrame(const QByteArray& text)
{
    const int mark = text.indexOf('#');
    if (mark < 0) {
        return noFrame(text, Words::tr("a # must separate identifier and data, as in 123#1122"));
    }
    const QByteArray id = text.left(mark);
    const QByteArray data = text.mid(mark + 1).replace(".", "");
    const std::uint16_t value = id.toUShort(nullptr, 16);
    if (!isHex(id) || id.size() > ID_DIGITS || value > MAX_ID) {
        return noFrame(text, Words::tr("the identifier must be hexadecimal, 0 to 7FF"));
    }
    if (data.startsWith('R') || data.startsWith('r')) {
        return noFrame(text, Words::tr("remote frames are not supported"));
    }
    if (data.size() % 2 != 0 || (!data.isEmpty() && !isHex(data))) {
        return noFrame(text, Words::tr("the data must be pairs of hexadecimal digits"));
    }
    if (data.size() > 2 * MAX_DATA_LENGTH) {
        return noFrame(text, Words::tr("more than 8 data bytes"));
    }
    QByteArray bytes = QByteArray::fromHex(data);
    return Cim::CCanMessage(Cim::CCanId::fromValue(value), static_cast<unsigned int>(bytes.size()),
                            reinterpret_cast<unsigned char*>(bytes.data()));
}

QByteArray formatId(std::uint16_t id)
{
    return QByteArray::number(id, 16).toUpper().rightJustified(ID_DIGITS, '0');
}

QByteArray formatData(const Cim::CCanMessage& message)
{
    return bytesOf(message).toHex(' ').toUpper();
}

QByteArray formatFrame(const Cim::CCanMessage& message)
{
    return formatId(message.id().value()) + '#' + bytesOf(message).toHex().toUpper();
}

Result<std::optional<SLogEntry>> parseLogLine(const QByteArray& line)
{
    const QList<QByteArray> words = line.simplified().split(' ');
    if (words.first().isEmpty() || words.first().startsWith('#')) {
        return std::optional<SLogEntry>();
    }
    const auto microseconds = parseTime(words.at(0));
    if (words.size() < 3 || words.size() > 4 || !microseconds) {
        return wrongUsage(Words::tr("not of the form (seconds) interface ID#DATA"));
    }
    auto message = parseFrame(words.at(2));
    if (!message && foreignKind(words.at(2))) {
        return std::optional<SLogEntry>();
    }
    if (!message) {
        return message.problem();
    }
    const QByteArray direction = words.value(3);
    const char mark = direction == "R" || direction == "T" ? direction.front() : '\0';
    return std::optional(SLogEntry{*microseconds, words.at(1), *message, mark});
}

QByteArray formatLogLine(const SLogEntry& entry)
{
    return '(' + QByteArray::number(static_cast<qlonglong>(entry.microseconds / MICROSECONDS)) + '.' +
           QByteArray::number(static_cast<qlonglong>(entry.microseconds % MICROSECONDS)).rightJustified(6, '0') + ") " +
           entry.interfaceName + ' ' + formatFrame(entry.message) +
           (entry.direction == 0 ? QByteArray() : QByteArray(" ") + entry.direction);
}

QByteArray formatDump(const QByteArray& interfaceName, const Cim::CCanMessage& message)
{
    const QByteArray line = "  " + interfaceName + "  " + formatId(message.id().value()) + "   [" +
                            QByteArray::number(message.length()) + "] ";
    return message.length() == 0 ? line : line + ' ' + formatData(message);
}

QByteArray formatAscii(const Cim::CCanMessage& message)
{
    QByteArray text;
    for (unsigned int i = 0; i < message.length(); ++i) {
        text.append(asciiOf(message.data()[i]));
    }
    return text;
}

int errorOf(const Cim::CCanMessage& message)
{
    return Cim::CCanMessage(message).errorNumber(); // a copy, because errorNumber() is not const
}

std::string formatAdministration(const Cim::CCanMessage& message)
{
    if (message.length() == 0 || message.administrationByte().value == 0) {
        return {};
    }
    std::string text = "type " + std::to_string(message.messageType()); // so short that it needs no allocation
    if (const int error = errorOf(message)) {
        text += ", error " + std::to_string(error);
    }
    if (const int checksum = Cim::CCanMessage(message).deviceCheckSum()) {
        const QByteArray digits = QByteArray::number(static_cast<std::uint16_t>(checksum), 16).toUpper();
        text += ", checksum " + digits.rightJustified(4, '0').toStdString();
    }
    return text;
}

CLogReader::CLogReader() = default;
CLogReader::~CLogReader() = default;
CLogReader::CLogReader(CLogReader&&) noexcept = default;
CLogReader& CLogReader::operator=(CLogReader&&) noexcept = default;

Failure CLogReader::open(const QString& path)
{
    auto file = std::make_unique<QFile>(path);
    const bool isInput = path == QLatin1String("-");
    if (!(isInput ? file->open(stdin, QIODevice::ReadOnly) : file->open(QIODevice::ReadOnly))) {
        return wrongUsage(QStringLiteral("%1: %2").arg(path, file->errorString()));
    }
    m_path = isInput ? Words::tr("standard input") : path;
    m_device = std::move(file);
    if (m_device->isSequential()) {
        auto buffer = std::make_unique<QBuffer>();
        buffer->setData(m_device->readAll());
        buffer->open(QIODevice::ReadOnly);
        m_device = std::move(buffer);
    }
    m_line = 0;
    m_skipped = {};
    return {};
}

Result<std::optional<SLogEntry>> CLogReader::next()
{
    while (m_device && !m_device->atEnd()) {
        ++m_line;
        const QByteArray line = m_device->readLine(MAX_LINE);
        auto entry = parseLogLine(line);
        if (!entry) {
            return wrongUsage(Words::tr("%1, line %2: %3").arg(m_path).arg(m_line).arg(entry.problem().text));
        }
        if (*entry) {
            return entry;
        }
        const QList<QByteArray> words = line.simplified().split(' ');
        if (const auto kind = foreignKind(words.value(2)); kind && !words.first().startsWith('#')) {
            ++m_skipped[static_cast<std::size_t>(*kind)];
        }
    }
    return std::optional<SLogEntry>();
}

bool CLogReader::rewind()
{
    m_line = 0;
    return m_device && m_device->seek(0);
}

Result<std::uint64_t> CLogReader::countAll()
{
    std::uint64_t count = 0;
    for (bool isEnd = false; !isEnd;) {
        auto entry = next();
        if (!entry) {
            return entry.problem();
        }
        isEnd = !*entry;
        count += isEnd ? 0 : 1;
    }
    rewind();
    return count;
}

} // namespace vexmor::CanLog
