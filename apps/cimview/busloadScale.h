#pragma once

#include "apps/cimview/busloadHistory.h"

#include <QPolygonF>
#include <QRectF>
#include <QVector>

#include <algorithm>

namespace vexmor::Apps::Cimview
{

/// Returns the distance between the marks of an axis from 0 to `range`: the smallest of 1, 2, 5, 10, 20, 50 and so on
/// that divides it into at most `count` parts.
inline int markStep(int range, int count)
{
    int step = 1;
    for (int index = 0; step * count < range; ++index) {
        step = index % 3 == 1 ? step / 2 * 5 : step * 2;
    }
    return step;
}

/// Maps times and bus loads to points in a rectangle: the present is at the right edge, 0 % at the bottom.
struct SBusloadScale {
    static constexpr int SHOWN_SECONDS = 120;

    QRectF area;
    int topPercent = 100;
    std::int64_t now = 0; ///< Present time in microseconds since the epoch.

    double xOf(double secondsAgo) const { return area.right() - area.width() * secondsAgo / SHOWN_SECONDS; }
    double yOf(double percent) const { return area.bottom() - area.height() * percent / topPercent; }

    /// Returns the samples that are shown, and the last one before the left edge, whose line enters the rectangle.
    CBusloadHistory::Samples shown(const CBusloadHistory::Samples& samples) const
    {
        const auto isBefore = [](const CBusloadHistory::SSample& sample, std::int64_t time) {
            return sample.microseconds < time;
        };
        auto first = std::lower_bound(samples.begin(), samples.end(), now - SHOWN_SECONDS * 1'000'000LL, isBefore);
        return {first == samples.begin() ? first : std::prev(first), samples.end()};
    }

    /// Returns one line for each period in which the load was known without a gap.
    QVector<QPolygonF> linesOf(const CBusloadHistory::Samples& samples) const
    {
        QVector<QPolygonF> lines;
        bool isGap = true;
        for (const auto& sample : shown(samples)) {
            if (sample.percent && isGap) {
                lines.append(QPolygonF());
            }
            if (sample.percent) {
                lines.last().append({xOf(static_cast<double>(now - sample.microseconds) / 1e6), yOf(*sample.percent)});
            }
            isGap = !sample.percent;
        }
        return lines;
    }
};

} // namespace vexmor::Apps::Cimview
