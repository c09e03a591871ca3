#pragma once

#include <QDir>
#include <QObject>
#include <QTimer>

#include <functional>
#include <vector>

namespace vexmor::Apps
{
class CEmbeddedSim;
}

namespace vexmor::Apps::Cimview
{

class CMainWindow;
class CWorkbench;

/// Leads the window through a run on the simulated gateway, takes the pictures of the user guide on the way, and ends
/// the application. Each step waits for what it shows, not for a time.
class CScreenshotTour : public QObject
{
    Q_OBJECT

public:
    /// All must outlive the tour. Pictures go to `folder`.
    CScreenshotTour(CWorkbench& workbench, CMainWindow& window, CEmbeddedSim& sim, const QString& folder);

private:
    struct SStep {
        std::function<bool()> isReady;
        std::function<void()> act;
    };

    std::vector<SStep> steps();
    void onTick();
    void takeStep();
    void prepare();
    void sendLevel();
    void provokeErrors();
    void showDialog();
    void save(QWidget& widget, const QString& name);

    CWorkbench& m_workbench;
    CMainWindow& m_window;
    CEmbeddedSim& m_sim;
    const QDir m_folder;
    QTimer m_timer;
    std::vector<SStep> m_steps;
    std::size_t m_next = 0;
    int m_ticks = 0; ///< waited for the next step
};

} // namespace vexmor::Apps::Cimview
