#include "apps/cli/options.h"

#include "apps/cli/exitCodes.h"
#include "apps/host/bitRates.h"
#include "apps/host/gatewayAddress.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <sstream>
#include <utility>

namespace vexmor::Apps
{
namespace
{
/// Returns a text that was typed, decoded by the user's locale.
QString textOf(const std::string& typed)
{
    return QString::fromLocal8Bit(typed.c_str());
}

/// Returns a value of the command line as text. Bytes that are not text in the user's locale are refused, because they
/// would name a different file.
QString valueOf(const std::string& typed)
{
    QString text = textOf(typed);
    if (text.toLocal8Bit() != typed.c_str()) {
        throw CLI::ValidationError("'" + text.toStdString() +
                                   "': the name is not in UTF-8; rename the file or link to it");
    }
    return text;
}

// The functions below format the help. Otherwise it would differ between versions of the parser, and packaging/fromHelp
// could not read it.
constexpr std::size_t TEXT_COLUMN = 30;
constexpr std::size_t COLUMNS = 80;

/// Returns the text in lines of at most 80 columns, broken between words. All lines except the first are indented by
/// this number of blanks. Lines that begin with a blank are not changed.
std::string wrapped(const std::string& text, std::size_t indent = 0)
{
    std::string result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line); result += '\n') {
        if (line.rfind(' ', 0) == 0) {
            result += line;
            continue;
        }
        std::istringstream words(line);
        std::size_t column = indent;
        for (std::string word; words >> word; column += word.size()) {
            const bool isFirst = column == indent;
            if (!isFirst && column + 1 + word.size() > COLUMNS) {
                result += '\n' + std::string(indent, ' ');
                column = indent;
            } else if (!isFirst) {
                result += ' ';
                ++column;
            }
            result += word;
        }
    }
    return result;
}

/// Returns an option or command and, from TEXT_COLUMN on, its description; the description has a line of its own if
/// there is no room in the first.
std::string helpLine(const std::string& typed, const std::string& text)
{
    const std::string left = "  " + typed;
    const bool fits = left.size() < TEXT_COLUMN;
    const std::string gap(TEXT_COLUMN - (fits ? left.size() : 0), ' ');
    return left + (fits ? "" : "\n") + gap + wrapped(text, TEXT_COLUMN);
}

bool takesSeveral(const CLI::Option& option)
{
    return option.get_expected_max() >= CLI::detail::expected_max_vector_size;
}

std::string typedOf(const CLI::Option& option)
{
    std::string text = option.get_name(option.get_positional(), !option.get_positional());
    if (option.get_items_expected_max() > 0) { // not a flag
        const std::string type = option.get_type_name();
        const std::string value = option.get_default_str();
        text += (type.empty() ? "" : " " + type) + (value.empty() ? "" : "=" + value);
        text += takesSeveral(option) ? " ..." : "";
        text += option.get_required() ? " REQUIRED" : "";
    }
    return text;
}

std::string descriptionOf(const CLI::Option& option)
{
    std::string text = option.get_description();
    for (const CLI::Option* const needed : option.get_needs()) {
        text += " (requires " + needed->get_name() + ")";
    }
    return text;
}

/// Returns a title and the options of a kind; empty if there are none.
std::string helpSection(const CLI::App& app, const std::string& title,
                        const std::function<bool(const CLI::Option*)>& isMeant)
{
    std::string lines;
    for (const CLI::Option* const option : app.get_options(isMeant)) {
        lines += helpLine(typedOf(*option), descriptionOf(*option));
    }
    return lines.empty() ? lines : "\n" + title + ":\n" + lines;
}

std::string usageOf(const CLI::App& app, const std::string& name)
{
    std::string text = "Usage: " + name + " [OPTIONS]";
    for (const CLI::Option* const option : app.get_options([](auto* one) { return one->get_positional(); })) {
        const std::string typed = option->get_name(true) + (takesSeveral(*option) ? "..." : "");
        text += option->get_required() ? " " + typed : " [" + typed + "]";
    }
    return text + (app.get_require_subcommand_min() > 0 ? " SUBCOMMAND\n" : "\n");
}

