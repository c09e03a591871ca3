#include "apps/cimshare/socketcandText.h"

#include "apps/host/gatewayAddress.h"
#include "canlog/candumpLog.h"
#include "cim/resultCodes.h"

#include <QList>
#include <QRegularExpression>

#include <algorithm>
#include <cctype>
#include <optional>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int MICROSECONDS = 1'000'000;
constexpr int EXTENDED_ID_DIGITS = 8;
constexpr int MAX_BUS_NAME = 16;
constexpr int MAX_MILLISECONDS = 3'600'000;
constexpr quint64 MIN_CYCLE = 1000;
constexpr quint64 MAX_INTERVAL = 3600ULL * MICROSECONDS;

/// The words of an element that have not been read yet.
using CWords = QList<QByteArray>;

QByteArray next(CWords& words)
{
    return words.isEmpty() ? QByteArray() : words.takeFirst();
}

std::optional<quint64> nextNumber(CWords& words, int base, quint64 highest)
{
    bool isNumber = false;
    const quint64 value = next(words).toULongLong(&isNumber, base);
    return isNumber && value <= highest ? std::optional(value) : std::nullopt;
}

SProblem wrong(const char* text)
{
    return wrongUsage(QString::fromLatin1(text));
}

// Functions that read the operands of verbs.

Failure readName(CWords& words, SCommand& command)
{
    command.busName = next(words);
    return command.busName.isEmpty() ? wrong("the name of the bus is missing") : Failure();
}

Failure readMilliseconds(CWords& words, SCommand& command)
{
    const auto milliseconds = nextNumber(words, 10, MAX_MILLISECONDS);
    command.milliseconds = static_cast<int>(milliseconds.value_or(0));
    return milliseconds ? Failure() : wrong("the interval is not a valid number of milliseconds");
}

Failure readInterval(CWords& words, SCommand& command)
{
    const auto seconds = nextNumber(words, 10, MAX_INTERVAL / MICROSECONDS);
    const auto microseconds = nextNumber(words, 10, MAX_INTERVAL);
    if (!seconds || !microseconds) {
        return wrong("the interval is not valid SECONDS MICROSECONDS");
    }
    const quint64 interval = *seconds * MICROSECONDS + *microseconds;
    command.milliseconds = static_cast<int>((interval + 999) / 1000);
    return command.verb == "add" && interval < MIN_CYCLE ? wrong("the interval is below 1 ms") : Failure();
}

Failure readId(CWords& words, SCommand& command)
{
    const bool isExtended = words.value(0).size() >= EXTENDED_ID_DIGITS;
    const auto id = nextNumber(words, 16, UINT32_MAX);
    if (!id) {
        return wrong("the identifier is not a hexadecimal number");
    }
    if (*id > CanLog::MAX_ID || isExtended) {
        return wrong("a T93 does not support 29-bit identifiers");
    }
    command.message.setId(Cim::CCanId::fromValue(static_cast<std::uint16_t>(*id)));
    return {};
}

Failure readData(CWords& words, SCommand& command)
{
    const auto length = nextNumber(words, 10, 8);
    if (!length) {
        return wrong("the length must be 0 to 8");
    }
    unsigned char data[8] = {};
    for (unsigned int i = 0; i < *length; ++i) {
        // Up to 16 digits, because some clients print a byte above 7F with its sign extended. The low byte counts.
        const auto byte = nextNumber(words, 16, UINT64_MAX);
        if (!byte) {
            return wrong("the data must be as many hexadecimal bytes as the length says");
        }
        data[i] = static_cast<unsigned char>(*byte);
    }
    command.message.setLength(static_cast<unsigned int>(*length));
    command.message.setData(0, static_cast<unsigned int>(*length), data);
    return {};
}

constexpr unsigned OPEN = eBroadcastManager | eRaw | eControl;
constexpr unsigned ANY = eNoBus | OPEN;

struct SSyntax {
    const char* verb;
    unsigned modes;
    /// Readers of the operands, in their order; null after the last one.
    Failure (*operands[3])(CWords& words, SCommand& command);
};
constexpr SSyntax SYNTAX[] = {
    {"open", ANY, {readName}},
    {"rawmode", OPEN, {}},
    {"bcmmode", OPEN, {}},
    {"controlmode", OPEN, {}},
    {"echo", ANY, {}},
    {"send", eBroadcastManager | eRaw, {readId, readData}},
    {"statistics", eControl, {readMilliseconds}},
    {"subscribe", eBroadcastManager, {readInterval, readId}},
    {"unsubscribe", eBroadcastManager, {readId}},
    {"add", eBroadcastManager, {readInterval, readId, readData}},
    {"delete", eBroadcastManager, {readId}},
};

