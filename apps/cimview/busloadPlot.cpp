#include "apps/cimview/busloadPlot.h"

#include "apps/cimview/busloadScale.h"
#include "apps/cimview/colours.h"
#include "apps/host/clock.h"

#include <QPainter>

namespace vexmor::Apps::Cimview
{
namespace
{
constexpr int UPDATE_INTERVAL_MS = 500;
constexpr int MIN_TOP_PERCENT = 10;
constexpr double CURVE_WIDTH = 1.8;
constexpr int GRID_ALPHA = 80;
constexpr int GAP = 4;       ///< Distance between marks, labels and titles.
constexpr int KEY_SIZE = 9;  ///< Size of the coloured square before a name.
constexpr int NAME_GAP = 12; ///< Distance between two names.
} // namespace

CBusloadPlot::CBusloadPlot(const CBusloadHistory& history, QWidget* parent) : QWidget(parent), m_history(history)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setAccessibleName(tr("Bus load"));
    connect(&m_timer, &QTimer::timeout, this, &CBusloadPlot::showSamples);
    m_timer.start(UPDATE_INTERVAL_MS);
}

void CBusloadPlot::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    showSamples();
}

void CBusloadPlot::showSamples()
{
    if (!isVisible()) {
        return;
    }
    QStringList loads; // read aloud by screen readers
    for (const auto& [name, samples] : m_history.samples()) {
        const std::optional<int> percent = samples.back().percent;
        loads += percent ? tr("%1: %2 %").arg(name, QString::number(*percent)) : tr("%1: not known").arg(name);
    }
    setAccessibleDescription(loads.join(QStringLiteral(", ")));
    update();
}

void CBusloadPlot::paintEvent(QPaintEvent* /*event*/)
{
    const QFontMetrics metrics = fontMetrics();
    const int line = metrics.height();

    QPainter painter(this);
    SBusloadScale scale;
    scale.now = microsecondsNow();
    const int left = metrics.horizontalAdvance(tr("%1 %").arg(100)) + 2 * GAP;
    scale.area = rect().adjusted(left, std::max(drawLegend(painter, left), line / 2), -left / 2, -line - GAP);
    const int top = std::max(MIN_TOP_PERCENT, highest(scale));
    const int step = markStep(top, std::max(1, static_cast<int>(scale.area.height()) * 2 / (3 * line)));
    scale.topPercent = (top + step - 1) / step * step;
    drawAxes(painter, scale);
    drawCurves(painter, scale);
}

/// Draws the names of the interfaces in a grid from `left` on. Names are shortened when the grid would take more than a
/// quarter of the height. Returns the height of the grid.
int CBusloadPlot::drawLegend(QPainter& painter, int left) const
{
    const QFontMetrics metrics = fontMetrics();
    const int line = metrics.height() + GAP;
    const auto count = static_cast<int>(m_history.samples().size());
    int widest = 0;
    for (const auto& entry : m_history.samples()) {
        widest = std::max(widest, KEY_SIZE + GAP + metrics.horizontalAdvance(entry.first) + 1 + NAME_GAP);
    }
    int rows = 1;
    const auto columns = [&] { return std::max(1, (count + rows - 1) / rows); };
    while (columns() > 1 && columns() * widest > width() - left && (rows + 1) * line <= height() / 4) {
        ++rows;
    }
    const int cell = std::min(widest, (width() - left) / columns());
    int index = 0;
    for (const auto& entry : m_history.samples()) {
        const QRect place(left + index % columns() * cell, index / columns() * line, cell - NAME_GAP, line);
        const QRect text = place.adjusted(KEY_SIZE + GAP, 0, 0, 0);
        painter.fillRect(place.left(), place.center().y() - KEY_SIZE / 2, KEY_SIZE, KEY_SIZE, colourOf(index++));
        painter.drawText(text, Qt::AlignVCenter, metrics.elidedText(entry.first, Qt::ElideMiddle, text.width()));
    }
    return count == 0 ? 0 : rows * line;
}

void CBusloadPlot::drawAxes(QPainter& painter, const SBusloadScale& scale) const
{
    const QFontMetrics metrics = fontMetrics();
    const QRectF& area = scale.area;
    const int line = metrics.height();
    painter.fillRect(area, palette().color(QPalette::Base));
    QColor gridColour = palette().color(QPalette::Text);
    gridColour.setAlpha(GRID_ALPHA);
    const QPen grid(gridColour, 0, Qt::DotLine);
    const QPen text(palette().color(QPalette::WindowText));

    const int second =
        markStep(SBusloadScale::SHOWN_SECONDS,
                 std::max(1, static_cast<int>(area.width()) / metrics.horizontalAdvance(QStringLiteral("100000"))));
    for (int seconds = 0; seconds <= SBusloadScale::SHOWN_SECONDS; seconds += second) {
        const double x = scale.xOf(seconds);
        painter.setPen(grid);
        painter.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));
        painter.setPen(text);
        painter.drawLine(QPointF(x, area.bottom()), QPointF(x, area.bottom() + GAP));
        painter.drawText(QRectF(x - area.width() / 2, area.bottom() + GAP, area.width(), line), Qt::AlignHCenter,
                         tr("%1 s").arg(seconds));
    }
    const int step = markStep(scale.topPercent, std::max(1, static_cast<int>(area.height()) * 2 / (3 * line)));
    for (int percent = 0; percent <= scale.topPercent; percent += step) {
        const double y = scale.yOf(percent);
        painter.setPen(grid);
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
        painter.setPen(text);
        painter.drawLine(QPointF(area.left() - GAP, y), QPointF(area.left(), y));
        painter.drawText(QRectF(0, y - line, area.left() - 2 * GAP, 2 * line), Qt::AlignRight | Qt::AlignVCenter,
                         tr("%1 %").arg(percent));
    }
    painter.drawLine(area.topLeft(), area.bottomLeft());
    painter.drawLine(area.bottomLeft(), area.bottomRight());
}

void CBusloadPlot::drawCurves(QPainter& painter, const SBusloadScale& scale) const
{
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setClipRect(scale.area.adjusted(0, -CURVE_WIDTH, 0, CURVE_WIDTH));
    int index = 0;
    for (const auto& entry : m_history.samples()) {
        painter.setPen(QPen(colourOf(index++), CURVE_WIDTH, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        for (const QPolygonF& line : scale.linesOf(entry.second)) {
            if (line.size() == 1) { // a single sample is drawn as a dot
                painter.drawLine(line.first() - QPointF(1, 0), line.first() + QPointF(1, 0));
            }
            painter.drawPolyline(line);
        }
    }
}

/// Returns the colour of the interface at this index of the alphabetical order.
QColor CBusloadPlot::colourOf(int index) const
{
    const auto& colours = curveColours(palette().color(QPalette::Base));
    return QColor(colours[static_cast<std::size_t>(index) % colours.size()]);
}

/// Returns the highest load that is shown, in percent.
int CBusloadPlot::highest(const SBusloadScale& scale) const
{
    int percent = 0;
    for (const auto& entry : m_history.samples()) {
        for (const auto& sample : scale.shown(entry.second)) {
            percent = std::max(percent, sample.percent.value_or(0));
        }
    }
    return percent;
}

} // namespace vexmor::Apps::Cimview