std::string helpOf(const CLI::App* app, const std::string& name, CLI::AppFormatMode /*mode*/)
{
    std::string text = wrapped(app->get_description()) + usageOf(*app, name);
    text += helpSection(*app, "Positionals", [](auto* option) { return option->get_positional(); });
    const std::string defaultGroup = CLI::OptionDefaults().get_group(); // its name depends on the parser's version
    for (const std::string& group : app->get_groups()) {
        const auto isMeant = [&](auto* option) { return !option->get_positional() && option->get_group() == group; };
        text += helpSection(*app, group == defaultGroup ? "Options" : group, isMeant);
    }
    std::string commands;
    for (const CLI::App* const command : app->get_subcommands([](auto* /*any*/) { return true; })) {
        commands += helpLine(command->get_name(), command->get_description());
    }
    text += commands.empty() ? commands : "\nSubcommands:\n" + commands;
    return text + (app->get_footer().empty() ? "" : '\n' + wrapped(app->get_footer()));
}

/// Replaces yes and no, in one of their usual forms, by "true" and "false". Returns false for any other text.
bool readAnswer(std::string& text)
{
    static const std::map<std::string, std::string> ANSWERS = {{"true", "true"}, {"yes", "true"},   {"on", "true"},
                                                               {"1", "true"},    {"no", "false"},   {"off", "false"},
                                                               {"0", "false"},   {"false", "false"}};
    return CLI::CheckedTransformer(ANSWERS, CLI::ignore_case)(text).empty();
}

/// Returns a validator for flags. The parser itself accepts many other texts for yes and no.
CLI::Validator isAnswer()
{
    const auto read = [](std::string& text) {
        return readAnswer(text) ? std::string() : "'" + text + "' is neither true nor false";
    };
    return CLI::Validator(read, "");
}

/// Reads files of options. The parser itself would take an empty value of a flag for yes.
class COptionFile : public CLI::ConfigTOML
{
public:
    std::string to_flag(const CLI::ConfigItem& item) const override
    {
        std::string text = CLI::detail::join(item.inputs, ",");
        if (text.empty() || text == "{}") {
            throw CLI::ConversionError(item.fullname() + " has no value");
        }
        readAnswer(text); // leaves any other text to the validator of the option
        return text;
    }
};
} // namespace

CCommandLine::CCommandLine(const std::string& program, const std::string& help)
    : m_app(std::make_unique<CLI::App>(help, program))
{
    m_app->formatter_fn(helpOf);
    m_app->set_help_flag("-h,--help", "Print this help and exit");
    m_app->set_version_flag("--version", program + " " CIM_VERSION, "Print the version and exit");
}

CCommandLine::~CCommandLine() = default;

void CCommandLine::addConfigFile(const std::string& names, const std::string& help, const std::string& type)
{
    m_app->set_config(names, "", help)->type_name(type);
    m_app->config_formatter(std::make_shared<COptionFile>());
    m_app->allow_config_extras(CLI::config_extras_mode::error);
}

std::optional<int> CCommandLine::parse(int argc, char** argv, const std::function<int(const SProblem&)>& fail)
{
    const bool needsCommand = m_app->get_require_subcommand_min() > 0;
    if (argc == 1 && needsCommand) {
        std::fputs(m_app->help().c_str(), stderr);
        return eWrongUsage;
    }
    try {
        m_app->parse(argc, argv);
    } catch (const CLI::Success& wanted) { // --help, --version
        m_app->exit(wanted);
        return eDone;
    } catch (const CLI::Error& error) {
        const std::vector<std::string> unknown = m_app->remaining();
        const std::vector<CLI::App*> commands = m_app->get_subcommands();
        const bool isCommand = needsCommand && commands.empty() && !unknown.empty();
        const std::string text = isCommand ? "unknown command '" + unknown.front() + "'" : error.what();
        const std::string typed = m_app->get_name() + (commands.empty() ? "" : ' ' + commands.front()->get_name());
        return fail(wrongUsage(QStringLiteral("%1 (see %2 --help)").arg(textOf(text), textOf(typed))));
    }
    return std::nullopt;
}

COption COption::required() const
{
    return m_option->required();
}

COption COption::group(const char* title) const
{
    return m_option->group(title);
}

COption COption::needs(const COption& other) const
{
    return m_option->needs(other.m_option);
}

COption COption::excludes(std::initializer_list<COption> others) const
{
    for (const COption& other : others) {
        m_option->excludes(other.m_option);
    }
    return *this;
}

COption COption::several() const
{
    return m_option->expected(1, CLI::detail::expected_max_vector_size)->allow_extra_args();
}

COption COption::optionalValue() const
{
    return m_option->expected(0, 1);
}

COption COption::showDefault(const QString& text) const
{
    return m_option->default_str(text.toStdString());
}

