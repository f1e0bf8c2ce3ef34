// The program's commands, which main creates and runs. Also the texts that document them.
//
// Each command is a class in a file such as render_command.cpp, which also says what the command
// does. Call these functions only on the main thread.
#pragma once
#include <memory>
#include <string>

#include "render/options.h"

// A command with its options.
class Command {
public:
    // Adds the command `name` to the program. `description` is its line in the help.
    Command(Options& program, const char* name, const char* description)
        : options(program.AddCommand(name, description)) {}
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    // Returns true if the command line names this command. Call it after CommandLine::Parse.
    bool IsAsked() const { return options.IsAsked(); }
    // Does what the command line asks for. Throws UsageError if the options contradict each other
    // or have values that cannot be used. Throws DamagedSource if the input was damaged but
    // everything that could be read is written, and Failure for all other errors.
    virtual void Run() = 0;

protected:
    Options options;
};

// Each function adds its command and the command's options to the program. The options fill members
// of the returned object, so it must exist while the command line is parsed.
std::unique_ptr<Command> MakeRenderCommand(Options& program);    // render_command.cpp
std::unique_ptr<Command> MakeAlbumCommand(Options& program);     // album_command.cpp
std::unique_ptr<Command> MakePictureCommand(Options& program);   // render_command.cpp
std::unique_ptr<Command> MakeCompareCommand(Options& program);   // compare_command.cpp
std::unique_ptr<Command> MakeResponseCommand(Options& program);  // response_command.cpp
std::unique_ptr<Command> MakeToneCommand(Options& program);      // tone_command.cpp
std::unique_ptr<Command> MakeInfoCommand(Options& program);      // info_command.cpp

// Returns the version of the library that this program was built with, as "2.1.0.2".
std::string LibraryVersionText();

// Returns the text that ends every help: the presets and some examples.
std::string HelpFooter();

// Adds two hidden options for packages: --man-page prints the manual page in roff, and
// --bash-completion prints the completion script for bash. Both end the program. Both list the
// options of all commands that exist when they print.
void AddManualTo(Options& program);
