#pragma once

// The launcher's command line, in plain C++: what a launch asks for, the URLs and folder commands
// handed to Brindlemark, and the arguments brindlemark-app gets when the launch starts it.

#include <string>
#include <vector>

namespace brindlemark {

struct CommandLine {
    enum class Action { Run, Help, Version, Doctor, Misuse };
    Action action = Action::Run;
    std::string problem; // for Misuse: the one line that says what is wrong
    // For Run: the URLs (completed with "--in"'s folder) and folder commands, in order, and the
    // arguments for brindlemark-app after its own name (the same, with Qt's options kept).
    std::vector<std::string> forwarded;
    std::vector<std::string> applicationArguments;
};

// `arguments` without the program's name; `workingFolder` makes a relative "--in" absolute.
CommandLine parseCommandLine(const std::vector<std::string>& arguments,
                             const std::string& workingFolder);

// The text of --help.
const char* usageText();

} // namespace brindlemark
