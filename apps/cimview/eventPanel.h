#pragma once

#include <QWidget>

class QPlainTextEdit;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CEventModel;

/// The panel with the event log: one line per event, and the whole text of the selected event. Events count as read
/// while the panel is visible.
class CEventPanel : public QWidget
{
    Q_OBJECT

public:
    explicit CEventPanel(CEventModel& events, QWidget* parent = nullptr);

    /// Sets whether the panel is visible: new events then count as read at once.
    void setInView(bool inView);

private:
    void showText();

    CEventModel& m_events;
    QTableView* m_table;
    QPlainTextEdit* m_text;
    bool m_isInView = false;
};

} // namespace vexmor::Apps::Cimview
