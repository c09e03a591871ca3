#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

namespace vexmor::Apps::Cimview
{

class CMainWindow;
class CWorkbench;

/// Measures how the window keeps up: counts its repaints, looks how long the event loop stands still at most, and tells
/// at the end, in a line on stdout, how many messages came and what it cost.
class CLoadReport : public QObject
{
    Q_OBJECT

public:
    /// Measures, and then ends the application, for so many seconds from the first message on. Both must outlive the
    /// report.
    CLoadReport(CWorkbench& workbench, CMainWindow& window, double seconds);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void onTick();
    void finish();

    CWorkbench& m_workbench;
    QTimer m_tick;
    QTimer m_end;
    QElapsedTimer m_sinceTick;
    qint64 m_longestStallMs = 0;
    int m_repaints = 0;
    const double m_seconds;
};

} // namespace vexmor::Apps::Cimview
