#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>

namespace vexmor::Apps::Cimshare
{

/// What the service tells on stdout, a line an event, without a time: a journal has its own. What clients do cannot
/// make a line of its own (control characters are shown as "?", lines are short) nor hide what the service says of
/// itself: when they cause too many lines within a second, a number stands for the rest.
class CEventLog
{
public:
    /// With `json` each line is an object: "event", "subject", "text" and the fields.
    explicit CEventLog(bool json) : m_json(json) {}

    /// Prints "SUBJECT: TEXT".
    void tell(const char* event, const QString& subject, const QString& text, QJsonObject fields = {});
    /// The same, of what a client caused.
    void tellOfClient(const char* event, const QString& subject, const QString& text);

private:
    const bool m_json;
    QElapsedTimer m_second;
    int m_clientLines = 0; ///< in this second, printed or not
};

} // namespace vexmor::Apps::Cimshare
