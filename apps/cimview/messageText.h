#pragma once

#include "apps/cimview/sourceNames.h"
#include "apps/host/mailbox.h"
#include "apps/host/messageFilter.h"

#include <QString>

#include <string>
#include <vector>

/// Texts of messages for the user, and the search in them.
namespace vexmor::Apps::Cimview
{

/// Time of day with microseconds, local.
QString timeText(std::int64_t microseconds);
/// Date and time of day, local, as the user's country writes them.
QString dateText(std::int64_t microseconds);
/// Three hexadecimal digits.
QString idText(const Cim::CCanMessage& message);
/// Two hexadecimal digits for each byte, with blanks between.
QString dataText(const Cim::CCanMessage& message);
/// A character for each byte, a dot for a byte that is none.
QString asciiText(const Cim::CCanMessage& message);
/// What the first byte says by the rules of administration messages; empty where it is 0.
QString adminText(const Cim::CCanMessage& message);
/// "TX" or "RX".
QString directionText(bool sent);

/// Selects the messages that one of the filters lets through and that contain a text.
class CMessageMatcher
{
public:
    /// `text` is searched in the names of interface and identifier, and in direction, identifier, data (with blanks and
    /// without), ASCII and administration side by side, in upper or lower case. An empty text matches.
    explicit CMessageMatcher(std::vector<SFilter> filters = {}, const QString& text = {});

    bool matches(const SBusRecord& record, const CSourceNames& names) const;

private:
    std::vector<SFilter> m_filters;
    QString m_text;
    std::string m_searched; ///< the same in upper case
};

/// Reads filters as readFilter does, with blanks or commas between them.
Result<std::vector<SFilter>> readFilters(const QString& text);

} // namespace vexmor::Apps::Cimview
