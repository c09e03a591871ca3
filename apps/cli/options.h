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

// Not <CLI/CLI.hpp>, which takes longer to compile than all the rest: options.cpp alone includes it.
namespace CLI
{
class App;
class Option;
} // namespace CLI

/// How the programs read what is typed.
namespace vexmor::Apps
{

/// The command line of a program: --help, --version and what is added to it by the functions below.
class CCommandLine
{
public:
    CCommandLine(const std::string& program, const std::string& help);
    ~CCommandLine();
    operator CLI::App&() { return *m_app; }

    /// Adds an option that names a file of options, "name=value", one per line. Unknown names are wrong usage.
    void addConfigFile(const std::string& names, const std::string& help, const std::string& type);
    /// Returns the exit code when nothing is left to do: after --help and --version, and that of `fail` after wrong
    /// usage.
    std::optional<int> parse(int argc, char** argv, const std::function<int(const SProblem&)>& fail);

private:
    std::unique_ptr<CLI::App> m_app;
};

/// An option that was added to a command line, with what else is to be said of it.
class COption
{
public:
    COption(CLI::Option* option) : m_option(option) {}
    COption required() const;
    COption group(const char* title) const;
    COption needs(const COption& other) const;
    /// May not be given together with any of these.
    COption excludes(std::initializer_list<COption> others) const;
    /// Takes several values at a time.
    COption several() const;
    /// May be given without a value, which is then empty.
    COption optionalValue() const;
    /// The help shows the value that it has without the option.
    COption showDefault(const QString& text) const;
    // What it may be; the help does not repeat it, but for the name of `check`.
    COption address() const; ///< IPv4, which becomes one without leading zeros
    COption bitRate() const; ///< of the CAN bus, kbit/s
    COption whole(int lowest, int highest) const;
    COption oneOf(const std::vector<std::string>& choices) const; ///< becomes one of these, whatever its case
    COption check(const std::function<Failure(const QString&)>& read, const std::string& name = {}) const;

private:
    CLI::Option* m_option;
};

/// Adds a command, one of which is to be typed.
CLI::App& addSubcommand(CLI::App& app, const std::string& name, const std::string& help, std::function<void()> chosen);
/// What the help says below the options. A line that begins with a blank is not wrapped.
void setFooter(CLI::App& app, const std::string& text);
/// Command lines to copy, below the footer, which is to be set before.
void addExamples(CLI::App& app, std::initializer_list<const char*> examples);
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
/// Reads the text; a problem is wrong usage, and printed as it is.
COption addValue(CLI::App& app, const std::string& names, const std::function<Failure(const QString&)>& read,
                 const std::string& help, const std::string& type);
/// One value each time it is given.
COption addTexts(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                 const std::string& type = {});
/// Values in one, with commas between them. The help shows those that it has without the option.
COption addList(CLI::App& app, const std::string& names, QStringList& values, const std::string& help);

} // namespace vexmor::Apps
