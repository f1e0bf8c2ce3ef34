#include <fmt/format.h>

#include <set>
#include <vector>

#include "client/presets.h"
#include "render/commands.h"

namespace {

constexpr const char* kExamples[] = {
    "orvane render song.flac louder.flac --preset loud --picture louder.png",
    "orvane render song.mp3 - --tone 60:4,500:0,8000:3 | aplay",
    "orvane album 'The Album' out --format opus --match",
    "parallel orvane render -q --only-whole {} {.}-night.flac --preset night ::: *.wav"};

// Escapes text for roff. Otherwise roff would replace hyphens by typographic ones, and take a
// control character at the start of a line for a request.
std::string Roff(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '-' || c == '\\') escaped += '\\';
        escaped += c == '\\' ? 'e' : c;
    }
    return escaped.starts_with('.') || escaped.starts_with('\'') ? "\\&" + escaped : escaped;
}

// Returns the options of a command. Options that an earlier command explained are only listed by
// name; `said` contains them.
std::string ManOptions(const Options& options, std::set<std::string>* said) {
    std::string text, repeated;
    for (const OptionText& option : options.Shown()) {
        if (!option.positional && !said->insert(option.name + option.description).second) {
            repeated += (repeated.empty() ? "" : ", ") + option.name;
            continue;
        }
        text += fmt::format(".TP\n.B {}\n{}\n", Roff(option.name + option.values),
                            Roff(option.description));
    }
    if (!repeated.empty())
        text += fmt::format(".PP\nThese options mean the same as above: {}.\n", Roff(repeated));
    return text;
}

std::string ManPage(const Options& program) {
    std::string text = fmt::format(
        ".TH ORVANE 1 \"\" \"orvane {}\" \"User Commands\"\n.SH NAME\norvane \\- render audio "
        "files "
        "through the Quenthra Orvane effect\n.SH SYNOPSIS\n.B orvane\n.I "
        "COMMAND\n[\\fIOPTIONS\\fR] "
        "...\n.SH DESCRIPTION\n{}\nAn output file appears under its name only when it is complete. "
        "An interrupted run leaves nothing behind.\n"
        ".SH OPTIONS\n",
        LibraryVersionText(), Roff(program.Description()));
    std::set<std::string> said;
    text += ManOptions(program, &said) + ".SH COMMANDS\n";
    for (const Options& command : program.Commands()) {
        std::string usage = command.Usage("orvane " + command.Name());
        usage = usage.substr(usage.find(' ') + 1);
        text += fmt::format(".SS \"{}\"\n{}\n{}", Roff(usage), Roff(command.Description()),
                            ManOptions(command, &said));
    }
    text += ".SH PRESETS\n";
    for (const Preset& preset : Presets())
        text += fmt::format(".TP\n.B {}\n{}\n", Roff(preset.name), Roff(preset.description));
    text +=
        ".SH EXIT STATUS\n.TP\n.B 0\nEverything succeeded.\n.TP\n.B 1\nThe command failed. One "
        "line on standard error says why, and no new output exists.\n.TP\n.B 2\n"
        "The command line is wrong.\n.TP\n.B 3\nThe source is damaged. The output contains what "
        "could be read, and one line on standard error says what is wrong.\n.SH EXAMPLES\n.nf\n";
    for (const char* const example : kExamples) text += Roff(example) + "\n";
    return text + ".fi\n.SH SEE ALSO\n.BR ffmpeg (1),\n.BR gnuplot (1),\n.BR parallel (1)\n";
}

std::string OptionWords(const Options& options) {
    std::vector<std::string> words;
    for (const OptionText& option : options.Shown())
        words.insert(words.end(), option.words.begin(), option.words.end());
    return fmt::format("{}", fmt::join(words, " "));
}

std::string BashCompletion(const Options& program) {
    std::string commands, cases;
    for (const Options& command : program.Commands()) {
        commands += command.Name() + " ";
        cases += fmt::format("        {}) words='{}' ;;\n", command.Name(), OptionWords(command));
    }
    std::string presets;
    for (const Preset& preset : Presets()) presets += std::string(preset.name) + " ";
    return fmt::format(
        R"(# Completion of orvane for bash: commands, options and presets, otherwise file names.
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

std::string HelpFooter() {
    const std::string indent = "\n" + std::string(kHelpNameColumns, ' ');
    std::string text = "Presets (--list-presets prints their settings, too):\n";
    for (const Preset& preset : Presets())
        text += fmt::format(
            "{:{}}{}\n",
            fmt::format("  {}{}", preset.name, &preset == &Presets().front() ? " (default)" : ""),
            kHelpNameColumns, Wrapped(preset.description, kHelpColumns - kHelpNameColumns, indent));
    text += "\nExamples:\n";
    for (const char* const example : kExamples) text += fmt::format("  {}\n", example);
    text.pop_back();
    return text;
}

void AddManualTo(Options& program) {
    program.AddPrinting("--man-page", [program] { return ManPage(program); }).Hide();
    program.AddPrinting("--bash-completion", [program] { return BashCompletion(program); }).Hide();
}
