#include "render/manual.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "client/presets.h"
#include "render/audio/whole_write.h"
#include "render/info_command.h"

namespace {

constexpr size_t kColumns = 100;
constexpr size_t kNameColumns = 34;

constexpr const char* kExamples[] = {
    "orvane render song.flac louder.flac --preset loud --picture louder.png",
    "orvane render song.mp3 - --tone 60:6,200:0,8000:3 | aplay",
    "parallel orvane render -q --skip-existing {} {.}-night.flac --preset night ::: *.wav"};

// Lines of at most so many columns, with `separator` between them.
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

class HelpFormatter final : public CLI::Formatter {
public:
    // An option that undoes a switch, without the value that CLI11 puts behind it.
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
        return Wrapped(option->get_description(), kColumns - kNameColumns, "\n");
    }
};

std::string Footer() {
    const std::string indent = "\n" + std::string(kNameColumns, ' ');
    std::string text = "Presets (--list-presets prints their settings, too):\n";
    for (const Preset& preset : Presets())
        text += fmt::format(
            "{:{}}{}\n",
            fmt::format("  {}{}", preset.name, &preset == &Presets().front() ? " (default)" : ""),
            kNameColumns, Wrapped(preset.description, kColumns - kNameColumns, indent));
    text += "\nExamples:\n";
    for (const char* const example : kExamples) text += fmt::format("  {}\n", example);
    text.pop_back();
    return text;
}

// Text as roff takes it: a hyphen would become a typographer's, a control character at the start of
// a line a request.
std::string Roff(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '-' || c == '\\') escaped += '\\';
        escaped += c == '\\' ? 'e' : c;
    }
    return escaped.starts_with('.') || escaped.starts_with('\'') ? "\\&" + escaped : escaped;
}

std::vector<const CLI::Option*> ShownOptions(const CLI::App& command) {
    return command.get_options(
        [](const CLI::Option* option) { return !option->get_group().empty(); });
}

// The commands after the first don't say again what it said.
std::string ManOptions(const CLI::App& command, std::set<std::string>* said) {
    const HelpFormatter formatter;
    std::string text, repeated;
    for (const CLI::Option* option : ShownOptions(command)) {
        const bool positional = option->get_positional();
        const std::string name = formatter.make_option_name(option, positional);
        if (!positional && !said->insert(name + option->get_description()).second) {
            repeated += (repeated.empty() ? "" : ", ") + name;
            continue;
        }
        text += fmt::format(".TP\n.B {}\n{}\n", Roff(name + formatter.make_option_opts(option)),
                            Roff(option->get_description()));
    }
    if (!repeated.empty()) text += fmt::format(".PP\nAs above: {}.\n", Roff(repeated));
    return text;
}

std::string ManPage(const CLI::App& program) {
    std::string text = fmt::format(
        ".TH ORVANE 1 \"\" \"orvane {}\" \"User Commands\"\n.SH NAME\norvane \\- render audio "
        "files "
        "through the Quenthra Orvane effect\n.SH SYNOPSIS\n.B orvane\n.I "
        "COMMAND\n[\\fIOPTIONS\\fR] "
        "...\n.SH DESCRIPTION\n{}\nWhat is written has its name only once it is whole.\n"
        ".SH OPTIONS\n",
        LibraryVersionText(), Roff(program.get_description()));
    std::set<std::string> said;
    text += ManOptions(program, &said) + ".SH COMMANDS\n";
    const HelpFormatter formatter;
    for (const CLI::App* command : program.get_subcommands({})) {
        std::string usage = formatter.make_usage(command, "orvane " + command->get_name());
        usage = usage.substr(usage.find(' ') + 1);
        usage.pop_back();
        text += fmt::format(".SS \"{}\"\n{}\n{}", Roff(usage), Roff(command->get_description()),
                            ManOptions(*command, &said));
    }
    text += ".SH PRESETS\n";
    for (const Preset& preset : Presets())
        text += fmt::format(".TP\n.B {}\n{}\n", Roff(preset.name), Roff(preset.description));
    text +=
        ".SH EXIT STATUS\n.TP\n.B 0\nall went well\n.TP\n.B 1\nit cannot be done: one line on "
        "standard error says why, and no output is there that was not there before\n.TP\n.B 2\n"
        "the command line asks for nonsense\n.SH EXAMPLES\n.nf\n";
    for (const char* const example : kExamples) text += Roff(example) + "\n";
    return text + ".fi\n.SH SEE ALSO\n.BR ffmpeg (1),\n.BR gnuplot (1),\n.BR parallel (1)\n";
}

std::string OptionWords(const CLI::App& command) {
    std::vector<std::string> words;
    for (const CLI::Option* option : ShownOptions(command)) {
        for (const std::string& name : option->get_lnames()) words.push_back("--" + name);
        for (const std::string& name : option->get_snames()) words.push_back("-" + name);
    }
    return fmt::format("{}", fmt::join(words, " "));
}

std::string BashCompletion(const CLI::App& program) {
    std::string commands, cases;
    for (const CLI::App* command : program.get_subcommands({})) {
        commands += command->get_name() + " ";
        cases +=
            fmt::format("        {}) words='{}' ;;\n", command->get_name(), OptionWords(*command));
    }
    std::string presets;
    for (const Preset& preset : Presets()) presets += std::string(preset.name) + " ";
    return fmt::format(
        R"(# Completion of orvane for bash: commands, options, presets; else names of files.
_orvane() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} words=
    if [[ $COMP_CWORD == 1 ]]; then
        words='{}{}'
    elif [[ ${{COMP_WORDS[COMP_CWORD - 1]}} == --preset ]]; then
        words='{}'
    elif [[ $current == -* ]]; then
        case ${{COMP_WORDS[1]}} in
{}        esac
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}}
complete -o bashdefault -o default -F _orvane orvane
)",
        commands, OptionWords(program), presets, cases);
}

}  // namespace

void AddManualTo(CLI::App& program) {
    const auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(kNameColumns);
    program.formatter(formatter);
    program.footer(Footer());
    const auto print = [&program](const char* option, std::string (*make)(const CLI::App&)) {
        program
            .add_flag_callback(option,
                               [&program, make] {
                                   PrintToStandardOutput(make(program));
                                   throw CLI::Success();
                               })
            ->group("");
    };
    print("--man-page", ManPage);
    print("--bash-completion", BashCompletion);
}
