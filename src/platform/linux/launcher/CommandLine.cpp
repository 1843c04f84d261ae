#include "platform/linux/launcher/CommandLine.h"

#include "bridge/LaunchArguments.h"
#include "bridge/TextRules.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace brindlemark {

namespace {

// Qt's own command-line options (QGuiApplication, QApplication and the xcb platform), which
// brindlemark-app takes as they are; a single or a double dash, and "-name=value" as well.
constexpr std::array<std::string_view, 17> QtOptionsWithValue{
    "platform",      "platformpluginpath", "platformtheme", "plugin",
    "qmljsdebugger", "qwindowgeometry",    "geometry",      "qwindowtitle",
    "title",         "qwindowicon",        "icon",          "session",
    "style",         "stylesheet",         "display",       "name",
    "visual"};
constexpr std::array<std::string_view, 6> QtFlags{"reverse", "nograb",      "dograb",
                                                  "sync",    "widgetcount", "testability"};

// The option's name without its dashes and "=value", when it is one of Qt's; else empty.
std::string_view qtOption(std::string_view argument, bool& takesValue) {
    if (argument.size() < 2 || argument[0] != '-')
        return {};
    std::string_view name = argument.substr(argument[1] == '-' ? 2 : 1);
    const bool inlineValue = name.find('=') != std::string_view::npos;
    name = name.substr(0, name.find('='));
    const auto known = [&](const auto& list) {
        return std::find(list.begin(), list.end(), name) != list.end();
    };
    takesValue = !inlineValue && known(QtOptionsWithValue);
    return known(QtOptionsWithValue) || (!inlineValue && known(QtFlags)) ? name
                                                                         : std::string_view{};
}

// A query value: everything but unreserved characters and "/" percent-encoded.
std::string percentEncoded(std::string_view text) {
    std::string out;
    for (const unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
            out += char(c);
        } else {
            out += '%';
            out += hexDigit(c >> 4, true);
            out += hexDigit(c, true);
        }
    }
    return out;
}

// A folder command given a folder of its own becomes the URL that does the same there.
std::string folderCommandUrl(const std::string& command, const std::string& path) {
    const std::string withFolder = "path=" + percentEncoded(path);
    if (command == "--open-terminal")
        return "brindlemark://terminal?" + withFolder;
    if (command.rfind("--new-file=", 0) == 0 && command.size() > 11)
        return "brindlemark://template?id=" + percentEncoded(command.substr(11)) + "&" + withFolder;
    return "brindlemark://create?" + withFolder;
}

CommandLine misuse(std::string problem) {
    CommandLine line;
    line.action = CommandLine::Action::Misuse;
    line.problem = std::move(problem);
    return line;
}

} // namespace

CommandLine parseCommandLine(const std::vector<std::string>& arguments,
                             const std::string& workingFolder) {
    CommandLine line;
    std::string folder;
    bool inFolder = false;
    // First pass: what the launch asks for, and which arguments are Qt's or their values.
    std::vector<bool> forApplication(arguments.size(), false);
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        bool takesValue = false;
        if (argument == "-h" || argument == "--help")
            line.action = CommandLine::Action::Help;
        else if (argument == "--version")
            line.action = line.action == CommandLine::Action::Help ? line.action
                                                                   : CommandLine::Action::Version;
        else if (argument == "--doctor" && i == 0)
            line.action = CommandLine::Action::Doctor;
        else if (argument == "--in" || argument.rfind("--in=", 0) == 0) {
            const bool separate = argument == "--in";
            if (separate && i + 1 == arguments.size())
                return misuse("option '--in' needs a folder");
            folder = separate ? arguments[++i] : argument.substr(5);
            if (folder.empty())
                return misuse("option '--in' needs a folder");
            inFolder = true;
        } else if (isForwardedArgument(argument.c_str())) {
            continue;
        } else if (!qtOption(argument, takesValue).empty()) {
            forApplication[i] = true;
            if (takesValue && i + 1 < arguments.size())
                forApplication[++i] = true;
        } else if (argument.rfind('-', 0) == 0) {
            return misuse("unknown option '" + argument + "'");
        } else {
            return misuse("unexpected argument '" + argument + "' (a URL begins with a scheme, " +
                          "such as brindlemark://)");
        }
        if (line.action == CommandLine::Action::Doctor)
            return line; // the doctor's own arguments are its business
    }
    if (line.action != CommandLine::Action::Run)
        return line;

    if (inFolder && folder[0] != '/')
        folder = withoutTrailingSlashes(workingFolder) + "/" + folder;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string argument = arguments[i];
        if (!forApplication[i] && !isForwardedArgument(argument.c_str()))
            continue; // "--in" and its folder, consumed here
        if (inFolder && isUrlArgument(argument.c_str()))
            argument += (argument.find('?') == std::string::npos ? "?path=" : "&path=") +
                        percentEncoded(folder);
        else if (inFolder && isFolderCommandArgument(argument.c_str()) &&
                 argument != "--import-templates" && argument != "--background")
            argument = folderCommandUrl(argument, folder);
        if (!forApplication[i])
            line.forwarded.push_back(argument);
        line.applicationArguments.push_back(argument);
    }
    return line;
}

const char* usageText() {
    return R"(Usage: brindlemark [OPTION...] [URL...]
Makes new files from templates in the folder your file manager shows.

  brindlemark                 start Brindlemark, or show its window when it runs
  brindlemark URL...          hand brindlemark:// URLs to Brindlemark
  --new-file[=ID]             a new file from the template ID (none: "text") in the
                              folder of the front file-manager window
  --open-terminal             a terminal at that folder
  --in FOLDER                 the URLs, --new-file and --open-terminal act on FOLDER
  --import-templates          a template for each file in your Templates folder
  --background                start Brindlemark in the tray without its window (as
                              at login); nothing when it runs
  --doctor                    check what the file managers' menus need on this machine
  -h, --help                  print this help and exit
  --version                   print the version and exit

URLs: brindlemark://create, brindlemark://template (id=ID, or payload=BASE64),
brindlemark://terminal and brindlemark://iterm, each with path=FOLDER.
Qt's own options (-style Fusion, -platform xcb, ...) go to the application.
More in Brindlemark's README.md.
)";
}

} // namespace brindlemark
