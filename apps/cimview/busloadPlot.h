#pragma once

#include "apps/cimview/busloadHistory.h"

#include <QTimer>
#include <QWidget>

class QPainter;

namespace vexmor::Apps::Cimview
{
struct SBusloadScale;

/// The bus load of each interface over the last two minutes, in colours that fit the palette.
class CBusloadPlot : public QWidget
{
    Q_OBJECT

public:
    /// `history` must outlive the plot.
    explicit CBusloadPlot(const CBusloadHistory& history, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {400, 200}; }
    /// Returns a small size, so that the other panels get the space that they need.
    QSize minimumSizeHint() const override { return {150, 80}; }

protected:
    void showEvent(QShowEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void showSamples();
    int drawLegend(QPainter& painter, int left) const;
    void drawAxes(QPainter& painter, const SBusloadScale& scale) const;
    void drawCurves(QPainter& painter, const SBusloadScale& scale) const;
    QColor colourOf(int index) const;
    int highest(const SBusloadScale& scale) const;

    const CBusloadHistory& m_history;
    QTimer m_timer;
};

} // namespace vexmor::Apps::Cimview
