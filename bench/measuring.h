#pragma once

#include <algorithm>
#include <ctime>
#include <string>
#include <vector>

/// Time, medians, and tables to print them in.
namespace vexmor::Bench
{

inline double nanoseconds(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// What an action takes, in ns: CPU time of this process, and time on the wall.
struct SCost {
    double cpu = 0;
    double wall = 0;

    SCost operator/(double parts) const { return {cpu / parts, wall / parts}; }
    SCost& operator+=(const SCost& other)
    {
        cpu += other.cpu;
        wall += other.wall;
        return *this;
    }
};

template <typename Action>
SCost costOf(Action&& action)
{
    const double wall = nanoseconds(CLOCK_MONOTONIC);
    const double cpu = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    action();
    const double cpuAfter = nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
    return {cpuAfter - cpu, nanoseconds(CLOCK_MONOTONIC) - wall};
}

/// The value below which `share` (0 to 1) of the values lie; 0 when there are none.
inline double quantile(std::vector<double> values, double share)
{
    if (values.empty()) {
        return 0;
    }
    const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), at, values.end());
    return *at;
}

inline double median(const std::vector<double>& values)
{
    return quantile(values, 0.5);
}

/// Median of the ratios of what was measured in turn.
inline double medianRatio(const std::vector<double>& of, const std::vector<double>& to)
{
    std::vector<double> ratios;
    for (std::size_t turn = 0; turn < std::min(of.size(), to.size()); ++turn) {
        ratios.push_back(of[turn] / to[turn]);
    }
    return median(ratios);
}

template <typename Action>
void repeat(int times, Action&& action)
{
    for (int i = 0; i < times; ++i) {
        action();
    }
}

/// A table in Markdown, whose first column is text and whose others are figures.
class CTable
{
public:
    explicit CTable(std::vector<std::string> head) : m_rows{std::move(head)} {}

    /// As many cells as the head has, or fewer: the rest stays empty.
    void add(std::vector<std::string> cells) { m_rows.push_back(std::move(cells)); }
    void print() const;

private:
    std::vector<std::vector<std::string>> m_rows; ///< the head first
};

/// A figure with about three digits that count.
std::string figure(double value);

/// "<= 4, met" or "<= 4, NOT MET".
std::string verdict(const std::string& aim, bool met);
/// How many verdicts were "NOT MET".
int aimsMissed();

} // namespace vexmor::Bench
