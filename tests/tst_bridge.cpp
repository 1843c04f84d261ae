// The extension bridge: our URL parser, the strict payload decoder, what a command URL asks
// for, the tool runner, the extension's state from the registry listing, the registry, and the
// settings files as QSettings reads them back.
#include "TestSupport.h"

#include "bridge/ExtensionManagement.h"
#include "bridge/LaunchArguments.h"
#include "bridge/ToolRunner.h"
#include "bridge/UrlCommands.h"
#include "platform/linux/Autostart.h"
#include "platform/linux/IniFile.h"
#include "platform/linux/PluginRegistry.h"
#include "platform/linux/launcher/CommandLine.h"

#include <sys/stat.h>

using namespace brindlemark;
using namespace std::chrono_literals;

namespace {

// Each input of a group, given to `f`, must give the group's text.
void expectGroups(const std::function<QString(const QString&)>& f,
                  const QList<std::pair<QString, QStringList>>& groups) {
    QList<std::pair<QString, QString>> cases;
    for (const auto& [expected, inputs] : groups)
        for (const QString& input : inputs)
            cases.append({input, expected});
    expectEach(f, cases);
}

// One run of the registry tool, in this process, with the command line's words as arguments:
// "exit code:output", the home folder shown as "~". What it says about the registry itself goes
// to `notice`.
QString kit(const QString& line, QString* notice = nullptr,
            std::chrono::milliseconds stepLimit = BundleStepLimit) {
    std::vector<std::string> converted;
    for (const QString& argument : line.split(' ', Qt::SkipEmptyParts))
        converted.push_back(argument.toStdString());
    const PluginKitResult result = runPluginKit(converted, stepLimit);
    const QString home = qEnvironmentVariable("HOME");
    if (notice)
        *notice = QString::fromStdString(result.notice).replace(home, "~");
    QString text = QString::number(result.exitCode) + ":" + QString::fromStdString(result.output);
    return text.replace(home, "~");
}

// Runs the tools one after another in a ToolSequence, the event loop running meanwhile: what
// each one said, then "never finished" when the sequence did not end within 5 seconds.
QStringList inSequence(const QList<std::pair<QString, QStringList>>& tools,
                       int limit = ToolTimeoutMilliseconds) {
    QStringList outputs;
    QEventLoop loop;
    ToolSequence sequence([&] { loop.quit(); }, limit);
    for (const auto& [path, arguments] : tools)
        sequence.append(path, arguments, [&](const QString& text) { outputs << text; });
    sequence.start();
    QTimer::singleShot(5'000, &loop, [&] { loop.exit(1); });
    return loop.exec() == 0 ? outputs : outputs << "never finished";
}

// What is at the path: its kind and mode (none when nothing is there), and a file's bytes.
QByteArray placeAt(const QString& path) {
    struct stat info {};
    ::lstat(QFile::encodeName(path).constData(), &info);
    return QByteArray::number(info.st_mode, 8) + ":" +
           (S_ISREG(info.st_mode) ? readFile(path) : "");
}

// A bundle registered as x.y, version 2, whose install and uninstall steps run $HOME/step. Its
// Info.ini is read as QSettings reads it: only its group, blanks around keys and values, quotes
// around a value.
QString makeBundle(const TestHome& home) {
    const QString bundle = home.file("Some.appex");
    writeFile(bundle + "/Info.ini", "[Extension]\n Identifier = x.y \nProtocol=p\nVersion=\"2\"\n"
                                    "[Other]\nIdentifier=other\n");
    writeScript(bundle + "/install", ". \"$HOME/step\"");
    writeScript(bundle + "/uninstall", ". \"$HOME/step\"");
    return bundle;
}

// A step that starts a process in the background and goes on itself, each writing its id to
// $HOME/started.
const QByteArray LingeringStep = "sleep 60 & echo $! >> \"$HOME/started\"; echo $$ >> "
                                 "\"$HOME/started\"; echo started; exec sleep 60";

// Whether every process named in $HOME/started has ended (a zombie has), waiting up to 5 seconds
// for a kill to arrive. Those left are killed.
bool startedProcessesEnded(const TestHome& home) {
    QByteArrayList pids = readFile(home.file("started")).split('\n');
    const auto ended = [](const QByteArray& pid) {
        const QByteArray stat = readFile("/proc/" + pid + "/stat");
        return pid.isEmpty() || stat.isEmpty() || stat.mid(stat.lastIndexOf(')') + 2, 1) == "Z";
    };
    // Waited for, then counted again: what is left is killed either way.
    (void)QTest::qWaitFor([&] { return std::all_of(pids.begin(), pids.end(), ended); }, 5'000);
    pids.removeIf(ended);
    for (const QByteArray& pid : pids)
        ::kill(pid_t(pid.toLongLong()), SIGKILL);
    return pids.isEmpty();
}

// JSON, but not an array of registrations: no registry, as broken JSON is none.
const QByteArray DamagedRegistry = "{\"elected\": true, \"identifier\": \"a.b\"}\n";

} // namespace

class BridgeTest : public QObject {
    Q_OBJECT

private slots:
    void autostartEntries() {
        // "user file|first system file|second system file#switches" (- for none file): what
        // each leaves, "on" or "off" and the user's file (newlines as "/"). An entry with its own
        // Exec is written only where no system entry exists.
        TestHome home;
        const autostart::Folders where{home.file("user"), {home.file("sys1"), home.file("sys2")}};
        const QString name = "b.desktop", user = where.user + "/" + name;
        const QByteArray own = "[Desktop Entry]\nExec=own\n",
                         system = "[Desktop Entry]\nExec=sys\n";
        expectEach(
            [&](const QString& line) {
                const QStringList files = line.section('#', 0, 0).split('|');
                for (const QString& folder : {where.user, where.system[0], where.system[1]})
                    QDir(folder).removeRecursively();
                for (int i = 0; i < 3; ++i)
                    if (files[i] != "-")
                        writeFile((i ? where.system[i - 1] : where.user) + "/" + name,
                                  QString(files[i]).replace('/', '\n').toUtf8());
                QString out = autostart::isOn(where, name) ? "on" : "off";
                for (const QString& to : line.section('#', 1).split(' ', Qt::SkipEmptyParts)) {
                    const auto problem = autostart::setOn(where, name, to == "on", own);
                    out += " " + (problem ? *problem
                                          : (autostart::isOn(where, name) ? "on:" : "off:") +
                                                QString(readFile(user)).replace('\n', '/'));
                }
                return out.replace(home.path(), "~");
            },
            {{"-|-|-#on off",
              "off on:[Desktop Entry]/Exec=own/ off:[Desktop Entry]/Exec=own/Hidden=true/"},
             {"-|[Desktop Entry]/Exec=sys|-#off on", "on off:[Desktop Entry]/Exec=sys/Hidden=true/ "
                                                     "on:[Desktop Entry]/Exec=sys/Hidden=false/"},
             {"-|-|[Desktop Entry]/Exec=s2/[Desktop Action a]/Exec=x#off",
              "on off:[Desktop Entry]/Exec=s2/Hidden=true/[Desktop Action a]/Exec=x/"},
             {"[Desktop Entry]/X-GNOME-Autostart-enabled = false|[Desktop Entry]|-#on",
              "off on:[Desktop Entry]/X-GNOME-Autostart-enabled=true/Hidden=false/"},
             {"[Desktop Entry]/Hidden=true|[Desktop Entry]/Exec=sys|[Desktop Entry]#on on",
              "off on:[Desktop Entry]/Hidden=false/ on:[Desktop Entry]/Hidden=false/"},
             {"Name=x|-|-#off", "on off:[Desktop Entry]/Hidden=true/Name=x/"},
             {"[Desktop Entry]/NoShow=keep/Hidden =true|-|-#on",
              "off on:[Desktop Entry]/NoShow=keep/Hidden=false/"}});
        // A user folder that cannot be made: the reason.
        QVERIFY(writeFile(home.file("file"), ""));
        const autostart::Folders blocked{home.file("file/autostart"), {}};
        QCOMPARE(autostart::setOn(blocked, name, true, system),
                 "cannot write " + home.file("file/autostart/b.desktop"));
    }

    void settingsFile() {
        TestHome home;
        const QString path = home.file("a.conf");
        for (const QString value :
             {"plain", "@@x", "\u001ffe", "[{\"a\":\"b, c\"}]", "x=y;z", "back\\slash\\",
              "@Variant(x)", "  spaces  ", "\u00011f\t\n\u007fa", "ünï 😀", ""}) {
            // Other keys and groups, an earlier value, a CR before a line break and none at the
            // end: only the value changes, and it reads back the same here as in QSettings.
            writeFile(path, "Before=1\n[General]\nK = old\nKey=2\r\n[Group]\nK=kept");
            for (int time = 0; time < 2; ++time)
                QVERIFY(writeFile(path, ini::fileWithValue(path, "K", value).value_or("")));
            const QSettings read(path, QSettings::IniFormat);
            const ini::ReadValue own = ini::readValue(readFile(path), "K");
            QCOMPARE(QStringList({read.value("K").toString(), own.value.value_or("<none>"),
                                  read.value("Before").toString(), read.value("Key").toString(),
                                  read.value("Group/K").toString()}),
                     QStringList({value, value, "1", "2", "kept"}));
        }
        // Forms the settings file never gets from Brindlemark: left to QSettings, or absent. A
        // value in brackets starts no group.
        expectGroups(
            [](const QString& text) {
                const ini::ReadValue read = ini::readValue(text.toUtf8(), "K");
                return !read.understood ? "QSettings" : read.value.value_or("absent");
            },
            {{"QSettings",
              {"K=plain", "K=\"a\", \"b\"", "K=\"@Variant(x)\"", "K=\"\\n\"", "K=\"unended"}},
             {"absent", {"[Other]\nK=\"x\"", "Key=\"x\""}},
             {"x", {"[General]\n K = \"x\" ", "A=[y]\nK=\"x\""}}});
    }

    void urlsAndArguments() {
        // scheme|host, then each item: name=value, or the name alone without "=".
        const auto describe = [](const QString& text) {
            const std::optional<CommandUrl> url = brindlemark::parseCommandUrl(text);
            QStringList parts{url ? url->scheme + "|" + url->host : "<none>"};
            for (const QueryItem& item : url ? url->queryItems : QList<QueryItem>{})
                parts << (item.value ? item.name + "=" + *item.value : item.name);
            return parts.join('&');
        };
        expectGroups(
            describe,
            {{"brindlemark|create", {"brindlemark://create?"}},
             {"brindlemark|x&a&b=&c=1+2&d=1=2", {"brindlemark://x?a&b=&c=1+2&d=1=2"}},
             {"brindlemark|x&p=++ü", {"brindlemark://x?%70=%2B+%C3%BC"}},
             {"brindlemark|x&p&=1", {"brindlemark://x?p=%FF&%FF=1"}},
             {"brindlemark|x&p=1", {"brindlemark://x/a/b?p=1#f&p=2", "brindlemark://me@x:80?p=1"}},
             {"brindlemark|&p=1", {"brindlemark:///a?p=1"}},
             // As KDE's opener passes them on, decoded: blanks and letters beyond ASCII as if
             // escaped.
             {"brindlemark|create&path=/home/me/a b ü&id=x y",
              {"brindlemark://create?path=/home/me/a b ü&id=x y"}},
             {"<none>",
              {"brindlemark://x?p=%zz", "brindlemark://x?p=%2", "brindlemark://x?p=/a\tb",
               "brindlemark://x?p=\x7f", "brindlemark://x?p=/a\nb", "", "://x", "1a://x", "a_b://x",
               "no-scheme", "brindlemark://a b?p=1", "brindle mark://x?p=1",
               "brindlemark://x?p=1#a b", "brindlemark://x#a?p= "}}});
        // Launch arguments: U a URL, F a folder command (both handed to the running instance with
        // ">"), neither for one that brindlemark-app keeps as it was given.
        expectGroups(
            [](const QString& argument) {
                const QByteArray a = argument.toUtf8();
                return QString(isUrlArgument(a) ? "U" : "-") +
                       (isFolderCommandArgument(a) ? "F" : "-") +
                       (isForwardedArgument(a) ? ">" : "-");
            },
            {{"U->", {"brindlemark://create?path=/tmp", "x+y-z.1:", "C:\\x"}},
             {"-F>", {"--new-file", "--new-file=md", "--open-terminal"}},
             {"---",
              {"-style", "-style=Fusion", "/tmp/a:b", "1a://x", "+a:b", "a_b://x", "a b:c", ":x",
               "", "\u00fc:x", "brindlemark", "--in", "--new-files"}}});
        // The launcher's command line, words split at "|", run from /w: what the launch does, or
        // what it hands on "=>" what brindlemark-app is given.
        expectEach(
            [](const QString& words) {
                std::vector<std::string> arguments;
                for (const QString& word : words.split(u'|', Qt::SkipEmptyParts))
                    arguments.push_back(word.toStdString());
                const CommandLine line = parseCommandLine(arguments, "/w/");
                const auto joined = [](const std::vector<std::string>& list) {
                    QStringList out;
                    for (const std::string& item : list)
                        out << QString::fromStdString(item);
                    return out.join(u' ');
                };
                using A = CommandLine::Action;
                return line.action == A::Misuse ? QString::fromStdString(line.problem)
                       : line.action == A::Run
                           ? joined(line.forwarded) + " => " + joined(line.applicationArguments)
                           : QStringList{"run", "help", "version", "doctor"}[int(line.action)];
            },
            {{"--new-file|-h", "help"},
             {"--version|--help", "help"},
             {"--version|-style|Fusion", "version"},
             {"--doctor|--bogus", "doctor"},
             {"--new-file|--doctor", "unknown option '--doctor'"},
             {"--bogus|--help", "unknown option '--bogus'"},
             {"-styles", "unknown option '-styles'"},
             {"--in", "option '--in' needs a folder"},
             {"--in=", "option '--in' needs a folder"},
             {"--new-file|~/x", "unexpected argument '~/x' (a URL begins with a scheme, such as "
                                "brindlemark://)"},
             {"", " => "},
             {"-style|Fusion|--platform=xcb|-reverse|-title|--new-file",
              " => -style Fusion --platform=xcb -reverse -title --new-file"},
             {"-style", " => -style"},
             {"--new-file|--in|a b/ü&|--open-terminal|--import-templates",
              "brindlemark://create?path=/w/a%20b/%C3%BC%26 brindlemark://terminal?path=/w/a%20b/"
              "%C3%BC%26 --import-templates => brindlemark://create?path=/w/a%20b/%C3%BC%26 "
              "brindlemark://terminal?path=/w/a%20b/%C3%BC%26 --import-templates"},
             {"--new-file=a b|--new-file=|--in=/t",
              "brindlemark://template?id=a%20b&path=/t brindlemark://create?path=/t => "
              "brindlemark://template?id=a%20b&path=/t brindlemark://create?path=/t"},
             {"x:y?q|--in|/t|-platform|offscreen|brindlemark://create",
              "x:y?q&path=/t brindlemark://create?path=/t => x:y?q&path=/t -platform offscreen "
              "brindlemark://create?path=/t"}});
        // The payload's base64: what decodes, as Qt's lenient decoder has it; padding required,
        // the standard alphabet only, nothing else.
        expectGroups(
            [](const QString& text) {
                const std::optional<QByteArray> decoded = brindlemark::strictBase64Decode(text);
                return !decoded                                              ? "<none>"
                       : *decoded == QByteArray::fromBase64(text.toLatin1()) ? "as Qt"
                                                                             : "not as Qt";
            },
            {{"as Qt", {"YQ==", "YWJj", "", "e30=", "eyJ0aXRsZSI6ImE/PiIsInByZWZpeCI6ImJ+fiJ9"}},
             {"<none>",
              {"e30", "eyJ0aXRsZSI6ImE_PiIsInByZWZpeCI6ImJ-fiJ9", "e30=\n", "e3 0",
               "e30=e30=", "====", "YQ=a", "Y===", "e30.", "ñ30="}}});
    }

    void commands() {
        // kind|folder, and for a template the record. A case that starts with "&" has
        // "brindlemark://template?path=/tmp" before it.
        expectGroups(
            [](const QString& url) {
                const UrlRequest request = interpretCommandUrl(
                    url.startsWith('&') ? "brindlemark://template?path=/tmp" + url : url,
                    {json(R"({"id":"mine","title":"Mine","suffix":".x"})")});
                return QString::number(request.kind) + "|" + request.folder +
                       (request.kind == UrlRequest::CreateFromTemplate
                            ? "|" + describe(request.record)
                            : "");
            },
            {{"4|/tmp/a b", {"brindlemark://terminal?path=%2Ftmp%2Fa%20b"}},
             {"5|/a", {"brindlemark://iterm?x=1&path=/a&path=/b"}},
             {"1|",
              {"brindlemark://x?path=&path=/b", "brindlemark://x?path&path=/b", "brindlemark://"}},
             {"0|/tmp", {"brindlemark://Create?path=/tmp"}},
             {"0|", {"Brindlemark://create?path=/tmp", "create me"}},
             {"2|/tmp", {"brindlemark://create?path=/tmp&id=markdown"}},
             {"3|/tmp|text|Text File|New Text File|txt|1|0", {"&executable=yes"}},
             {"3|/tmp|text|B|Memo|txt|1|0", {"&title=A&title=B&title=&prefix=Memo"}},
             {"3|/tmp|nope|Text File|New Text File|.org|1|0", {"&id=nope&suffix=.org"}},
             {"3|/tmp|shell|Shell Script|run|sh|1|1", {"&id=shell&prefix=run"}},
             {"3|/tmp|shell|Shell Script|run|sh|1|0", {"&id=shell&prefix=run&executable=NO"}},
             {"3|/tmp|text|Text File|run|txt|1|1", {"&prefix=run&executable=on"}},
             {"3|/tmp|mine|Mine|Mine|y|1|0", {"&id=mine&enabled=false&suffix=y"}},
             {"3|/tmp|mine|Mine| a |x|1|0", {"&id=mine&prefix=%20a%20"}},
             {"3|/tmp|mine|Mine|Mine|x|0|0", {"&id=mine"}},
             {"3|/tmp|*|>>>|>>>||0|0", {"&title=Y&payload=eyJ0aXRsZSI6Ij4+PiJ9"}},
             {"3|/tmp|*|New File|New File||0|0", {"&payload=e30=&id=markdown"}},
             {"3|/tmp|json|JSON File|JSONFile|json|0|0", {"&payload=W10=&id=json"}},
             {"3|/tmp|*|é😀|é😀||0|0", {"&payload=eyJ0aXRsZSI6Ilx1MDBlOVx1ZDgzZFx1ZGUwMCJ9"}},
             // Without its padding, or with a raw tab in the JSON: no payload.
             {"3|/tmp|text|Z|New Text File|txt|1|0",
              {"&payload=e30&title=Z", "&payload=eyJ0aXRsZSI6ImEJYiJ9&title=Z"}}});
    }

    void toolRunner() {
        // A tool gives the same text from runTool as in a sequence, and is stopped at its limit
        // with all it started ("<stopped>" for the line that says so): the registry tool runs a
        // bundle's step in a group of its own.
        TestHome home;
        const QString tool = home.file("tool");
        QCOMPARE(kit("-a " + makeBundle(home)), "0:");
        writeFile(home.file("step"), LingeringStep);
        expectEach(
            [&](const QString& script) {
                writeScript(tool, script.toUtf8());
                const QStringList arguments{"a b", "'q'", "$HOME;|&", ""};
                const QString output = runTool(tool, arguments, 500);
                const QStringList inOrder = inSequence({{tool, arguments}}, 500);
                QString text =
                    inOrder == QStringList{output} ? output : "in a sequence: " + inOrder.join('|');
                return text.replace("tool did not finish within 0.5 seconds and was stopped.",
                                    "<stopped>") +
                       (startedProcessesEnded(home) ? "" : " (left running)");
            },
            {{"echo a; echo b >&2; echo c; exit 3", "a\nb\nc\n"},
             {"printf 'ok\\377'", ""},
             {"printf '[%s]' \"$@\"", "[a b]['q'][$HOME;|&][]"},
             {"cat; echo done", "done\n"},
             {"head -c 3000000 /dev/zero | tr '\\0' a", QString(3'000'000, u'a')},
             {"echo started; exec sleep 600", "started\n<stopped>"},
             {"printf x; exec >&- 2>&-; sleep 600", "x\n<stopped>"},
             {"exec '" BRINDLEMARK_PLUGINKIT "' -e use -i x.y", "<stopped>"}});
        // Told to stop, the registry tool takes its step along too: the extension stays
        // unelected.
        QFile::remove(home.file("started"));
        QProcess pluginKit;
        pluginKit.start(BRINDLEMARK_PLUGINKIT, {"-e", "use", "-i", "x.y"});
        QTRY_COMPARE(readFile(home.file("started")).count('\n'), 2);
        pluginKit.terminate();
        QVERIFY(pluginKit.waitForFinished(5'000) && startedProcessesEnded(home));
        QCOMPARE(kit("-mAD"), "0:-    x.y(2)\n");
        // No tool there: a reason, and a sequence goes on past it, handing the reason on.
        const QString reason = runTool(home.file("missing"), {});
        QVERIFY(!reason.isEmpty() && !runTool(home.path(), {}).isEmpty());
        writeScript(tool, "echo second");
        QCOMPARE(inSequence({{home.file("missing"), {}}, {tool, {}}}),
                 (QStringList{reason, "second\n"}));
    }

    void registry() {
        // "step|command lines": $HOME/step holds the step, then the command lines run in order,
        // each giving "exit code:output" ("." for "; the registry is left as it was"). A
        // bundle's step has half a second, and nothing it started may outlive it.
        TestHome home;
        const auto restore = qScopeGuard([was = QDir::currentPath()] { QDir::setCurrent(was); });
        QDir::setCurrent(home.path());
        makeBundle(home);
        expectEach(
            [&](const QString& row) {
                writeFile("step", row.section('|', 0, 0).toUtf8());
                QString text;
                for (const QString& command : row.section('|', 1).split(';'))
                    text += kit(command, nullptr, 500ms);
                return text.remove("pluginkit: ~/Some.appex/")
                           .replace("; the registry is left as it was\n", ".\n") +
                       (startedProcessesEnded(home) ? "" : " (the step goes on)");
            },
            {{"|-e use -i x.y", "1:pluginkit: no plug-in is registered as x.y\n"},
             {"|-a Some.appex;-mAD -p p", "0:0:-    x.y(2)\n"},
             {"exit 3|-e use -i x.y;-m", "1:install failed with exit status 3.\n0:-    x.y(2)\n"},
             {"kill -9 $$|-e use -i x.y", "1:install was ended by signal 9.\n"},
             {LingeringStep + "|-e use -i x.y;-mAD", "1:started\ninstall did not end within 0.5 "
                                                     "seconds and was stopped.\n0:-    x.y(2)\n"},
             {"echo ${0##*/}|-e use -i x.y", "0:install\n"},
             {"|-a Some.appex;-m -i x.y -p p", "0:0:+    x.y(2)\n"}, // the election stays
             {"|-mAD -p other;-mAD -i other", "0:0:"},
             {"false|-e ignore -i x.y;-m",
              "1:uninstall failed with exit status 1.\n0:+    x.y(2)\n"},
             {"echo ${0##*/}|-e ignore -i x.y;-mAD", "0:uninstall\n0:-    x.y(2)\n"},
             {"|-r Some.appex;-mAD", "0:0:"},
             {"|-a data", "1:pluginkit: ~/data is not an extension bundle (it has no Info.ini)\n"},
             {"|-r /tmp", "1:pluginkit: no plug-in is registered at /tmp\n"}});
        // Nothing else written.
        QCOMPARE(entries("."), (QStringList{"Some.appex", "data", "run", "started", "step"}));
        QCOMPARE(entries("data/brindlemark"), QStringList{"plugin-registry.json"});
        // A command line's first two words. Bundle paths are made absolute and cleaned as
        // QFileInfo does; a trailing slash stays.
        expectGroups(
            [&](const QString& line) { return kit(line).section(' ', 0, 1); },
            {{"64:usage: brindlemark-pluginkit",
              {"", "-e maybe -i x", "-mAD -p", "-mX", "-m -q x", "-a"}},
             {"1:pluginkit: ~/y/z/w", {"-a x/../y/./z//w"}},
             {"1:pluginkit: ~", {"-a ../" + QFileInfo(home.path()).fileName() + "//x/..", "-a ."}},
             {"1:pluginkit: /a/c/", {"-a /a/./b/../c/"}},
             {"1:pluginkit: /a/b", {"-a //a//b/."}},
             {"1:pluginkit: /", {"-a /a/.."}}});
        // The extension is enabled only from a line of its own with the identifier whole: not one
        // forged inside another registration.
        const QString id = "org.brindlemark.Brindlemark.BrindlemarkFinderSync";
        expectGroups(
            [&](const QString& listing) {
                return extensionStateText(extensionStateFromListing(listing, id));
            },
            {{"Enabled", {"+    " + id + "(1.0)\n", "-    x(1)\n+\t" + id}},
             {"Registered",
              {"+   " + id, "-    " + id + "Helper", "x+\t" + id, "+    " + id + "Helper(1)",
               "+    " + id + " x(1)", "-    x\\x0a+    " + id + "(1)\n",
               "+    com.example.Other\n-    " + id}},
             {"Not registered", {"+    " + id.toLower()}}});
    }

    void controlCharactersAndEarlierVersions() {
        TestHome home;
        const QString registry = home.file("data/brindlemark/plugin-registry.json");
        const auto listing = [&](const QString& text) {
            writeFile(registry, text.toUtf8());
            return kit("-mAD");
        };
        // As QJsonDocument wrote it (escapes: q"u\oé, a private-use character, 😀), with
        // members, values and entries the registry ignores.
        const QString written =
            "[{\"elected\": true, \"extra\": {\"n\": [1, -2.5e3, null, false, {}, \"]\"]}, "
            "\"identifier\": \"q\\\"u\\\\o\\u00e9\\ue000\\ud83d\\ude00\", \"protocol\": \"p\", "
            "\"path\": \"/no/such \\\"bundle\\\"\\\\\", \"version\": \"1\\/2\\t\\u0001\"}, "
            "{\"identifier\": 5, \"path\": \"/x\"}, \"text\", [], "
            "{\"elected\": \"true\", \"identifier\": \"n\"}]";
        expectEach(
            listing,
            {{written, "0:+    q\"u\\oé\uE000😀(1/2\\x09\\x01)\n-    n()\n"},
             // Control characters, shown escaped: one line per registration, whatever it
             // holds.
             {"[{\"identifier\": \"x\\n+    a.b\", \"version\": \"\\u001b[2J\\u007f\\u0000\"}]",
              "0:-    x\\x0a+    a.b(\\x1b[2J\\x7f\\x00)\n"},
             // As nlohmann::json alone would not read it: a byte-order mark, a number
             // beyond a double, lone halves of surrogate pairs ("?", as in Qt); the last
             // repeated member.
             {"\uFEFF"
              R"([{"identifier": "a", "n": -1e400, "identifier": "\udc00x\ud800"}])",
              "0:-    ?x?()\n"}});

        // Rewritten after a change, it is what QJsonDocument itself writes for the same
        // records.
        listing(written);
        QCOMPARE(kit("-e ignore -i q\"u\\oé\uE000😀"), "0:");
        // Path and protocol go on as they were (the registry's own commands find them by
        // those).
        const QByteArray rewritten = readFile(registry);
        QCOMPARE(rewritten, QJsonDocument::fromJson(rewritten).toJson());
        QCOMPARE(listing(rewritten), "0:-    q\"u\\oé\uE000😀(1/2\\x09\\x01)\n-    n()\n");

        // A NUL in a registered path must not cut it short to a program that is not the
        // bundle's step.
        writeScript(home.file("program"), "touch \"$HOME/ran\"");
        listing("[{\"identifier\": \"z\", \"path\": \"" + home.file("program") + "\\u0000\"}]");
        QCOMPARE(kit("-e use -i z"), "0:");
        QVERIFY(!QFile::exists(home.file("ran")));

        // None is registered with a control character: a line added to the Info.ini of a bundle
        // whose folder name holds a line break names the first field with one, the path last.
        expectEach(
            [&](const QString& line) {
                writeFile(home.file("a\nb.appex/Info.ini"),
                          "[Extension]\nIdentifier=x.y\nProtocol=p\nVersion=1\n" + line.toUtf8());
                return kit("-a " + home.file("a\nb.appex"))
                    .remove("pluginkit: cannot register ~/a\\x0ab.appex: its ");
            },
            {{"Identifier=x\x1b[2Jy", "1:identifier \"x\\x1b[2Jy\" holds a control character\n"},
             {"Version=1\x7f", "1:version \"1\\x7f\" holds a control character\n"},
             {"Protocol=\x01p", "1:protocol \"\\x01p\" holds a control character\n"},
             {"", "1:path \"~/a\\x0ab.appex\" holds a control character\n"}});
    }

    void unreadableRegistryIsKeptAside() {
        // "what stands where the registry belongs|an earlier backup's bytes ("same": the same
        // bytes)|the name a registration keeps it under" (none tried without one).
        for (const QString row :
             {"damaged||.unreadable", "damaged|other|.unreadable.1", "damaged|same|.unreadable",
              "large||.unreadable", "fifo||.unreadable", "folder||.unreadable", "device||"}) {
            const QString kind = row.section('|', 0, 0), backup = row.section('|', 2);
            const QByteArray earlier =
                row.contains("same") ? DamagedRegistry : row.section('|', 1, 1).toUtf8();
            TestHome home;
            const QString registry = home.file("data/brindlemark/plugin-registry.json");
            QDir().mkpath(home.file("data/brindlemark"));
            QVERIFY(kind == "fifo" ? ::mkfifo(QFile::encodeName(registry).constData(), 0600) == 0
                    : kind == "folder" ? QDir().mkpath(registry)
                    : kind == "device" ? QFile::link("/dev/null", registry)
                    : kind == "large" // valid JSON, but no registry is that large
                        ? writeFile(registry, "[" + QByteArray(1 << 20, ' ') + "]")
                        : writeFile(registry, DamagedRegistry));
            QVERIFY(earlier.isEmpty() || writeFile(registry + ".unreadable", earlier));
            const QByteArray before = placeAt(registry);

            // A listing lists nothing, says why in one line, and leaves everything as it was.
            QString why;
            QCOMPARE(kit("-mAD -p com.apple.FinderSync", &why), "0:");
            QVERIFY2(why.count('\n') == 1 && why.contains("could not be read"),
                     qPrintable(kind + ": " + why));
            QCOMPARE(placeAt(registry), before);
            if (backup.isEmpty())
                continue;
            // A registration keeps it aside under a name no other backup has, and starts a new
            // registry.
            QCOMPARE(kit("-a " + makeBundle(home), &why), "0:");
            QCOMPARE(why.section("; it is kept as ~/data/brindlemark/", 1),
                     "plugin-registry.json" + backup + " and a new registry is started\n");
            QCOMPARE(placeAt(registry + backup), before);
            QVERIFY(earlier.isEmpty() || readFile(registry + ".unreadable") == earlier);
            QCOMPARE(entries(home.file("data/brindlemark")).size(), backup.endsWith(".1") ? 3 : 2);
            QCOMPARE((QStringList{kit("-mAD", &why), why}), (QStringList{"0:-    x.y(2)\n", ""}));
        }
    }
};

QTEST_GUILESS_MAIN(BridgeTest)
#include "tst_bridge.moc"