QByteArray timeText(std::int64_t microseconds)
{
    return QByteArray::number(static_cast<double>(microseconds) / MICROSECONDS, 'f', 6);
}

/// Verbs that a T93 cannot serve, each with the feature that it would need.
constexpr const char* IMPOSSIBLE[][2] = {
    {"sendrtr", "remote frames"}, {"isotpmode", "ISO-TP"}, {"isotpconf", "ISO-TP"},
    {"sendpdu", "ISO-TP"},        {"fsend", "CAN FD"},
};
} // namespace

QStringList busNames(const QStringList& names)
{
    static const QRegularExpression OTHERS(QStringLiteral("[^A-Za-z0-9]"));
    QStringList result;
    for (const QString& given : names) {
        const QString letters = isAddress(given) ? QString() : QString(given).remove(OTHERS).left(MAX_BUS_NAME);
        const QString stem = letters.isEmpty() ? QStringLiteral("bus") : letters;
        QString name = letters.isEmpty() ? QStringLiteral("bus1") : letters;
        for (int i = 2; result.contains(name) || (name != given && names.contains(name)); ++i) {
            const QString number = QString::number(i);
            name = stem.left(MAX_BUS_NAME - number.size()) + number;
        }
        result.append(name);
    }
    return result;
}

Result<SCommand> readCommand(const QByteArray& element)
{
    CWords words = element.simplified().split(' ');
    SCommand command;
    command.verb = next(words);
    for (const auto& [verb, feature] : IMPOSSIBLE) {
        if (command.verb == verb) {
            return wrongUsage(QStringLiteral("a T93 does not support %1").arg(QLatin1String(feature)));
        }
    }
    const auto* const syntax = std::find_if(std::begin(SYNTAX), std::end(SYNTAX),
                                            [&](const SSyntax& candidate) { return command.verb == candidate.verb; });
    if (syntax == std::end(SYNTAX)) {
        return wrong("unknown command");
    }
    command.modes = syntax->modes;
    for (const auto read : syntax->operands) {
        if (const Failure failure = read == nullptr ? Failure() : read(words, command)) {
            return *failure;
        }
    }
    return words.isEmpty() ? Result<SCommand>(command) : wrong("too many words");
}

bool takeElements(QByteArray& stream, const std::function<bool(const QByteArray& element)>& onElement)
{
    int begin = 0;
    const auto skipBlanks = [&] {
        while (begin < stream.size() && std::isspace(static_cast<unsigned char>(stream.at(begin))) != 0) {
            ++begin;
        }
        return stream.mid(begin, 1) == "<";
    };
    for (int end = 0; skipBlanks() && (end = stream.indexOf('>', begin)) >= 0; begin = end + 1) {
        const QByteArray element = stream.mid(begin + 1, end - begin - 1);
        if (element.size() > MAX_ELEMENT || !onElement(element)) {
            return false;
        }
    }
    stream.remove(0, begin);
    return stream.isEmpty() || (stream.startsWith('<') && stream.size() <= MAX_ELEMENT);
}

EErrorClass classOf(int interfaceError)
{
    constexpr int AWAY[] = {Cim::IE_TCP_CONNECTION_LOST, Cim::IE_NOT_CONNECTED, Cim::IE_CAN_BUS_OFF};
    if (std::count(std::begin(AWAY), std::end(AWAY), interfaceError) > 0) {
        return EErrorClass::eAway;
    }
    return interfaceError == Cim::IE_CAN_TRANSMIT_TIMEOUT ? EErrorClass::eRefused : EErrorClass::eLost;
}

QByteArray frameElement(const Cim::CCanMessage& message, std::int64_t microseconds)
{
    const QByteArray frame = CanLog::formatFrame(message); // for example 123#1122
    return "\n< frame " + frame.left(3) + ' ' + timeText(microseconds) + ' ' + frame.mid(4) + " >";
}

QByteArray errorElement(const QString& text)
{
    static const QRegularExpression OTHERS(QStringLiteral("[^ -~]"));
    const QString line = text.simplified().replace(OTHERS, QStringLiteral("?"));
    return "\n< error " + line.toLatin1().replace('<', '(').replace('>', ')') + " >";
}

QByteArray errorElement(EErrorClass errorClass, std::int64_t microseconds, const QString& text)
{
    const QString number = QString::asprintf("%03X", static_cast<unsigned>(errorClass));
    return errorElement(QStringLiteral("%1 %2 ").arg(number, QLatin1String(timeText(microseconds))) + text);
}

} // namespace vexmor::Apps::Cimshare
