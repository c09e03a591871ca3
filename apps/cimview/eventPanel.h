#pragma once

#include <QWidget>

class QPlainTextEdit;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CEventModel;

/// The event log: a line for each event, and the whole text of the selected one. Events count as read when the user can
/// see the panel.
class CEventPanel : public QWidget
{
    Q_OBJECT

public:
    explicit CEventPanel(CEventModel& events, QWidget* parent = nullptr);

    /// Whether the user can see the panel: then events are read as they come.
    void setInView(bool inView);

private:
    void showText();

    CEventModel& m_events;
    QTableView* m_table;
    QPlainTextEdit* m_text;
    bool m_isInView = false;
};

} // namespace vexmor::Apps::Cimview
