#include "apps/cimview/busloadPlot.h"

#include "apps/cimview/busloadHistory.h"
#include "apps/cimview/colours.h"
#include "apps/host/clock.h"

#include <QEvent>
#include <qwt_legend.h>
#include <qwt_plot_canvas.h>
#include <qwt_plot_curve.h>
#include <qwt_plot_grid.h>
#include <qwt_scale_widget.h>

#include <algorithm>
#include <cmath>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int UPDATE_INTERVAL_MS = 500;
constexpr double SHOWN_SECONDS = 120;
constexpr double MICROSECONDS_PER_SECOND = 1e6;
constexpr double MIN_TOP_PERCENT = 10;
constexpr double CURVE_WIDTH = 1.8;
constexpr int GRID_ALPHA = 80;
constexpr int LABEL_WIDTH = 60;

/// A curve with gaps: a point whose value is no number ends a line.
class CGappedCurve : public QwtPlotCurve
{
public:
    using QwtPlotCurve::QwtPlotCurve;

protected:
    void drawSeries(QPainter* painter, const QwtScaleMap& xMap, const QwtScaleMap& yMap, const QRectF& canvas, int from,
                    int to) const override
    {
        to = to < 0 ? static_cast<int>(dataSize()) - 1 : to;
        for (int start = from; start <= to; ++start) {
            int end = start;
            while (end <= to && !std::isnan(sample(end).y())) {
                ++end;
            }
            if (end > start) {
                QwtPlotCurve::drawSeries(painter, xMap, yMap, canvas, start, end - 1);
            }
            start = end;
        }
    }
};
} // namespace

CBusloadPlot::CBusloadPlot(const CBusloadHistory& history, QWidget* parent)
    : QwtPlot(parent), m_history(history), m_grid(new QwtPlotGrid)
{
    setAxisTitle(xBottom, tr("Seconds ago"));
    setAxisTitle(yLeft, tr("Bus load [%]"));
    for (const int axis : {xBottom, yLeft}) {
        QwtText title = axisTitle(axis);
        title.setFont(font());
        setAxisTitle(axis, title);
        setAxisFont(axis, font());
    }
    setAxisScale(xBottom, -SHOWN_SECONDS, 0);
    setAxisScale(yLeft, 0, MIN_TOP_PERCENT);
    static_cast<QwtPlotCanvas*>(canvas())->setFrameStyle(QFrame::NoFrame);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding); // its hint is no minimum
    insertLegend(new QwtLegend, QwtPlot::TopLegend);
    m_grid->attach(this);
    applyPalette();
    connect(&m_timer, &QTimer::timeout, this, &CBusloadPlot::showSamples);
    m_timer.start(UPDATE_INTERVAL_MS);
}

void CBusloadPlot::changeEvent(QEvent* event)
{
    QwtPlot::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        applyPalette();
    }
}

void CBusloadPlot::showEvent(QShowEvent* event)
{
    QwtPlot::showEvent(event);
    showSamples();
}

void CBusloadPlot::resizeEvent(QResizeEvent* event)
{
    QwtPlot::resizeEvent(event);
    setAxisMaxMajor(xBottom, std::max(1, width() / LABEL_WIDTH)); // labels would overlap
}

void CBusloadPlot::applyPalette()
{
    const QColor ground = palette().color(QPalette::Base);
    setCanvasBackground(ground);
    QColor line = palette().color(QPalette::Text);
    line.setAlpha(GRID_ALPHA);
    m_grid->setPen(line, 0, Qt::DotLine);
    const auto& colours = curveColours(ground);
    std::size_t index = 0;
    for (const auto& [name, curve] : m_curves) {
        curve->setPen(QColor(colours[index++ % colours.size()]), CURVE_WIDTH);
    }
}

void CBusloadPlot::showSamples()
{
    if (!isVisible()) {
        return;
    }
    const std::int64_t now = microsecondsNow();
    const auto& samples = m_history.samples();
    bool isNew = false;
    for (const auto& entry : samples) {
        if (m_curves.count(entry.first) == 0) {
            auto* const curve = new CGappedCurve(entry.first);
            curve->setRenderHint(QwtPlotItem::RenderAntialiased);
            curve->attach(this);
            m_curves.emplace(entry.first, curve);
            isNew = true;
        }
    }
    double top = MIN_TOP_PERCENT;
    for (const auto& [name, curve] : m_curves) {
        QVector<QPointF> points;
        const auto found = samples.find(name);
        for (const auto& sample : found == samples.end() ? CBusloadHistory::Samples() : found->second) {
            const double seconds = static_cast<double>(sample.microseconds - now) / MICROSECONDS_PER_SECOND;
            if (seconds >= -SHOWN_SECONDS) {
                points.append({seconds, sample.percent ? static_cast<double>(*sample.percent) : qQNaN()});
                top = std::max(top, 1.1 * sample.percent.value_or(0));
            }
        }
        curve->setSamples(points);
    }
    if (isNew) {
        applyPalette();
    }
    setAxisScale(yLeft, 0, top);
    replot();
}

} // namespace vexmor::Apps::Cimview
