#include "bench/comparison.h"

#include <QCoreApplication>

#include <stdexcept>

namespace vexmor::Bench
{
namespace
{
const SMessage ECHOED{ID_ECHO, {}};
const SMessage SWALLOWED{ID_SWALLOW, {1, 2, 3, 4, 5, 6, 7, 8}};

/// Sends a request and takes what it asks for.
void exchange(CLink& link, const SMessage& request, int answers, std::uint64_t sum)
{
    link.send(request);
    if (link.receive(answers) != sum) {
        throw std::runtime_error("the messages are not those that the gateway sent");
    }
}

void sendBatch(CLink& link, ESending how)
{
    if (how == ESending::eBurst) {
        link.sendBurst(SWALLOWED, SEND_BATCH);
        return;
    }
    repeat(SEND_BATCH, [&] {
        link.send(SWALLOWED);
        if (how == ESending::eEachInATurn) {
            QCoreApplication::processEvents();
        }
    });
}
} // namespace

SCost receiveBursts(CLink& link, int bursts, int frames)
{
    const SMessage request{ID_BURST, {static_cast<std::uint8_t>(frames >> 8), static_cast<std::uint8_t>(frames)}};
    std::uint64_t sum = 0;
    for (int number = 0; number < frames; ++number) {
        sum += lookAt(burstMessage(number));
    }
    return costOf([&] { repeat(bursts, [&] { exchange(link, request, frames, sum); }); }) / (bursts * frames);
}

double sendBatches(CLink& link, ESending how, int batches)
{
    double cpu = 0;
    repeat(batches, [&] {
        exchange(link, ECHOED, 1, lookAt(ECHOED)); // until the gateway has read everything
        cpu += costOf([&] { sendBatch(link, how); }).cpu;
    });
    return cpu / (batches * SEND_BATCH);
}

double roundTrip(CLink& link, double share, int count, int messagesBefore)
{
    Values times;
    repeat(count, [&] {
        const SCost cost = costOf([&] {
            repeat(messagesBefore, [&] { link.send(SWALLOWED); });
            exchange(link, ECHOED, 1, lookAt(ECHOED));
        });
        times.push_back(cost.wall / 1000);
    });
    return quantile(times, share);
}

Figures CSides::measure(const std::function<double(CLink&)>& round) const
{
    Figures figures(m_links.size());
    for (int number = 0; number <= m_rounds; ++number) {
        for (std::size_t side = 0; side < m_links.size(); ++side) {
            const double value = round(*m_links[side]);
            if (number > 0) {
                figures[side].push_back(value);
            }
        }
    }
    return figures;
}

void CComparison::add(const std::string& name, const Figures& figures, const SAim& aim, bool needsQuiet) const
{
    std::vector<std::string> cells{name};
    for (const Values& side : figures) {
        cells.push_back(side.empty() ? "" : figure(median(side)));
    }
    for (const auto& [of, to] : m_quotients) {
        cells.push_back(spread(ratios(figures[of], figures[to])));
    }
    const auto& [of, to] = m_quotients.front();
    cells.push_back(verdict(aim, ratios(figures[of], figures[to])));
    cells.push_back(needsQuiet ? loadAverage() : "");
    m_table.add(cells);
}

} // namespace vexmor::Bench
