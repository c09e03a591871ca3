#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/host/mailbox.h"
#include "apps/host/messageFilter.h"

#include <QString>

#include <string>
#include <vector>

/// Texts of messages for the user, and the search in these texts.
namespace vexmor::Apps::Cimview
{

/// Returns the local time of day with microseconds. Times here are in microseconds since the epoch.
QString timeText(std::int64_t microseconds);
/// Returns local date and time in the format of the user's country.
QString dateText(std::int64_t microseconds);
/// Returns the identifier as three hexadecimal digits.
QString idText(const Cim::CCanMessage& message);
/// Returns two hexadecimal digits per data byte, with blanks between the bytes.
QString dataText(const Cim::CCanMessage& message);
/// Returns one character per data byte, a dot for a byte that is not a printable character.
QString asciiText(const Cim::CCanMessage& message);
/// Returns what the first data byte means in an administration message; empty when it is 0.
QString adminText(const Cim::CCanMessage& message);
/// Returns "TX" or "RX".
QString directionText(bool sent);

/// Selects the messages that pass one of the filters and contain a text.
class CMessageMatcher
{
public:
    /// Without filters, every identifier passes. `text` is searched without regard to case in the names of interface
    /// and identifier, and in a line of direction, identifier, data (with blanks and without), ASCII and
    /// administration. An empty text matches every message.
    explicit CMessageMatcher(std::vector<SFilter> filters = {}, const QString& text = {});

    bool matches(const SBusRecord& record, const CSourceNames& names) const;

private:
    std::vector<SFilter> m_filters;
    QString m_text;
    std::string m_searched; ///< The text to search for, in upper case.
};

/// Reads filters in the form of `readFilter`, with blanks or commas between them.
Result<std::vector<SFilter>> readFilters(const QString& text);

} // namespace vexmor::Apps::Cimview
