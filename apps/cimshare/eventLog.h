#pragma once

#include <QElapsedTimer>
#include <QJsonObject>
#include <QString>

namespace vexmor::Apps::Cimshare
{

/// What the service tells on stdout, a line an event, without a time: a journal has its own. Texts of clients cannot
/// make a line of their own, nor fill the disk: control characters are shown as "?", lines are short, and when too many
/// come within a second their number stands for the rest.
class CEventLog
{
public:
    /// With `json` each line is an object: "event", "text" and the fields.
    explicit CEventLog(bool json) : m_json(json) {}

    void tell(const QString& event, const QString& text, QJsonObject fields = {});

private:
    void print(const QString& event, const QString& text, QJsonObject fields);

    const bool m_json;
    QElapsedTimer m_second;
    int m_lines = 0; ///< in this second, printed or not
};

} // namespace vexmor::Apps::Cimshare