COption COption::check(const std::function<Failure(const QString&)>& read) const
{
    const auto fault = [read](const std::string& text) {
        const Failure failure = read(textOf(text));
        return failure ? failure->text.toStdString() : std::string();
    };
    return m_option->transform(CLI::Validator(fault, "")); // runs before those that were added earlier
}

COption COption::address() const
{
    const auto read = [](std::string& text) {
        const std::string typed = std::exchange(text, plainAddress(textOf(text)).toStdString());
        return text.empty() ? "'" + typed + "' is not an address like 192.168.1.70" : std::string();
    };
    return m_option->transform(CLI::Validator(read, ""));
}

COption COption::bitRate() const
{
    return check([](const QString& text) {
        const QString fault = QStringLiteral("must be one of %1 kbit/s").arg(bitRates().join(QLatin1String(", ")));
        return bitRates().contains(text) ? Failure() : wrongUsage(fault);
    });
}

COption COption::whole(int lowest, int highest) const
{
    return m_option->check(CLI::Range(lowest, highest).description(""));
}

COption COption::oneOf(const std::vector<std::string>& choices) const
{
    return m_option->transform(CLI::IsMember(choices, CLI::ignore_case).description(""));
}

CLI::App& addSubcommand(CLI::App& app, const std::string& name, const std::string& help, std::function<void()> chosen)
{
    app.require_subcommand(1);
    CLI::App& command = *app.add_subcommand(name, help);
    command.fallthrough();
    command.callback(std::move(chosen));
    return command;
}

void setFooter(CLI::App& app, const std::string& text)
{
    app.footer(text);
}

void addExamples(CLI::App& app, std::initializer_list<const char*> examples)
{
    std::string text = "Examples:";
    for (const char* const example : examples) {
        text += std::string("\n  ") + example;
    }
    const std::string before = app.get_footer();
    app.footer((before.empty() ? before : before + "\n\n") + text);
}

COption addFlag(CLI::App& app, const std::string& names, bool& value, const std::string& help)
{
    return app.add_flag(names, value, help)->transform(isAnswer());
}

COption addFlag(CLI::App& app, const std::string& names, std::function<void()> given, const std::string& help)
{
    return app.add_flag_callback(names, std::move(given), help)->transform(isAnswer());
}

COption addWhole(CLI::App& app, const std::string& names, int& value, int lowest, int highest, const std::string& help,
                 const std::string& type)
{
    return COption(app.add_option(names, value, help)->type_name(type)).whole(lowest, highest);
}

COption addNumber(CLI::App& app, const std::string& names, double& value, double lowest, double highest,
                  const std::string& help, const std::string& type)
{
    const auto check = [=](const QString& text) { // CLI::Range accepts "nan"
        bool ok = false;
        const double number = text.toDouble(&ok);
        const QString fault = QStringLiteral("must be %1 to %2").arg(lowest, 0, 'g', 9).arg(highest, 0, 'g', 9);
        return ok && number >= lowest && number <= highest ? Failure() : wrongUsage(fault);
    };
    return COption(app.add_option(names, value, help)->type_name(type)).check(check);
}

COption addText(CLI::App& app, const std::string& names, QString& value, const std::string& help,
                const std::string& type)
{
    return addText(
        app, names, [&value](const QString& text) { value = text; }, help, type);
}

COption addValue(CLI::App& app, const std::string& names, const std::function<Failure(const QString&)>& read,
                 const std::string& help, const std::string& type)
{
    const auto take = [read](const QString& text) {
        if (const Failure failure = read(text)) {
            throw CLI::ValidationError(failure->text.toStdString());
        }
    };
    return addText(app, names, take, help, type);
}

COption addText(CLI::App& app, const std::string& names, const std::function<void(const QString&)>& take,
                const std::string& help, const std::string& type)
{
    return app
        .add_option_function<std::string>(
            names, [take](const std::string& text) { take(valueOf(text)); }, help)
        ->type_name(type);
}

COption addTexts(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                 const std::string& type)
{
    const auto take = [&values](const std::vector<std::string>& texts) {
        values.clear();
        for (const std::string& text : texts) {
            values.append(valueOf(text));
        }
    };
    return app.add_option_function<std::vector<std::string>>(names, take, help)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name(type);
}

COption addList(CLI::App& app, const std::string& names, QStringList& values, const std::string& help,
                const std::string& type)
{
    const COption list = addTexts(app, names, values, help, type).several();
    app.get_option(names)->delimiter(',');
    return list.showDefault(QLatin1Char('[') + values.join(QLatin1Char(',')) + QLatin1Char(']'));
}

} // namespace vexmor::Apps
