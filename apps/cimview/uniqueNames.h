#pragma once

#include <QHash>
#include <QSet>
#include <QString>

#include <algorithm>

namespace vexmor::Apps::Cimview
{

/// A set of names in which each occurs once.
class CUniqueNames
{
public:
    void add(const QString& name) { m_names.insert(name); }
    /// Adds and returns the wanted name, with the first free number from 2 on behind it where it is in use: "hall (2)".
    QString addLike(const QString& wanted)
    {
        QString name = wanted;
        for (int& last = m_lastNumbers[wanted]; m_names.contains(name);) {
            last = std::max(last, 1) + 1;
            name = QStringLiteral("%1 (%2)").arg(wanted, QString::number(last));
        }
        add(name);
        return name;
    }

private:
    QSet<QString> m_names;
    QHash<QString, int> m_lastNumbers; ///< by wanted name, so that no number is tried twice
};

} // namespace vexmor::Apps::Cimview
