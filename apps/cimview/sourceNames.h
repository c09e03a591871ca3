#pragma once

#include "canlog/problem.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <cstdint>

namespace vexmor::Apps::Cimview
{

/// The names of interfaces by number, and the user's names of identifiers. Interfaces have numbers so that a record
/// needs only two bytes for the name. A name keeps its number until the program ends, also after its interface was
/// removed. Used in the window's thread only.
class CSourceNames
{
public:
    /// Returns the number of a name; a new name gets the next number. Names after the 65535th share the last number.
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

    /// Replaces the names of identifiers by the names in a file. Each line has an identifier and its name; # begins a
    /// comment.
    Failure loadIds(const QString& path);
    /// Returns the name of an identifier, or an empty text.
    QString idName(std::uint16_t id) const { return m_idNames.value(id); }
    /// Returns the identifier, with its name if it has one.
    QString idText(std::uint16_t id) const;

private:
    QStringList m_names;
    QHash<QString, std::uint16_t> m_numbers;
    QHash<std::uint16_t, QString> m_idNames;
};

} // namespace vexmor::Apps::Cimview
