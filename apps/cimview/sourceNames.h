#pragma once

#include "canlog/problem.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <cstdint>

namespace vexmor::Apps::Cimview
{

/// The names of interfaces by number, and those that the user has for identifiers. Interfaces have numbers so that a
/// record needs two bytes for the name. A name keeps its number until the program ends, also after its interface was
/// removed. Window thread only.
class CSourceNames
{
public:
    /// The number of a name; a new name gets the next one. Names past the 65535th share the last number.
    std::uint16_t numberOf(const QString& name)
    {
        const auto known = m_numbers.constFind(name);
        if (known != m_numbers.constEnd()) {
            return *known;
        }
        if (m_names.size() <= UINT16_MAX) {
            m_names.append(name);
        }
        const auto number = static_cast<std::uint16_t>(m_names.size() - 1);
        m_numbers.insert(name, number);
        return number;
    }
    QString name(std::uint16_t number) const { return m_names.value(number); }

    /// Replaces the names of identifiers by those of a file, which has an identifier and its name in each line, or is a
    /// comment from # on.
    Failure loadIds(const QString& path);
    /// The name of an identifier; empty: it has none.
    QString idName(std::uint16_t id) const { return m_idNames.value(id); }
    /// The identifier, and its name if it has one.
    QString idText(std::uint16_t id) const;

private:
    QStringList m_names;
    QHash<QString, std::uint16_t> m_numbers;
    QHash<std::uint16_t, QString> m_idNames;
};

} // namespace vexmor::Apps::Cimview
