// The extension bridge: our URL parser, the strict payload decoder, what a command URL asks
// for, the tool runner, the extension's state from the registry listing, the registry, and the
// settings files as QSettings reads them back.
#include "TestSupport.h"

#include "bridge/ExtensionManagement.h"
#include "bridge/LaunchArguments.h"
#include "bridge/ToolRunner.h"
#include "bridge/UrlCommands.h"
#include "platform/linux/IniFile.h"
#include "platform/linux/PluginRegistry.h"

#include <QJsonArray>
#include <QProcess>
#include <QSettings>

#include <csignal>
#include <sys/stat.h>

using namespace brindlemark;

namespace {

const QString ExtensionId = "org.brindlemark.Brindlemark.BrindlemarkFinderSync";

// One run of the registry tool itself, "exit code:standard output", and what it said on standard
// error. A run still going after 5 seconds is stopped and reads "hung".
std::pair<QString, QString> pluginKit(const QStringList& arguments) {
    QProcess tool;
    tool.start(BRINDLEMARK_PLUGINKIT, arguments);
    if (!tool.waitForFinished(5'000)) {
        tool.kill();
        tool.waitForFinished();
        return {"hung", ""};
    }
    return {QString::number(tool.exitCode()) + ":" + tool.readAllStandardOutput(),
            tool.readAllStandardError()};
}

// What is at the path: a file's bytes, else its kind.
QByteArray placeAt(const QString& path) {
    const QFileInfo info(path);
    if (info.isFile() && !info.isSymLink())
        return readFile(path);
    return info.isSymLink() ? "<link>"
           : info.isDir()   ? "<folder>"
           : info.exists()  ? "<other>"
                            : "<nothing>";
}

// A bundle whose steps are these scripts (none when empty); registered as x.y, version 2.
QString makeBundle(const TestHome& home, const QByteArray& install = {},
                   const QByteArray& uninstall = {}) {
    const QString bundle = home.file("Some.appex");
    QDir(bundle).removeRecursively();
    writeFile(bundle + "/Info.ini", "[Extension]\nIdentifier=x.y\nProtocol=p\nVersion=2\n");
    for (const auto& [step, script] : {std::pair{"/install", install}, {"/uninstall", uninstall}})
        if (!script.isEmpty())
            writeScript(bundle + step, script);
    return bundle;
}

// A step that starts a process in the background and goes on itself, each writing its id to
// $HOME/started.
const QByteArray LingeringStep = "sleep 60 & echo $! >> \"$HOME/started\"; echo $$ >> "
                                 "\"$HOME/started\"; echo started; exec sleep 60";

// Whether every process named in $HOME/started has ended (a zombie has), waiting up to 5 seconds
// for a kill to arrive. Those left are killed.
bool startedProcessesEnded(const TestHome& home) {
    const auto running = [&] {
        QList<pid_t> pids;
        for (const QByteArray& pid : readFile(home.file("started")).split('\n'))
            if (const QByteArray stat = readFile("/proc/" + pid + "/stat");
                !pid.isEmpty() && !stat.isEmpty() && stat.mid(stat.lastIndexOf(')') + 2, 1) != "Z")
                pids << pid_t(pid.toLongLong());
        return pids;
    };
    for (QDeadlineTimer guard(5'000); !running().isEmpty() && !guard.hasExpired();)
        QTest::qWait(10);
    const QList<pid_t> left = running();
    for (const pid_t pid : left)
        ::kill(pid, SIGKILL);
    return left.isEmpty();
}

const QByteArray DamagedRegistry =
    "[\n    {\n        \"elected\": true,\n        \"identifier\"; \"a.b\"\n    }\n]\n";

} // namespace

class BridgeTest : public QObject {
    Q_OBJECT

private slots:
    void settingsFileReadsBackWhatWasStored() {
        TestHome home;
        const QString path = home.file("a.conf");
        for (const QString value :
             {"plain", "@@x", "\u001ffe", "[{\"a\":\"b, c\"}]", "x=y;z", "back\\slash\\",
              "@Variant(x)", "  spaces  ", "\u00011f\t\n\u007fa", "ünï 😀", ""}) {
            // Other keys and groups, an earlier value, a CR before a line break and none at the
            // end: only the value changes, and it reads back the same here as in QSettings.
            writeFile(path, "Before=1\n[General]\nK = old\nKey=2\r\n[Group]\nK=kept");
            for (int time = 0; time < 2; ++time) {
                const std::optional<QByteArray> text = ini::fileWithValue(path, "K", value);
                QVERIFY(text && writeFile(path, *text));
            }
            const QSettings read(path, QSettings::IniFormat);
            QCOMPARE(read.value("K").toString(), value);
            QCOMPARE(QStringList({read.value("Before").toString(), read.value("Key").toString(),
                                  read.value("Group/K").toString()}),
                     QStringList({"1", "2", "kept"}));
            const ini::ReadValue own = ini::readValue(readFile(path), "K");
            QVERIFY(own.understood && own.value == value);
        }
    }

    void settingsValuesOnlyQSettingsReads() {
        // Forms the settings file never gets from Brindlemark: left to QSettings, or absent.
        expectEach(
            [](const QString& text) {
                const ini::ReadValue read = ini::readValue(text.toUtf8(), "K");
                return !read.understood ? "QSettings" : read.value ? *read.value : "absent";
            },
            {{"K=plain", "QSettings"},
             {"K=\"a\", \"b\"", "QSettings"},
             {"K=\"@Variant(x)\"", "QSettings"},
             {"K=\"\\n\"", "QSettings"},
             {"K=\"unended", "QSettings"},
             {"[Other]\nK=\"x\"", "absent"},
             {"Key=\"x\"", "absent"},
             {"[General]\n K = \"x\" ", "x"},
             {"A=[y]\nK=\"x\"", "x"}}); // a value in brackets starts no group
    }

    void parseCommandUrl() {
        // scheme|host|count|items, an item written name=value, or name alone without "=".
        auto describe = [](const QString& text) {
            const std::optional<CommandUrl> url = brindlemark::parseCommandUrl(text);
            QStringList items;
            for (const QueryItem& item : url ? url->queryItems : QList<QueryItem>{})
                items << (item.value ? item.name + "=" + *item.value : item.name);
            return url ? QStringList{url->scheme, url->host, QString::number(items.size()),
                                     items.join("&")}
                             .join('|')
                       : "<none>";
        };
        QList<std::pair<QString, QString>> cases{
            {"brindlemark://terminal?path=%2Ftmp%2Fa%20b", "brindlemark|terminal|1|path=/tmp/a b"},
            {"BrindleMark://Create?Path=/tmp", "BrindleMark|Create|1|Path=/tmp"},
            {"brindlemark://create", "brindlemark|create|0|"},
            {"brindlemark://create?", "brindlemark|create|0|"},
            {"brindlemark://x?a&b=&c=1+2&d=1=2", "brindlemark|x|4|a&b=&c=1+2&d=1=2"},
            {"brindlemark://x?%70=%2B+%C3%BC", "brindlemark|x|1|p=++ü"},
            {"brindlemark://x?p=/tmp/Ünï", "brindlemark|x|1|p=/tmp/Ünï"},
            {"brindlemark://x?p=%FF&%FF=1", "brindlemark|x|2|p&=1"},
            {"brindlemark://x/a/b?p=1#f&p=2", "brindlemark|x|1|p=1"},
            {"brindlemark:///a?p=1", "brindlemark||1|p=1"},
            {"brindlemark://me@x:80?p=1", "brindlemark|x|1|p=1"},
            // As KDE's opener passes them on, decoded: blanks and letters beyond ASCII as if
            // escaped.
            {"brindlemark://create?path=/home/me/a b ü&id=x y",
             "brindlemark|create|2|path=/home/me/a b ü&id=x y"},
            {"brindlemark://x? p = 1 ", "brindlemark|x|1| p = 1 "}};
        for (const char* bad :
             {"brindlemark://x?p=%zz", "brindlemark://x?p=%2", "brindlemark://x?p=/a\tb",
              "brindlemark://x?p=\x7f", "brindlemark://x?p=/a\nb", "", "://x", "1a://x", "a_b://x",
              "no-scheme", "brindlemark://a b?p=1", "brindle mark://x?p=1",
              "brindlemark://x?p=1#a b", "brindlemark://x#a?p= "})
            cases.append(std::pair<QString, QString>(bad, "<none>"));
        expectEach(describe, cases);
    }

    void strictBase64Decode() {
        QList<std::pair<QString, QString>> cases{
            {"e30=", "{}"},
            {"YQ==", "a"},
            {"YWJj", "abc"},
            {"", ""},
            {"eyJ0aXRsZSI6ImE/PiIsInByZWZpeCI6ImJ+fiJ9", R"({"title":"a?>","prefix":"b~~"})"}};
        for (const char* bad : {"e30", "eyJ0aXRsZSI6ImE_PiIsInByZWZpeCI6ImJ-fiJ9", "e30=\n", "e3 0",
                                "e30=e30=", "====", "YQ=a", "Y===", "e30.", "ñ30="})
            cases.append(std::pair<QString, QString>(bad, "<none>"));
        expectEach(
            [](const QString& text) {
                const std::optional<QByteArray> decoded = brindlemark::strictBase64Decode(text);
                return decoded ? QString::fromUtf8(*decoded) : QString("<none>");
            },
            cases);
    }

    void commands() {
        // kind|folder, and for a template the record. A case that starts with "&" has
        // "brindlemark://template?path=/tmp" before it.
        expectEach(
            [](const QString& url) {
                const UrlRequest request = interpretCommandUrl(
                    url.startsWith('&') ? "brindlemark://template?path=/tmp" + url : url,
                    {json(R"({"id":"mine","title":"Mine","suffix":".x"})")});
                const QString kind = QString::number(request.kind) + "|" + request.folder;
                return request.kind == UrlRequest::CreateFromTemplate
                           ? kind + "|" + describe(request.record)
                           : kind;
            },
            {{"brindlemark://terminal?path=%2Ftmp%2Fa%20b", "4|/tmp/a b"},
             {"brindlemark://iterm?x=1&path=/a&path=/b", "5|/a"},
             {"brindlemark://iterm?path=&path=/b", "1|"},
             {"brindlemark://iterm?path&path=/b", "1|"},
             {"brindlemark://create?path=%FF", "1|"},
             {"brindlemark://nothing", "1|"},
             {"brindlemark://nothing?path=/tmp", "0|/tmp"},
             {"brindlemark://Create?path=/tmp", "0|/tmp"},
             {"Brindlemark://create?path=/tmp", "0|"},
             {"create me", "0|"},
             {"brindlemark://create?path=/tmp&id=markdown", "2|/tmp"},
             {"&id=markdown", "3|/tmp|markdown|Markdown Document|MarkdownDocument|md|1|0"},
             {"&executable=yes", "3|/tmp|text|Text File|New Text File|txt|1|0"},
             {"&title=Notes", "3|/tmp|text|Notes|New Text File|txt|1|0"},
             {"&title=A&title=B&title=&prefix=Memo", "3|/tmp|text|B|Memo|txt|1|0"},
             {"&id=nope&suffix=.org", "3|/tmp|nope|Text File|New Text File|.org|1|0"},
             {"&id=shell&prefix=run", "3|/tmp|shell|Shell Script|run|sh|1|1"},
             {"&id=shell&prefix=run&executable=NO", "3|/tmp|shell|Shell Script|run|sh|1|0"},
             {"&prefix=run&executable=on", "3|/tmp|text|Text File|run|txt|1|1"},
             {"&id=mine&enabled=false&suffix=y", "3|/tmp|mine|Mine|Mine|y|1|0"},
             {"&id=mine&prefix=%20a%20", "3|/tmp|mine|Mine| a |x|1|0"},
             {"&id=mine", "3|/tmp|mine|Mine|Mine|x|0|0"},
             {"&title=Y&payload=eyJ0aXRsZSI6Ij4+PiJ9", "3|/tmp|*|>>>|>>>||0|0"},
             {"&payload=e30=&id=markdown", "3|/tmp|*|New File|New File||0|0"},
             {"&payload=W10=&id=json", "3|/tmp|json|JSON File|JSONFile|json|0|0"},
             {"&payload=eyJ0aXRsZSI6ImEJYiJ9&title=Z",
              "3|/tmp|text|Z|New Text File|txt|1|0"}, // a raw tab in the JSON
             {"&payload=eyJ0aXRsZSI6Ilx1MDBlOVx1ZDgzZFx1ZGUwMCJ9",
              "3|/tmp|*|\u00e9\U0001F600|\u00e9\U0001F600||0|0"},
             {"&payload=e30&title=Z", "3|/tmp|text|Z|New Text File|txt|1|0"},
             {"&payload=%2F%2F79&title=Z", "3|/tmp|text|Z|New Text File|txt|1|0"}});
    }

    void launchArguments() {
        // U a URL, F a folder command (both handed to the running instance with ">"), - an argument
        // that brindlemark-app keeps as it was given.
        expectEach(
            [](const QString& argument) {
                const QByteArray bytes = argument.toUtf8();
                const char* a = bytes.constData();
                return QString(isUrlArgument(a)             ? "U"
                               : isFolderCommandArgument(a) ? "F"
                                                            : "-") +
                       (isForwardedArgument(a) ? ">" : "");
            },
            {{"brindlemark://create?path=/tmp", "U>"},
             {"x+y-z.1:", "U>"},
             {"C:\\x", "U>"},
             {"-style", "-"},
             {"-style=Fusion", "-"},
             {"/tmp/a:b", "-"},
             {"1a://x", "-"},
             {"+a:b", "-"},
             {"a_b://x", "-"},
             {"a b:c", "-"},
             {":x", "-"},
             {"", "-"},
             {"\u00fc:x", "-"},
             {"brindlemark", "-"},
             {"--in", "-"},
             {"--new-file", "F>"},
             {"--new-file=md", "F>"},
             {"--new-files", "-"},
             {"--open-terminal", "F>"}});
    }

    void toolRunner() {
        TestHome home;
        const QString tool = home.file("tool");
        expectEach(
            [&](const QString& script) {
                writeScript(tool, script.toUtf8());
                QElapsedTimer timer;
                timer.start();
                const QStringList arguments{"a b", "'q'", "$HOME;|&", ""};
                const QString output = runTool(tool, arguments, 500);
                // The same tool in a sequence, the event loop running meanwhile, gives the same
                // text.
                QString inSequence = "never finished";
                QEventLoop loop;
                ToolSequence sequence([&] { loop.quit(); }, 500);
                sequence.append(tool, arguments, [&](const QString& text) { inSequence = text; });
                sequence.start();
                QTimer::singleShot(5'000, &loop, &QEventLoop::quit);
                loop.exec();
                if (inSequence != output)
                    return "in a sequence: " + inSequence;
                return timer.elapsed() < 10'000 ? output : "not stopped in time";
            },
            {{"exit 3", ""},
             {"echo a; echo b >&2; echo c", "a\nb\nc\n"},
             {"printf 'ok\\377'", ""},
             {"printf '[%s]' \"$@\"", "[a b]['q'][$HOME;|&][]"},
             {"cat; echo done", "done\n"},
             {"head -c 3000000 /dev/zero | tr '\\0' a", QString(3'000'000, u'a')},
             {"echo started; exec sleep 600",
              "started\ntool did not finish within 0.5 seconds and was stopped."},
             {"printf x; exec >&- 2>&-; sleep 600",
              "x\ntool did not finish within 0.5 seconds and was stopped."}});
        QVERIFY(!runTool(home.file("missing"), {}).isEmpty() &&
                !runTool(home.path(), {}).isEmpty()); // no tool there: a reason
        // A sequence goes on past a tool that cannot start, handing on the reason.
        QStringList outputs;
        QEventLoop loop;
        ToolSequence sequence([&] { loop.quit(); });
        sequence.append(home.file("missing"), {}, [&](const QString& text) { outputs << text; });
        writeScript(tool, "echo second");
        sequence.append(tool, {}, [&](const QString& text) { outputs << text; });
        sequence.start();
        QTimer::singleShot(5'000, &loop, &QEventLoop::quit);
        loop.exec();
        QVERIFY2(outputs.size() == 2 && !outputs[0].isEmpty() && outputs[1] == "second\n",
                 qPrintable(outputs.join('|')));
    }

    void extensionState() {
        const QString id = "org.brindlemark.Brindlemark.BrindlemarkFinderSync";
        expectEach(
            [&](const QString& listing) {
                const ExtensionState state = extensionStateFromListing(listing, id);
                return extensionMenuTitle(state) + "|" + extensionStateText(state);
            },
            {{"+    " + id + "(1.0)\n", "Finder Extension: Enabled|Enabled"},
             {"-    x(1)\n+\t" + id, "Finder Extension: Enabled|Enabled"},
             {"+   " + id, "Finder Extension: Registered|Registered"},
             {"-    " + id + "Helper", "Finder Extension: Registered|Registered"},
             // Only a line of its own, the identifier whole: not one forged inside another
             // registration.
             {"x+\t" + id, "Finder Extension: Registered|Registered"},
             {"+    " + id + "Helper(1)", "Finder Extension: Registered|Registered"},
             {"+    " + id + " x(1)", "Finder Extension: Registered|Registered"},
             {"-    x\\x0a+    " + id + "(1)\n", "Finder Extension: Registered|Registered"},
             {"+    com.example.Other\n-    " + id, "Finder Extension: Registered|Registered"},
             {"+    " + id.toLower(), "Finder Extension: Not Registered|Not registered"}});
    }

    void registry() {
        TestHome home;
        const QString bundle = home.file("Some.appex");
        // Read as QSettings reads it: only its group, blanks around keys and values, quotes around
        // a value.
        QVERIFY(writeFile(bundle + "/Info.ini",
                          "[Extension]\n Identifier = x.y "
                          "\nProtocol=p\nVersion=\"2\"\n[Other]\nIdentifier=other\n"));
        writeScript(bundle + "/install", "echo installed > \"$HOME/step\"; echo done installing");
        writeScript(bundle + "/uninstall", "echo uninstalled > \"$HOME/step\"");
        QVERIFY(writeFile(home.file("data/brindlemark/plugin-registry.json"), "{ broken"));
        // Runs the command lines in order: each gives "exit code:output".
        auto run = [&](const QList<QStringList>& commands) {
            QString text;
            for (const QStringList& arguments : commands) {
                std::vector<std::string> converted;
                for (const QString& argument : arguments)
                    converted.push_back(argument.toStdString());
                const PluginKitResult result = runPluginKit(converted);
                text +=
                    QString::number(result.exitCode) + ":" + QString::fromStdString(result.output);
            }
            return text + readFile(home.file("step"));
        };
        QCOMPARE(run({{"-e", "use", "-i", "x.y"}}),
                 "1:pluginkit: no plug-in is registered as x.y\n");
        // A broken registry is kept aside.
        QCOMPARE(run({{"-a", bundle}, {"-mAD", "-p", "p"}}), "0:0:-    x.y(2)\n");
        QCOMPARE(run({{"-e", "use", "-i", "x.y"}}), "0:done installing\ninstalled\n");
        QCOMPARE(run({{"-a", bundle}, {"-m", "-i", "x.y", "-p", "p"}}),
                 "0:0:+    x.y(2)\ninstalled\n"); // the election stays
        QCOMPARE(run({{"-mAD", "-p", "other"}, {"-mAD", "-i", "other"}}), "0:0:installed\n");
        QCOMPARE(run({{"-e", "ignore", "-i", "x.y"}, {"-mAD"}}), "0:0:-    x.y(2)\nuninstalled\n");
        QCOMPARE(run({{"-r", bundle}, {"-mAD"}}), "0:0:uninstalled\n");
        QCOMPARE(entries(home.path()),
                 (QStringList{"Some.appex", "data", "run", "step"})); // nothing else written
        QCOMPARE(entries(home.file("data/brindlemark")),
                 (QStringList{"plugin-registry.json", "plugin-registry.json.unreadable"}));
        QFile::remove(home.file("step"));
        QCOMPARE(run({{"-a", home.path()}}),
                 "1:pluginkit: " + home.path() +
                     " is not an extension bundle (it has no Info.ini)\n");
        QCOMPARE(run({{"-r", "/tmp"}}), "1:pluginkit: no plug-in is registered at /tmp\n");
        for (const QStringList& usage : QList<QStringList>{{},
                                                           {"-e", "maybe", "-i", "x"},
                                                           {"-mAD", "-p"},
                                                           {"-mX"},
                                                           {"-m", "-q", "x"},
                                                           {"-a"}})
            QVERIFY2(run({usage}).startsWith("64:usage: brindlemark-pluginkit"),
                     qPrintable(usage.join(' ')));

        // Bundle paths are made absolute and cleaned as QFileInfo does; a trailing slash stays.
        const QString previous = QDir::currentPath();
        const auto restore = qScopeGuard([&] { QDir::setCurrent(previous); });
        QDir::setCurrent(home.path());
        expectEach(
            [&](const QString& path) {
                return run({{"-a", path}}).section(' ', 1, 1);
            },
            {{"x/../y/./z//w", home.file("y/z/w")},
             {".", home.path()},
             {"../" + QFileInfo(home.path()).fileName() + "//x/..", home.path()},
             {"/a/./b/../c/", "/a/c/"},
             {"//a//b/.", "/a/b"},
             {"/a/..", "/"}});
    }

    void registryFromEarlierVersions() {
        TestHome home;
        const QString registry = home.file("data/brindlemark/plugin-registry.json");
        auto listing = [&](const QByteArray& text) {
            writeFile(registry, text);
            return QString::fromStdString(runPluginKit({"-mAD"}).output);
        };
        // As QJsonDocument wrote it (indented, escapes), with members and values the registry
        // ignores.
        const QByteArray written =
            "[\n    {\n        \"elected\": true,\n"
            "        \"extra\": {\"n\": [1, -2.5e3, null, false, {}, \"]\"]},\n"
            "        \"identifier\": \"q\\\"u\\\\o\\u00e9\\ue000\\ud83d\\ude00\",\n" // q"u\oé, a
                                                                                     // private-use
                                                                                     // character, 😀
            "        \"path\": \"/no/such \\\"bundle\\\"\\\\\",\n"
            R"(        "protocol": "p",)"
            "\n"
            R"(        "version": "1\/2\t\u0001")"
            "\n    },\n"
            R"(    {"identifier": 5, "path": "/x"}, "text", [],)"
            "\n"
            R"(    {"elected": "true", "identifier": "n"})"
            "\n]\n";
        expectEach(
            [&](const QString& text) { return listing(text.toUtf8()); },
            {{written, "+    q\"u\\oé\uE000😀(1/2\\x09\\x01)\n-    n()\n"},
             // Control characters, shown escaped: one line per registration, whatever it holds.
             {"[{\"identifier\": \"x\\n+    " + ExtensionId +
                  "\", \"version\": \"\\u001b[2J\\u007f\\u0000\"}]",
              "-    x\\x0a+    " + ExtensionId + "(\\x1b[2J\\x7f\\x00)\n"},
             // As nlohmann::json alone would not read it: a byte-order mark, a number beyond a
             // double, lone halves of surrogate pairs ("?", as in Qt); the last repeated member.
             {"\uFEFF[{\"identifier\": \"a\", \"n\": -1e400, \"identifier\": \"\\udc00x\\ud800\"}]",
              "-    ?x?()\n"},
             // Broken, or not an array: nothing listed. Since nlohmann::json reads the registry, a
             // raw control character or an unknown escape in a string too (no version wrote them).
             {R"([{"identifier": "a"}] x)", ""},
             {QString::fromUtf8("[{\"identifier\": \"a\"}]\0", 22), ""},
             {"[{\"identifier\": \"a\tb\"}]", ""},
             {R"([{"identifier": "\a"}])", ""},
             {R"({"identifier": "a"})", ""},
             {R"([{"identifier": "a\u12x4"}])", ""},
             {R"([{"identifier": "a"},])", ""},
             {R"([{"identifier": "a", "n": 01}])", ""},
             {QString(100'000, '['), ""}});
        QCOMPARE(listing("[{\"identifier\": \"a\xc3\"}]"), ""); // not UTF-8

        // Rewritten after a change, it is what QJsonDocument itself writes for the same records.
        listing(written);
        QCOMPARE(runPluginKit({"-e", "ignore", "-i", "q\"u\\oé\uE000😀"}).exitCode, 0);
        const QJsonArray expected{QJsonObject{{"elected", false},
                                              {"identifier", "q\"u\\oé\uE000😀"},
                                              {"path", "/no/such \"bundle\"\\"},
                                              {"protocol", "p"},
                                              {"version", "1/2\t\x01"}},
                                  QJsonObject{{"elected", false},
                                              {"identifier", "n"},
                                              {"path", ""},
                                              {"protocol", ""},
                                              {"version", ""}}};
        QCOMPARE(readFile(registry), QJsonDocument(expected).toJson());

        // A NUL in a registered path must not cut it short to a program that is not the bundle's
        // step.
        writeScript(home.file("program"), "touch \"$HOME/ran\"");
        listing("[{\"identifier\": \"z\", \"path\": \"" + home.file("program").toUtf8() +
                "\\u0000\"}]");
        QCOMPARE(runPluginKit({"-e", "use", "-i", "z"}).exitCode, 0);
        QVERIFY(!QFile::exists(home.file("ran")));
    }

    void unreadableRegistryIsKeptAside_data() {
        QTest::addColumn<QString>("kind");       // what stands where the registry belongs
        QTest::addColumn<QByteArray>("earlier"); // an earlier backup's bytes, if there is one
        QTest::addColumn<QString>("backup");     // a registration keeps it as; "" for none
        QTest::newRow("one damaged byte") << "damaged" << QByteArray() << ".unreadable";
        QTest::newRow("earlier backup of other bytes")
            << "damaged" << QByteArray("other") << ".unreadable.1";
        QTest::newRow("earlier backup of the same bytes")
            << "damaged" << DamagedRegistry << ".unreadable";
        QTest::newRow("beyond 1 MiB") << "large" << QByteArray() << ".unreadable";
        QTest::newRow("pipe") << "fifo" << QByteArray() << ".unreadable";
        QTest::newRow("folder") << "folder" << QByteArray() << ".unreadable";
        QTest::newRow("link to a device") << "device" << QByteArray() << "";
    }

    void unreadableRegistryIsKeptAside() {
        QFETCH(QString, kind);
        QFETCH(QByteArray, earlier);
        QFETCH(QString, backup);
        TestHome home;
        const QString folder = home.file("data/brindlemark"),
                      registry = folder + "/plugin-registry.json";
        QDir().mkpath(folder);
        if (kind == "damaged")
            QVERIFY(writeFile(registry, DamagedRegistry));
        else if (kind == "large") // valid JSON, but no registry is that large
            QVERIFY(
                writeFile(registry, "[" + QByteArray(1 << 20, ' ') + R"({"identifier": "a.b"}])"));
        else if (kind == "fifo")
            QCOMPARE(::mkfifo(QFile::encodeName(registry).constData(), 0600), 0);
        else if (kind == "folder")
            QVERIFY(QDir().mkpath(registry));
        else
            QVERIFY(QFile::link("/dev/null", registry));
        if (!earlier.isNull())
            QVERIFY(writeFile(registry + ".unreadable", earlier));
        const QByteArray before = placeAt(registry);

        // A listing lists nothing, says why in one line, and leaves everything as it was.
        const auto [listed, why] = pluginKit({"-mAD", "-p", "com.apple.FinderSync"});
        QCOMPARE(listed, "0:");
        QVERIFY2(why.count('\n') == 1 && why.contains("could not be read"), qPrintable(why));
        QCOMPARE(placeAt(registry), before);
        if (backup.isEmpty())
            return;
        // A registration keeps it aside under a name no other backup has, and starts a new
        // registry.
        const auto [added, notice] = pluginKit({"-a", makeBundle(home)});
        QCOMPARE(added, "0:");
        QVERIFY2(notice.count('\n') == 1 && notice.contains(registry + backup + " "),
                 qPrintable(notice));
        QCOMPARE(placeAt(registry + backup), before);
        QStringList kept{"plugin-registry.json", "plugin-registry.json.unreadable"};
        if (backup.endsWith(".1")) {
            kept << "plugin-registry.json.unreadable.1";
            QCOMPARE(placeAt(registry + ".unreadable"), earlier);
        }
        QCOMPARE(entries(folder), kept);
        QCOMPARE(pluginKit({"-mAD"}), (std::pair<QString, QString>("0:-    x.y(2)\n", "")));
    }

    void registrationRefusesControlCharacters() {
        // A line added to the bundle's Info.ini, or "path": the bundle's folder name holds a line
        // break.
        TestHome home;
        const QString registry = home.file("data/brindlemark/plugin-registry.json");
        expectEach(
            [&](const QString& line) {
                const QString bundle = home.file(line == "path" ? "a\nb.appex" : "c.appex");
                writeFile(bundle + "/Info.ini",
                          "[Extension]\nIdentifier=x.y\nProtocol=p\nVersion=1\n" + line.toUtf8() +
                              "\n");
                const PluginKitResult result = runPluginKit({"-a", bundle.toStdString()});
                QString text =
                    QString::number(result.exitCode) + ":" + QString::fromStdString(result.output);
                return text.replace(home.path(), "~") +
                       (QFile::exists(registry) ? " (registered)" : "");
            },
            {{"Identifier=x\x1b[2Jy", "1:pluginkit: cannot register ~/c.appex: its identifier "
                                      "\"x\\x1b[2Jy\" holds a control character\n"},
             {"Identifier=x\ry", "1:pluginkit: cannot register ~/c.appex: its identifier "
                                 "\"x\\x0dy\" holds a control character\n"},
             {"Version=1\x7f", "1:pluginkit: cannot register ~/c.appex: its version \"1\\x7f\" "
                               "holds a control character\n"},
             {"Protocol=\x01p", "1:pluginkit: cannot register ~/c.appex: its protocol \"\\x01p\" "
                                "holds a control character\n"},
             {"path", "1:pluginkit: cannot register ~/a\\x0ab.appex: its path \"~/a\\x0ab.appex\" "
                      "holds a control character\n"},
             {"", "0: (registered)"}});
    }

    void electionFollowsTheBundleStep() {
        // "use|install step" on a registered bundle, "ignore|uninstall step" on an elected one: the
        // tool's exit code and text, then the listing. The step has half a second.
        TestHome home;
        expectEach(
            [&](const QString& row) {
                const bool use = row.startsWith("use|");
                const QByteArray step = row.section('|', 1).toUtf8();
                const QString bundle = makeBundle(home, use ? step : "", use ? "" : step);
                QFile::remove(home.file("data/brindlemark/plugin-registry.json"));
                QFile::remove(home.file("started"));
                runPluginKit({"-a", bundle.toStdString()});
                if (!use)
                    runPluginKit({"-e", "use", "-i", "x.y"});
                const PluginKitResult result = runPluginKit(
                    {"-e", use ? "use" : "ignore", "-i", "x.y"}, std::chrono::milliseconds(500));
                QString text =
                    QString::number(result.exitCode) + ":" +
                    QString::fromStdString(result.output + runPluginKit({"-mAD"}).output);
                return text.replace(home.path(), "~") +
                       (startedProcessesEnded(home) ? "" : " (the step goes on)");
            },
            {{"use|echo fine", "0:fine\n+    x.y(2)\n"},
             {"use|echo broken; exit 3",
              "1:broken\npluginkit: ~/Some.appex/install failed with exit status 3; the registry "
              "is left as it was\n-    x.y(2)\n"},
             {"use|kill -9 $$", "1:pluginkit: ~/Some.appex/install was ended by signal 9; the "
                                "registry is left as it was\n-    x.y(2)\n"},
             {"use|" + LingeringStep,
              "1:started\npluginkit: ~/Some.appex/install did not end within 0.5 seconds and was "
              "stopped; the registry is left as it was\n-    x.y(2)\n"},
             {"ignore|echo gone", "0:gone\n-    x.y(2)\n"},
             {"ignore|exit 1", "1:pluginkit: ~/Some.appex/uninstall failed with exit status 1; the "
                               "registry is left as it was\n+    x.y(2)\n"}});
    }

    void toolLimitStopsEverythingTheToolStarted() {
        // Electing runs the bundle's install step, in a process group of its own. Stopped by the
        // tool runner at its limit, alone or in a sequence, or told to stop, the registry tool
        // takes the step and what it started along, and the extension stays unelected.
        TestHome home;
        QCOMPARE(pluginKit({"-a", makeBundle(home, LingeringStep)}).first, "0:");
        const QStringList elect{"-e", "use", "-i", "x.y"};
        for (const QString way : {"runTool", "ToolSequence", "SIGTERM"}) {
            QFile::remove(home.file("started"));
            if (way == "runTool") {
                runTool(BRINDLEMARK_PLUGINKIT, elect, 500);
            } else if (way == "ToolSequence") {
                QEventLoop loop;
                ToolSequence sequence([&] { loop.quit(); }, 500);
                sequence.append(BRINDLEMARK_PLUGINKIT, elect);
                sequence.start();
                QTimer::singleShot(5'000, &loop, &QEventLoop::quit);
                loop.exec();
            } else {
                QProcess tool;
                tool.start(BRINDLEMARK_PLUGINKIT, elect);
                QTRY_COMPARE(readFile(home.file("started")).count('\n'), 2);
                tool.terminate();
                QVERIFY(tool.waitForFinished(5'000));
            }
            QVERIFY2(readFile(home.file("started")).count('\n') == 2,
                     qPrintable(way)); // the step did start
            QVERIFY2(startedProcessesEnded(home), qPrintable(way));
            QCOMPARE(pluginKit({"-mAD"}).first, "0:-    x.y(2)\n");
        }
    }
};

QTEST_GUILESS_MAIN(BridgeTest)
#include "tst_bridge.moc"
