#pragma once

#include "canlog/problem.h"

#include <QString>
#include <QStringList>

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Only options.cpp includes <CLI/CLI.hpp>, which takes long to compile.
namespace CLI
{
class App;
class Option;
} // namespace CLI

/// The command lines of the programs.
namespace vexmor::Apps
{

/// The command line of a program: --help, --version, and options added by the functions below.
class CCommandLine
{
public:
    CCommandLine(const std::string& program, const std::string& help);
    ~CCommandLine();
    operator CLI::App&() { return *m_app; }

    /// Adds an option that names a file of options, "name=value", one per line. Unknown option names in the file are
    /// wrong usage.
    void addConfigFile(const std::string& names, const std::string& help, const std::string& type);
    /// Parses the arguments. Returns an exit code if the program is to end: after --help and --version, and the result
    /// of `fail` after wrong usage.
    std::optional<int> parse(int argc, char** argv, const std::function<int(const SProblem&)>& fail);

private:
    std::unique_ptr<CLI::App> m_app;
};

/// An option of a command line. Its functions add properties to it.
class COption
{
public:
    COption(CLI::Option* option) : m_option(option) {}
    COption required() const;
    /// Shows the option below a title in the help.
    COption group(const char* title) const;
    /// Refuses a command line that has this option without the other option.
    COption needs(const COption& other) const;
    /// Refuses a command line that has this option and any of `others`.
    COption excludes(std::initializer_list<COption> others) const;
    /// Lets the option take several values at a time.
    COption several() const;
    /// Lets the option be given without a value, which is then empty.
    COption optionalValue() const;
    /// Shows a default value in the help.
    COption showDefault(const QString& text) const;

    // Restrictions of the value, which the help does not show.

    /// Accepts IPv4 addresses and removes leading zeros.
    COption address() const;
    /// Accepts bit rates of the CAN bus in kbit/s.
    COption bitRate() const;
    COption whole(int lowest, int highest) const;
    /// Accepts one of the choices in any case and replaces the value by it.
    COption oneOf(const std::vector<std::string>& choices) const;
    /// Accepts values for which `read` does not fail.
    COption check(const std::function<Failure(const QString&)>& read) const;

private:
    CLI::Option* m_option;
};

/// Adds a command and requires that one command is given. `chosen` is called if the user gives this command.
CLI::App& addSubcommand(CLI::App& app, const std::string& name, const std::string& help, std::function<void()> chosen);
/// Sets the text below the options in the help. A line that begins with a blank is not wrapped.
void setFooter(CLI::App& app, const std::string& text);
/// Adds command lines, for the user to copy, below the footer. Call `setFooter` first.
void addExamples(CLI::App& app, std::initializer_list<const char*> examples);

// In the functions below, `names` is like "-n,--count", or one word for a positional argument. The help shows `type` in
// place of the value. The variables must outlive the parsing.

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
/// Adds an option whose value is passed to `read`. A failure of `read` is wrong usage, and its text is printed
/// unchanged.
COption addValue(CLI::App& app, const std::string& names, const std::function<Failure(const QString&)>& read,
                 const std::string& help, const std::string& type);
/// Adds an option that may be given several times, with one value each.
COption addTexts(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                 const std::string& type = {});
/// Adds an option with a list of values, separated by commas. The help shows the present `values` as the default.
COption addList(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                const std::string& type);

} // namespace vexmor::Apps
