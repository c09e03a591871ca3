#include "apps/cimshare/sendRules.h"

#include <QRegularExpression>

#include <algorithm>

namespace vexmor::Apps::Cimshare
{
namespace
{
constexpr int HEX = 16;
const QString ANY = QStringLiteral("*");
} // namespace

/// The name of a bus may contain colons: the protocol ends at the first colon, the identifiers begin after the last
/// one.
Failure CSendRules::add(const QString& text)
{
    static const QRegularExpression RULE(QStringLiteral(
        R"(^(socketcand|t93|mqtt|\*)(:([^:]+|.+(?=:[^:]*$))(:([0-7]?[0-9A-Fa-f]{1,2})(-([0-7]?[0-9A-Fa-f]{1,2}))?)?)?$)"));
    for (const QString& one : text.split(QLatin1Char(','))) {
        const auto rule = RULE.match(one == QLatin1String("true") ? ANY : one);
        const auto part = [&rule](int group, const QString& otherwise) {
            return rule.capturedLength(group) > 0 ? rule.captured(group) : otherwise;
        };
        const SRule read{rule.captured(1), part(3, ANY), part(5, QString()).toUShort(nullptr, HEX),
                         part(7, part(5, QStringLiteral("7FF"))).toUShort(nullptr, HEX)};
        if (rule.hasMatch() && read.first <= read.last) {
            m_rules.push_back(read);
        } else if (one != QLatin1String("false")) {
            return wrongUsage(
                QStringLiteral("'%1' is not a rule like mqtt:hall:100-1FF; a TARGET stands before --allow-send")
                    .arg(one));
        }
    }
    return {};
}

Failure CSendRules::problem(const QString& protocol, const QString& bus, std::uint16_t id) const
{
    const auto allows = [&](const SRule& rule) {
        return (rule.protocol == ANY || rule.protocol == protocol) && (rule.bus == ANY || rule.bus == bus) &&
               rule.first <= id && id <= rule.last;
    };
    if (std::any_of(m_rules.begin(), m_rules.end(), allows)) {
        return {};
    }
    return m_rules.empty() ? SProblem{QStringLiteral("sending is not allowed (--allow-send)")}
                           : SProblem{QString::asprintf("sending %03X is not allowed (--allow-send)", id)};
}

} // namespace vexmor::Apps::Cimshare
