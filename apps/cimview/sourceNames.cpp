#include "apps/cimview/sourceNames.h"

#include "apps/host/words.h"
#include "canlog/candumpLog.h"

#include <QFile>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr qint64 MAX_BYTES = 1000000; ///< Maximum size of a file with names, of which there are at most 2048.
}

Failure CSourceNames::loadIds(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return SProblem{QStringLiteral("%1: %2").arg(path, file.errorString())};
    }
    QHash<std::uint16_t, QString> names;
    int number = 0;
    for (const QByteArray& line : file.read(MAX_BYTES).split('\n')) {
        const QString text = QString::fromUtf8(line).section(QLatin1Char('#'), 0, 0).simplified();
        bool isNumber = false;
        const unsigned int id = text.section(QLatin1Char(' '), 0, 0).toUInt(&isNumber, 16);
        ++number;
        if (text.isEmpty()) {
            continue;
        }
        if (!isNumber || id > CanLog::MAX_ID) {
            return wrongUsage(Words::tr("%1, line %2: must be ID NAME, like 123 Amplifier left").arg(path).arg(number));
        }
        names.insert(static_cast<std::uint16_t>(id), text.section(QLatin1Char(' '), 1));
    }
    m_idNames = names;
    return {};
}

QString CSourceNames::idText(std::uint16_t id) const
{
    const QString name = idName(id);
    const QString number = QString::fromLatin1(CanLog::formatId(id));
    return name.isEmpty() ? number : QStringLiteral("%1 %2").arg(number, name);
}

} // namespace vexmor::Apps::Cimview
