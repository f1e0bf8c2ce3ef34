// The options of the program and of its commands. Only options.cpp includes the parser, CLI11: its
// header takes longer to compile than any file here.
//
// An option is added with its names, the variable that it fills, and a line of help:
//
//   options.Add("IN", &input, "audio file").Required();                     by its place
//   options.Add("--page", &page, "the page without a piece").Type("FILE");  --page FILE
//   options.Add("--rate", &rateHz, "sampling rate")                         --rate 48000
//       .Type("HZ").Within(32000U, 48000U).ShowDefault();
//   options.AddFlag("-f,--force", &overwrite, "overwrite files that exist");
//
// The variable's value before parsing is the default. It is filled, and callbacks are called, by
// CommandLine::Parse. Help, the manual page and the completion show each option by themselves.
// Another type of variable needs an overload of Add here and a line in options.cpp.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

// An option that was added, for what not every option has.
class Option {
public:
    explicit Option(CLI::Option& parserOption) : option(&parserOption) {}

    // Parsing fails without it.
    const Option& Required() const;
    // The word for its value in the help.
    const Option& Type(const char* word) const;
    // Parsing fails outside the range, and the help shows the range.
    const Option& Within(int lowest, int highest) const;
    const Option& Within(uint32_t lowest, uint32_t highest) const;
    // The help shows the variable's present value.
    const Option& ShowDefault() const;
    // Neither the help nor the manual page nor the completion shows it.
    const Option& Hide() const;

private:
    CLI::Option* option;
};

// An option as the help shows it.
struct OptionText {
    bool positional;
    std::string name;    // all names: "-f,--force"
    std::string values;  // what follows them: " FRAMES=1024", "" for none
    std::string description;
    std::vector<std::string> words;  // each name as it is typed, long names first
};

// The options of the program or of one command. A copy stands for the same ones.
class Options {
public:
    explicit Options(CLI::App& parserApp) : app(&parserApp) {}

    // An option with a value, or, with a name without dashes, a positional argument. A vector
    // takes all that follow.
    Option Add(const std::string& names, std::string* value, const std::string& help);
    Option Add(const std::string& names, uint32_t* value, const std::string& help);
    Option Add(const std::string& names, double* value, const std::string& help);
    Option Add(const std::string& names, std::vector<std::string>* values, const std::string& help);
    // An option whose value `take` is called with.
    Option Add(const std::string& names, const std::function<void(const std::string&)>& take,
               const std::string& help);
    // Likewise for an option that may be given several times: a call for each.
    Option AddRepeated(const std::string& names, std::function<void(const std::string&)> take,
                       const std::string& help);
    // An option without a value, which makes `value` true.
    Option AddFlag(const std::string& names, bool* value, const std::string& help);
    // A flag that takes a value only as --name=value; "true" without one.
    Option AddFlag(const std::string& names, std::string* value, const std::string& help);
    // A flag that calls `take` with true, or with false for those of its names after a "!".
    Option AddSwitch(const std::string& names, std::function<void(bool)> take,
                     const std::string& help);
    // A flag that prints a text on standard output and ends the program with status 0, whatever
    // else is missing.
    Option AddPrinting(const std::string& names, std::function<std::string()> text,
                       const std::string& help = "");

    // The same options; what is added through the returned object stands under `title` in the
    // help.
    Options Group(const std::string& title) const;

    Options AddCommand(const std::string& name, const std::string& description);
    // Returns true if the command line names this command.
    bool IsAsked() const;

    // What the manual page and the completion show.
    std::string Name() const;
    std::string Description() const;
    std::string Usage(const std::string& name) const;  // "Usage: orvane info [OPTIONS] [LIBRARY]"
    std::vector<Options> Commands() const;
    std::vector<OptionText> Shown() const;

protected:
    CLI::App* app;

private:
    Option Added(CLI::Option* option) const;
    std::string group;  // "" for the parser's own
};

// The whole command line: the program's own options, and its commands.
class CommandLine : public Options {
public:
    // One command has to be named. `footer` ends every help.
    CommandLine(const char* name, const char* description, const std::string& footer);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    void AddVersion(const std::string& text);  // --version
    // Returns false if an option such as --help has printed its text and nothing is left to do.
    // Throws UsageError for what the options don't allow.
    bool Parse(int argc, char** argv);

private:
    std::unique_ptr<CLI::App> program;
};

// The columns of the help: of a line, and before an option's description.
constexpr size_t kHelpColumns = 100;
constexpr size_t kHelpNameColumns = 34;

// Breaks `text` into lines of at most `columns` characters and puts `separator` between them.
std::string Wrapped(const std::string& text, size_t columns, const std::string& separator);

// Reads a decimal number that is the whole text. Returns false if the text is none.
bool ReadNumber(const std::string& text, double* number);
