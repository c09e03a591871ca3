#pragma once

#include "sim/commandLine.h"

#include <CLI/CLI.hpp>

#include <string>

/// Checks of what is typed, for the programs of a command line.
namespace vexmor::Sim
{

/// For `transform`: an IPv4 address, which becomes one without leading zeros.
inline CLI::Validator typedAddress()
{
    const auto read = [](std::string& text) {
        const std::string address = plainAddress(QString::fromStdString(text)).toStdString();
        if (address.empty()) {
            return "'" + text + "' is no address like 192.168.1.70";
        }
        text = address;
        return std::string();
    };
    return CLI::Validator(read, "");
}

/// A number from `lowest` to `highest`. CLI::Range would let "nan" through.
inline CLI::Validator numberFrom(double lowest, double highest)
{
    const auto check = [lowest, highest](const std::string& text) {
        bool ok = false;
        const double value = QString::fromStdString(text).toDouble(&ok);
        const QString fault = QStringLiteral("must be %1 to %2").arg(lowest, 0, 'g', 9).arg(highest, 0, 'g', 9);
        return ok && value >= lowest && value <= highest ? std::string() : fault.toStdString();
    };
    return CLI::Validator(check, "");
}

} // namespace vexmor::Sim
