#include "bench/comparison.h"

namespace vexmor::Bench
{
namespace
{
constexpr std::size_t NAME_WIDTH = 66; ///< of the longest

std::vector<std::string> head(const std::string& title, const std::vector<std::string>& sides,
                              const std::vector<CComparison::SQuotient>& quotients)
{
    std::vector<std::string> result{title};
    result.insert(result.end(), sides.begin(), sides.end());
    for (const auto& [of, to] : quotients) {
        result.push_back(sides[of] + " / " + sides[to]);
    }
    result.insert(result.end(), {"aim", "load"});
    return result;
}

template <typename Result, typename Value>
Sides valuesOf(const std::vector<std::vector<Result>>& results, Value&& value)
{
    Sides sides;
    for (const auto& side : results) {
        sides.emplace_back();
        std::transform(side.begin(), side.end(), std::back_inserter(sides.back()), value);
    }
    return sides;
}
} // namespace

CComparison::CComparison(const std::string& title, const std::vector<std::string>& sides,
                         const std::vector<SQuotient>& quotients)
    : m_table(head(title, sides, quotients), NAME_WIDTH), m_quotients(quotients)
{
}

void CComparison::add(const std::string& name, const Sides& sides, const SAim& aim, bool needsQuiet) const
{
    std::vector<std::string> cells{name};
    for (const Values& side : sides) {
        cells.push_back(side.empty() ? "" : figure(median(side)));
    }
    for (const auto& [of, to] : m_quotients) {
        cells.push_back(spread(ratios(sides[of], sides[to])));
    }
    const auto& [of, to] = m_quotients.front();
    cells.push_back(verdict(aim, ratios(sides[of], sides[to])));
    cells.push_back(needsQuiet ? loadAverage() : "");
    m_table.add(cells);
}

Sides cpuOf(const Costs& costs)
{
    return valuesOf(costs, [](const SCost& cost) { return cost.cpu; });
}

Sides ratesOf(const Costs& costs)
{
    return valuesOf(costs, [](const SCost& cost) { return 1e6 / cost.wall; });
}

Sides mediansOf(const Times& times)
{
    return valuesOf(times, [](const Values& round) { return median(round); });
}

Sides quantilesOf(const Times& times, double share)
{
    Sides sides;
    for (const auto& side : times) {
        Values all;
        for (const Values& round : side) {
            all.insert(all.end(), round.begin(), round.end());
        }
        sides.push_back({quantile(all, share)});
    }
    return sides;
}

} // namespace vexmor::Bench
