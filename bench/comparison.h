#pragma once

#include "bench/gatewayProcess.h"
#include "bench/links.h"

#include <memory>
#include <utility>

namespace vexmor::Bench
{

constexpr int HOST_PROCESSOR = 0;
constexpr int OTHER_PROCESSOR = 1;

/// Sides that take turns, each with a gateway process of its own on the same processor.
class CSides
{
public:
    CSides(EProtocol protocol, int gatewayProcessor, int rounds)
        : m_protocol(protocol), m_gatewayProcessor(gatewayProcessor), m_rounds(rounds)
    {
    }

    template <typename Link>
    CSides& add(const SLanguage& language = RM_LANGUAGE)
    {
        m_gateways.push_back(std::make_unique<CGatewayProcess>(m_protocol, m_gatewayProcessor, language));
        m_links.push_back(std::make_unique<Link>(m_protocol, m_gateways.back()->port()));
        return *this;
    }

    /// What `job(link)` gives: a value a round for each side, after a round that warms up.
    template <typename Job>
    auto measure(Job&& job) const
    {
        std::vector<std::vector<decltype(job(*m_links.front()))>> results(m_links.size());
        for (int round = 0; round <= m_rounds; ++round) {
            for (std::size_t side = 0; side < m_links.size(); ++side) {
                const auto result = job(*m_links[side]);
                if (round > 0) {
                    results[side].push_back(result);
                }
            }
        }
        return results;
    }

private:
    const EProtocol m_protocol;
    const int m_gatewayProcessor;
    const int m_rounds;
    std::vector<std::unique_ptr<CGatewayProcess>> m_gateways;
    std::vector<std::unique_ptr<CLink>> m_links;
};

/// One value for each side and round.
using Sides = std::vector<Values>;

/// The table of a comparison: what each side needs, and how often that is what another one needs.
class CComparison
{
public:
    struct SQuotient {
        std::size_t of; ///< index of a side
        std::size_t to;
    };
    CComparison(const std::string& title, const std::vector<std::string>& sides,
                const std::vector<SQuotient>& quotients);

    /// Medians, and how the quotients spread. The aim is for the first quotient. Where the figures depend on a quiet
    /// machine the load stands beside them.
    void add(const std::string& name, const Sides& sides, const SAim& aim = {}, bool needsQuiet = false) const;

private:
    CTable m_table;
    std::vector<SQuotient> m_quotients;
};

using Costs = std::vector<std::vector<SCost>>;
Sides cpuOf(const Costs& costs);
/// In 1000 a second.
Sides ratesOf(const Costs& costs);

using Times = std::vector<std::vector<Values>>;
/// Of each round by itself.
Sides mediansOf(const Times& times);
/// Of all rounds together: one value for each side.
Sides quantilesOf(const Times& times, double share);

} // namespace vexmor::Bench
