#include "render/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "render/audio/whole_write.h"
#include "render/failure.h"

namespace {

class HelpFormatter final : public CLI::Formatter {
public:
    // Removes the value that CLI11 puts behind the name of an option that turns a switch off.
    std::string make_option_name(const CLI::Option* option, bool positional) const override {
        std::string name = CLI::Formatter::make_option_name(option, positional);
        const std::string value = "{false}";
        if (const size_t at = name.find(value); at != std::string::npos)
            name.erase(at, value.size());
        return name;
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        return option->get_positional() ? "" : CLI::Formatter::make_option_opts(option);
    }
    std::string make_option_desc(const CLI::Option* option) const override {
        return Wrapped(option->get_description(), kHelpColumns - kHelpNameColumns, "\n");
    }
};

// Throws UsageError if no command has the name. Without this check, CLI11 would list a misspelt
// command among all arguments that it didn't expect.
void CheckCommand(const CLI::App& program, const std::vector<std::string>& arguments) {
    const auto name = std::find_if(arguments.begin(), arguments.end(),
                                   [](const auto& one) { return !one.starts_with('-'); });
    std::string known;
    for (const CLI::App* const command : program.get_subcommands({})) {
        if (name == arguments.end() || command->get_name() == *name) return;
        known += " " + command->get_name();
    }
    throw UsageError("no command is called \"{}\"; the commands are{}", *name, known);
}

// Throws UsageError if an option has an empty value. No file, number or curve can be empty, so a
// variable of the caller's script was probably not set.
void RefuseEmptyValues(const std::vector<std::string>& arguments) {
    // The parser takes "--match=" as "--match".
    for (const std::string& argument : arguments) {
        if (argument == "--") return;
        if (argument.starts_with("--") && argument.find('=') == argument.size() - 1)
            throw UsageError("{} is empty", argument.substr(0, argument.size() - 1));
    }
}
void RefuseEmpty(const CLI::App& program) {
    for (const CLI::App* const command : program.get_subcommands())
        for (const CLI::Option* const option : command->get_options())
            for (const std::string& value : option->results())
                if (value.empty()) throw UsageError("{} is empty", option->get_name());
}

}  // namespace

const Option& Option::Required() const {
    option->required();
    return *this;
}

const Option& Option::Type(const char* word) const {
    option->type_name(word);
    return *this;
}

const Option& Option::Within(int lowest, int highest) const {
    option->check(CLI::Range(lowest, highest));
    return *this;
}

const Option& Option::Within(uint32_t lowest, uint32_t highest) const {
    option->check(CLI::Range(lowest, highest));
    return *this;
}

const Option& Option::ShowDefault() const {
    option->capture_default_str();
    return *this;
}

const Option& Option::Hide() const {
    option->group("");
    return *this;
}

Option Options::Added(CLI::Option* option) const {
    if (!group.empty()) option->group(group);
    return Option(*option);
}

Option Options::Add(const std::string& names, std::string* value, const std::string& help) {
    return Added(app->add_option(names, *value, help));
}

Option Options::Add(const std::string& names, uint32_t* value, const std::string& help) {
    return Added(app->add_option(names, *value, help));
}

Option Options::Add(const std::string& names, double* value, const std::string& help) {
    return Added(app->add_option(names, *value, help));
}

Option Options::Add(const std::string& names, std::vector<std::string>* values,
                    const std::string& help) {
    return Added(app->add_option(names, *values, help));
}

Option Options::Add(const std::string& names, const std::function<void(const std::string&)>& take,
                    const std::string& help) {
    return Added(app->add_option_function<std::string>(names, take, help));
}

Option Options::AddRepeated(const std::string& names, std::function<void(const std::string&)> take,
                            const std::string& help) {
    const auto takeAll = [take = std::move(take)](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) take(text);
    };
    return Added(app->add_option_function<std::vector<std::string>>(names, takeAll, help)
                     ->allow_extra_args(false));
}

Option Options::AddFlag(const std::string& names, bool* value, const std::string& help) {
    return Added(app->add_flag(names, *value, help));
}

Option Options::AddFlag(const std::string& names, std::string* value, const std::string& help) {
    return Added(app->add_flag(names, *value, help));
}

Option Options::AddSwitch(const std::string& names, std::function<void(bool)> take,
                          const std::string& help) {
    return Added(app->add_flag_function(
        names, [take = std::move(take)](int64_t count) { take(count > 0); }, help));
}

Option Options::AddPrinting(const std::string& names, std::function<std::string()> text,
                            const std::string& help) {
    const auto print = [text = std::move(text)] {
        PrintToStandardOutput(text());
        throw CLI::Success();  // so that required options may be missing
    };
    return Added(app->add_flag_callback(names, print, help));
}

Options Options::Group(const std::string& title) const {
    Options options = *this;
    options.group = title;
    return options;
}

Options Options::AddCommand(const std::string& name, const std::string& description) {
    return Options(*app->add_subcommand(name, description));
}

bool Options::IsAsked() const {
    return app->parsed();
}

std::string Options::Name() const {
    return app->get_name();
}

std::string Options::Description() const {
    return app->get_description();
}

std::string Options::Usage(const std::string& name) const {
    std::string usage = HelpFormatter().make_usage(app, name);
    usage.pop_back();
    return usage;
}

std::vector<Options> Options::Commands() const {
    std::vector<Options> commands;
    for (CLI::App* const command : app->get_subcommands({})) commands.emplace_back(*command);
    return commands;
}

std::vector<OptionText> Options::Shown() const {
    const HelpFormatter formatter;
    std::vector<OptionText> shown;
    for (const CLI::Option* const option : app->get_options()) {
        if (option->get_group().empty()) continue;
        const bool positional = option->get_positional();
        OptionText text{positional,
                        formatter.make_option_name(option, positional),
                        formatter.make_option_opts(option),
                        option->get_description(),
                        {}};
        for (const std::string& name : option->get_lnames()) text.words.push_back("--" + name);
        for (const std::string& name : option->get_snames()) text.words.push_back("-" + name);
        shown.push_back(std::move(text));
    }
    return shown;
}

CommandLine::CommandLine(const char* name, const char* description, const std::string& footer)
    : Options(*new CLI::App(description, name)), program(app) {
    const auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(kHelpNameColumns);
    // The commands inherit formatter and footer.
    app->formatter(formatter);
    app->footer(footer);
    app->require_subcommand(1);
}

CommandLine::~CommandLine() = default;

void CommandLine::AddVersion(const std::string& text) {
    app->set_version_flag("--version", text);
}

bool CommandLine::Parse(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    try {
        CheckCommand(*app, arguments);
        RefuseEmptyValues(arguments);
        app->parse(argc, argv);
        RefuseEmpty(*app);
        return true;
    } catch (const CLI::Success& success) {
        std::ostringstream text;
        app->exit(success, text, text);
        PrintToStandardOutput(text.str());
        return false;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    } catch (const std::invalid_argument& error) {  // CLI11 throws it for a wrong value of a switch
        throw UsageError(error.what());
    }
}

std::string Wrapped(const std::string& text, size_t columns, const std::string& separator) {
    std::string wrapped;
    size_t column = 0;
    std::istringstream words(text);
    for (std::string word; words >> word; column += word.size()) {
        if (column > 0 && column + 1 + word.size() > columns) {
            wrapped += separator;
            column = 0;
        } else if (column > 0) {
            wrapped += ' ';
            ++column;
        }
        wrapped += word;
    }
    return wrapped;
}

bool ReadNumber(const std::string& text, double* number) {
    return CLI::detail::lexical_cast(text, *number);
}
