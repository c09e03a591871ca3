#pragma once

#include "bench/gatewayProcess.h"
#include "bench/links.h"
#include "bench/measuring.h"

#include <functional>
#include <memory>

namespace vexmor::Bench
{

constexpr int HOST_PROCESSOR = 0;
constexpr int OTHER_PROCESSOR = 1;
constexpr int SEND_BATCH = 100; ///< messages between two waits for the gateway

// What is timed of every side; given a link, each does a round and gives a figure.

/// What a frame of so many bursts costs, which the gateway sends when asked.
SCost receiveBursts(CLink& link, int bursts, int frames);

enum class ESending {
    eEachInATurn, ///< a turn of the event loop after each, whatever the side needs it for
    eBare,        ///< nothing but the calls
    eBurst        ///< CLink::sendBurst
};
/// What a message of so many batches costs to send, in ns of the processor, without the time in which the gateway
/// catches up.
double sendBatches(CLink& link, ESending how, int batches);

/// The time in us within which such a share of so many round trips came to their end, each with so many messages sent
/// before it that are not answered.
double roundTrip(CLink& link, double share, int count, int messagesBefore = 0);

/// A figure for each side and round.
using Figures = std::vector<Values>;

/// Sides that take turns, each with a gateway process of its own on the same processor.
class CSides
{
public:
    CSides(EProtocol protocol, int gatewayProcessor, int rounds)
        : m_protocol(protocol), m_gatewayProcessor(gatewayProcessor), m_rounds(rounds)
    {
    }
    using MakeLink = std::unique_ptr<CLink> (*)(EProtocol protocol, std::uint16_t port);
    CSides& add(MakeLink makeLink, const SLanguage& language = RM_LANGUAGE)
    {
        m_gateways.push_back(std::make_unique<CGatewayProcess>(m_protocol, m_gatewayProcessor, language));
        m_links.push_back(makeLink(m_protocol, m_gateways.back()->port()));
        return *this;
    }
    /// All rounds, after one that warms up.
    Figures measure(const std::function<double(CLink&)>& round) const;

private:
    const EProtocol m_protocol;
    const int m_gatewayProcessor;
    const int m_rounds;
    std::vector<std::unique_ptr<CGatewayProcess>> m_gateways;
    std::vector<std::unique_ptr<CLink>> m_links;
};

/// A quotient of two sides' figures, given by their indices.
struct SQuotient {
    std::size_t of;
    std::size_t to;
};

/// The table of a comparison: the figures of each side, and quotients.
class CComparison
{
public:
    /// `head` has a title, the sides, the quotients, "aim" and "load".
    CComparison(const std::vector<std::string>& head, std::vector<SQuotient> quotients)
        : m_table(head, 64), m_quotients(std::move(quotients))
    {
    }
    /// The medians, and how the quotients spread. The aim is for the first quotient. Where the figures depend on a
    /// quiet machine the load stands beside them.
    void add(const std::string& name, const Figures& figures, const SAim& aim = {}, bool needsQuiet = false) const;

private:
    CTable m_table;
    const std::vector<SQuotient> m_quotients;
};

} // namespace vexmor::Bench
