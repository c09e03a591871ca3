#pragma once

#include <QWidget>

class QPlainTextEdit;
class QTableView;

namespace vexmor::Apps::Cimview
{

class CEventModel;

/// The event log: a line for each event, and the whole text of the chosen one. What is in it counts as read when the
/// user comes to it.
class CEventPanel : public QWidget
{
    Q_OBJECT

public:
    explicit CEventPanel(CEventModel& events, QWidget* parent = nullptr);

    /// Shows the text of a row.
    void choose(int row);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void showText();

    CEventModel& m_events;
    QTableView* m_table;
    QPlainTextEdit* m_text;
};

} // namespace vexmor::Apps::Cimview
