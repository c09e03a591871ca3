#include "apps/cli/options.h"

#include "apps/cli/exitCodes.h"
#include "apps/host/bitRates.h"
#include "apps/host/gatewayAddress.h"

#include <CLI/CLI.hpp>
#include <cstdio>

namespace vexmor::Apps
{

std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv,
                                    const std::function<void(const QString&)>& tell)
{
    if (argc == 1 && app.get_require_subcommand_min() > 0) {
        std::fputs(app.help().c_str(), stderr);
        return eWrongUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& wanted) { // --help, --version
        app.exit(wanted);
        return eDone;
    } catch (const CLI::Error& error) {
        const std::vector<std::string> unknown = app.remaining();
        const bool isCommand =
            app.get_require_subcommand_min() > 0 && app.get_subcommands().empty() && !unknown.empty();
        const std::string text = isCommand ? "there is no command '" + unknown.front() + "'" : error.what();
        tell(QStringLiteral("%1 (%2 --help tells what can be typed)").arg(textOf(text), textOf(app.get_name())));
        return eWrongUsage;
    }
    return std::nullopt;
}

QString textOf(const std::string& typed)
{
    return QString::fromLocal8Bit(typed.c_str());
}

COption& COption::required()
{
    m_option->required();
    return *this;
}

COption& COption::group(const char* title)
{
    m_option->group(title);
    return *this;
}

COption& COption::needs(const COption& other)
{
    m_option->needs(other.m_option);
    return *this;
}

COption& COption::several()
{
    m_option->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
    return *this;
}

COption& COption::address()
{
    m_option->transform(typedAddress());
    return *this;
}

COption& COption::bitRate()
{
    m_option->check(Apps::bitRate());
    return *this;
}

COption& COption::whole(int lowest, int highest)
{
    m_option->check(CLI::Range(lowest, highest).description(""));
    return *this;
}

COption& COption::oneOf(const std::vector<std::string>& choices)
{
    m_option->transform(CLI::IsMember(choices, CLI::ignore_case).description(""));
    return *this;
}

CLI::App& addSubcommand(CLI::App& app, const std::string& name, const std::string& help, std::function<void()> chosen)
{
    CLI::App& command = *app.add_subcommand(name, help);
    command.fallthrough();
    command.callback(std::move(chosen));
    return command;
}

void setFooter(CLI::App& app, const std::string& text)
{
    app.footer(text);
}

COption addFlag(CLI::App& app, const std::string& names, bool& value, const std::string& help)
{
    return app.add_flag(names, value, help);
}

COption addFlag(CLI::App& app, const std::string& names, std::function<void()> given, const std::string& help)
{
    return app.add_flag_callback(names, std::move(given), help);
}

COption addWhole(CLI::App& app, const std::string& names, int& value, int lowest, int highest, const std::string& help,
                 const std::string& type)
{
    return COption(app.add_option(names, value, help)->type_name(type)).whole(lowest, highest);
}

COption addNumber(CLI::App& app, const std::string& names, double& value, double lowest, double highest,
                  const std::string& help, const std::string& type)
{
    return app.add_option(names, value, help)->type_name(type)->check(numberFrom(lowest, highest));
}

COption addText(CLI::App& app, const std::string& names, QString& value, const std::string& help,
                const std::string& type)
{
    return addText(
        app, names, [&value](const QString& text) { value = text; }, help, type);
}

COption addText(CLI::App& app, const std::string& names, const std::function<void(const QString&)>& take,
                const std::string& help, const std::string& type)
{
    return app
        .add_option_function<std::string>(
            names, [take](const std::string& text) { take(textOf(text)); }, help)
        ->type_name(type);
}

COption addTexts(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                 const std::string& type)
{
    const auto take = [&values](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            values.append(textOf(text));
        }
    };
    return app.add_option_function<std::vector<std::string>>(names, take, help)
        ->allow_extra_args(false)
        ->type_name(type);
}

CLI::Validator typedAddress()
{
    const auto read = [](std::string& text) {
        const std::string address = plainAddress(textOf(text)).toStdString();
        if (address.empty()) {
            return "'" + text + "' is no address like 192.168.1.70";
        }
        text = address;
        return std::string();
    };
    return CLI::Validator(read, "");
}

CLI::Validator numberFrom(double lowest, double highest)
{
    const auto check = [lowest, highest](const std::string& text) {
        bool ok = false;
        const double value = textOf(text).toDouble(&ok);
        const QString fault = QStringLiteral("must be %1 to %2").arg(lowest, 0, 'g', 9).arg(highest, 0, 'g', 9);
        return ok && value >= lowest && value <= highest ? std::string() : fault.toStdString();
    };
    return CLI::Validator(check, "");
}

CLI::Validator bitRate()
{
    const auto check = [](const std::string& text) {
        return bitRates().contains(textOf(text))
                   ? std::string()
                   : "must be one of " + bitRates().join(QLatin1String(", ")).toStdString() + " kbit/s";
    };
    return CLI::Validator(check, "");
}

} // namespace vexmor::Apps
