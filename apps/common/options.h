#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <string>

// Who defines options includes <CLI/CLI.hpp>: it takes seconds to compile.
namespace CLI
{
class App;
class Option;
class Validator;
} // namespace CLI

/// How the programs read what is typed.
namespace vexmor::Apps
{

/// Reads the command line. Gives the exit code when that was all (--help, --version, wrong usage, which `tell` gets a
/// line about).
std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv,
                                    const std::function<void(const QString&)>& tell);

/// Text as it was typed; bytes that are none in the user's locale are kept as they can be.
QString textOf(const std::string& typed);
CLI::Option* addText(CLI::App& app, const std::string& names, QString& value, const std::string& help,
                     const std::string& type = {});
/// One value each time it is given.
CLI::Option* addTexts(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                      const std::string& type = {});

/// For `transform`: an IPv4 address, which becomes one without leading zeros.
CLI::Validator typedAddress();
/// A number from `lowest` to `highest`. CLI::Range would let "nan" through.
CLI::Validator numberFrom(double lowest, double highest);
/// A whole number in this range, whose bounds the help does not repeat.
CLI::Validator wholeFrom(int lowest, int highest);
/// A bit rate of the CAN bus in kbit/s.
CLI::Validator bitRate();

} // namespace vexmor::Apps
