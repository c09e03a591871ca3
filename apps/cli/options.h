#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>
#include <string>
#include <vector>

// Not <CLI/CLI.hpp>, which takes longer to compile than all the rest: who needs more than stands here includes it.
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

/// An option that was added to a parser, to say more of it.
class COption
{
public:
    COption(CLI::Option* option) : m_option(option) {}
    COption& required();
    COption& group(const char* title);
    COption& needs(const COption& other);
    /// Takes several values at a time.
    COption& several();
    // What it may be; the help does not repeat it.
    COption& address(); ///< IPv4, which becomes one without leading zeros
    COption& bitRate(); ///< of the CAN bus, kbit/s
    COption& whole(int lowest, int highest);
    COption& oneOf(const std::vector<std::string>& choices); ///< becomes one of these, whatever its case

private:
    CLI::Option* m_option;
};

CLI::App& addSubcommand(CLI::App& app, const std::string& name, const std::string& help, std::function<void()> chosen);
void setFooter(CLI::App& app, const std::string& text);
COption addFlag(CLI::App& app, const std::string& names, bool& value, const std::string& help);
COption addFlag(CLI::App& app, const std::string& names, std::function<void()> given, const std::string& help);
COption addWhole(CLI::App& app, const std::string& names, int& value, int lowest, int highest, const std::string& help,
                 const std::string& type = "N");
COption addNumber(CLI::App& app, const std::string& names, double& value, double lowest, double highest,
                  const std::string& help, const std::string& type);
COption addText(CLI::App& app, const std::string& names, QString& value, const std::string& help,
                const std::string& type = {});
COption addText(CLI::App& app, const std::string& names, const std::function<void(const QString&)>& take,
                const std::string& help, const std::string& type);
/// One value each time it is given.
COption addTexts(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                 const std::string& type = {});

/// For `transform`: an IPv4 address, which becomes one without leading zeros.
CLI::Validator typedAddress();
/// A number from `lowest` to `highest`. CLI::Range would let "nan" through.
CLI::Validator numberFrom(double lowest, double highest);
/// A bit rate of the CAN bus in kbit/s.
CLI::Validator bitRate();

} // namespace vexmor::Apps
