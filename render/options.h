// The options of the program and of its commands. Only options.cpp includes the parser CLI11, whose
// header takes longer to compile than any file here.
//
// Add an option with its names, the variable that it fills, and a line of help:
//
//   options.Add("IN", &input, "audio file").Required();                     positional
//   options.Add("--page", &page, "the page without a piece").Type("FILE");  --page FILE
//   options.Add("--rate", &rateHz, "sampling rate")                         --rate 48000
//       .Type("HZ").Within(32000U, 48000U).ShowDefault();
//   options.AddFlag("-f,--force", &overwrite, "overwrite files that exist");
//
// The variable's value before parsing is the default. CommandLine::Parse fills the variables and
// calls the callbacks. The help, the manual page and the completion then contain the option. To
// support another type of variable, add an overload of Add here and in options.cpp.
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

// An option that has been added. The functions set what not every option has.
class Option {
public:
    explicit Option(CLI::Option& parserOption) : option(&parserOption) {}

    // Makes the option required: parsing fails without it.
    const Option& Required() const;
    // Sets the word that stands for the value in the help.
    const Option& Type(const char* word) const;
    // Makes parsing fail for values outside the range, which the help shows.
    const Option& Within(int lowest, int highest) const;
    const Option& Within(uint32_t lowest, uint32_t highest) const;
    // Shows the variable's present value as the default in the help.
    const Option& ShowDefault() const;
    // Hides the option from the help, the manual page and the completion.
    const Option& Hide() const;

private:
    CLI::Option* option;
};

// An option as the help shows it.
struct OptionText {
    bool positional;
    std::string name;    // all names: "-f,--force"
    std::string values;  // what follows the names, such as " FRAMES=1024"; may be ""
    std::string description;
    std::vector<std::string> words;  // each name as it is typed, long names first
};

// The options of the program or of one command. A copy refers to the same options.
class Options {
public:
    explicit Options(CLI::App& parserApp) : app(&parserApp) {}

    // Adds an option with a value. If the name has no dashes, it adds a positional argument. A
    // vector takes all values that follow.
    Option Add(const std::string& names, std::string* value, const std::string& help);
    Option Add(const std::string& names, uint32_t* value, const std::string& help);
    Option Add(const std::string& names, double* value, const std::string& help);
    Option Add(const std::string& names, std::vector<std::string>* values, const std::string& help);
    // Adds an option that calls `take` with its value.
    Option Add(const std::string& names, const std::function<void(const std::string&)>& take,
               const std::string& help);
    // Adds such an option that may be given several times. `take` is called for each.
    Option AddRepeated(const std::string& names, std::function<void(const std::string&)> take,
                       const std::string& help);
    // Adds an option without a value, which sets `value` to true.
    Option AddFlag(const std::string& names, bool* value, const std::string& help);
    // Adds a flag that takes a value only in the form --name=value. Without one, the value is
    // "true".
    Option AddFlag(const std::string& names, std::string* value, const std::string& help);
    // Adds a flag that calls `take` with true. Names that begin with "!" call it with false.
    Option AddSwitch(const std::string& names, std::function<void(bool)> take,
                     const std::string& help);
    // Adds a flag that prints a text on standard output and ends the program with status 0, even if
    // required options are missing.
    Option AddPrinting(const std::string& names, std::function<std::string()> text,
                       const std::string& help = "");

    // Returns an object for the same options. Options that are added through it are listed under
    // `title` in the help.
    Options Group(const std::string& title) const;

    // Adds a command and returns its options.
    Options AddCommand(const std::string& name, const std::string& description);
    // Returns true if the command line names this command.
    bool IsAsked() const;

    // Return the texts that the manual page and the completion show.
    std::string Name() const;
    std::string Description() const;
    std::string Usage(const std::string& name) const;  // "Usage: orvane info [OPTIONS] [LIBRARY]"
    std::vector<Options> Commands() const;
    std::vector<OptionText> Shown() const;

protected:
    CLI::App* app;

private:
    Option Added(CLI::Option* option) const;
    std::string group;  // title in the help; "" for the parser's default group
};

// The whole command line: the program's own options and its commands.
class CommandLine : public Options {
public:
    // The user must name a command. `footer` is printed at the end of every help.
    CommandLine(const char* name, const char* description, const std::string& footer);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    void AddVersion(const std::string& text);  // --version
    // Fills the options' variables. Returns false if an option such as --help has printed its text
    // and the program should end. Throws UsageError if the arguments don't fit the options.
    bool Parse(int argc, char** argv);

private:
    std::unique_ptr<CLI::App> program;
};

// The columns of a line of the help, and the columns before an option's description.
constexpr size_t kHelpColumns = 100;
constexpr size_t kHelpNameColumns = 34;

// Breaks `text` into lines of at most `columns` characters and puts `separator` between them.
std::string Wrapped(const std::string& text, size_t columns, const std::string& separator);

// Reads a decimal number. Returns false if the whole text isn't one.
bool ReadNumber(const std::string& text, double* number);
