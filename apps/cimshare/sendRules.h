#pragma once

#include "canlog/problem.h"

#include <QString>

#include <cstdint>
#include <vector>

namespace vexmor::Apps::Cimshare
{

/// Rules for what clients may send. Without a rule they may send nothing.
class CSendRules
{
public:
    /// Adds rules, with commas between them: PROTOCOL[:BUS[:FIRST[-LAST]]], where "*" stands for each protocol or bus,
    /// and identifiers are hexadecimal. "true" allows everything, "false" adds nothing.
    Failure add(const QString& text);
    /// Returns why clients of a protocol may not send an identifier on a bus, or nothing.
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

/// What the user lets clients send.
struct SSendPermission {
    CSendRules rules;
    int messagesPerSecond = 0; ///< Of one client on one bus; 0: no limit.
    bool isPinned = false;     ///< To no other gateway than the known one.
};

} // namespace vexmor::Apps::Cimshare
