#pragma once

#include <QTimer>
#include <qwt_plot.h>

#include <map>

class QwtPlotCurve;
class QwtPlotGrid;

namespace vexmor::Apps::Cimview
{

class CBusloadHistory;

/// The bus load of each interface over the last two minutes, in colours that fit the palette.
class CBusloadPlot : public QwtPlot
{
    Q_OBJECT

public:
    /// `history` must outlive the plot.
    explicit CBusloadPlot(const CBusloadHistory& history, QWidget* parent = nullptr);

    /// Small: the plot gives way to the other panels.
    QSize minimumSizeHint() const override { return {150, 80}; }

protected:
    void changeEvent(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void applyPalette();
    void showSamples();

    const CBusloadHistory& m_history;
    QwtPlotGrid* m_grid;                       ///< belongs to the plot, as do the curves
    std::map<QString, QwtPlotCurve*> m_curves; ///< by name of the interface
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimview
