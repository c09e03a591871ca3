#pragma once

#include "canlog/problem.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// The rules that allow clients to send. Without a rule, clients may send nothing.
class CSendRules
{
public:
    /// Adds rules, separated by commas: PROTOCOL[:BUS[:FIRST[-LAST]]], where "*" means all protocols or all buses, and
    /// FIRST and LAST are hexadecimal identifiers. "true" allows everything, "false" adds nothing. Fails at the first
    /// text that is not a rule.
    Failure add(const QString& text);
    /// Returns the reason why clients of a protocol may not send an identifier on a bus, or no failure when they may.
    Failure problem(const QString& protocol, const QString& bus, std::uint16_t id) const;

private:
    struct SRule {
        QString protocol;
        QString bus;
        std::uint16_t first;
        std::uint16_t last;
    };
    std::vector<SRule> m_rules;
};

/// The permission of clients to send, as the user configured it.
struct SSendPermission {
    CSendRules rules;
    int messagesPerSecond = 0; ///< Limit for each client on each bus; 0: no limit.
    bool isPinned = false;     ///< Messages are sent only to the known gateway.
};

} // namespace vexmor::Apps::Cimshare
