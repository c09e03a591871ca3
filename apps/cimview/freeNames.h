#pragma once

#include <QHash>
#include <QSet>
#include <QString>

#include <algorithm>

namespace vexmor::Apps::Cimview
{

/// Names that nobody has: with a number behind the wanted one where that is taken.
class CFreeNames
{
public:
    void take(const QString& name) { m_taken.insert(name); }
    QString takeLike(const QString& wanted)
    {
        QString name = wanted;
        for (int& last = m_lastNumbers[wanted]; m_taken.contains(name);) {
            last = std::max(last, 1) + 1;
            name = QStringLiteral("%1 (%2)").arg(wanted, QString::number(last));
        }
        take(name);
        return name;
    }

private:
    QSet<QString> m_taken;
    QHash<QString, int> m_lastNumbers; ///< by wanted name, so that no number is tried twice
};

} // namespace vexmor::Apps::Cimview
