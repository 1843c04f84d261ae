#pragma once

// What every test program shares: a temporary home per test, small file helpers, fake tools,
// and one start of the application.
#include "app/AppDelegate.h"

#include <QProcess>
#include <QtTest>

#include <csignal>
#include <sys/prctl.h>

// A fresh, empty home for one test: HOME and the XDG folders point into a temporary folder
// that disappears with this object. Nothing a test does reaches the real home.
class TestHome {
public:
    TestHome() {
        QVERIFY2(m_dir.isValid(), "no temporary folder");
        QDir().mkdir(m_path + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("HOME", m_path.toUtf8());
        qputenv("XDG_CONFIG_HOME", (m_path + "/config").toUtf8());
        qputenv("XDG_DATA_HOME", (m_path + "/data").toUtf8());
        qputenv("XDG_RUNTIME_DIR", (m_path + "/run").toUtf8());
    }
    QString path() const { return m_path; }
    QString file(const QString& relative) const { return m_path + '/' + relative; }

private:
    QTemporaryDir m_dir;
    QString m_path = QDir(m_dir.path()).canonicalPath();
};

inline QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool writeFile(const QString& path, const QByteArray& bytes,
                      QFileDevice::Permissions added = {}) {
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).absolutePath()) &&
           file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
           file.write(bytes) == bytes.size() && file.setPermissions(file.permissions() | added);
}

// A small shell script standing in for a tool, a terminal or a file manager.
inline void writeScript(const QString& path, const QByteArray& body) {
    QVERIFY(writeFile(path, "#!/bin/sh\n" + body + "\n", QFile::ExeOwner));
}

// The TemplatesJSON value of a settings file, as QSettings reads it.
inline QString storedSetting(const QString& path) {
    return QSettings(path, QSettings::IniFormat).value("TemplatesJSON").toString();
}

// The running instance's process id, from its lock file; 0 when none ran.
inline pid_t instancePid() {
    const QString lock =
        qEnvironmentVariable("XDG_RUNTIME_DIR") + "/org.brindlemark.Brindlemark.socket.lock";
    return pid_t(readFile(lock).split('\n')[0].toLongLong());
}

// Ends the instance a test started, when the guard goes (also when the test fails early).
inline auto instanceStopper() {
    return qScopeGuard([] { instancePid() > 0 && ::kill(instancePid(), SIGKILL); });
}

// A log's lines, sorted: the order of things done at once is not fixed.
inline QStringList sortedLines(const QString& path) {
    QStringList all = QString::fromUtf8(readFile(path)).split(u'\n', Qt::SkipEmptyParts);
    all.sort();
    return all;
}

// Every name in the folder, hidden ones too: a save's temporary files are hidden.
inline QStringList entries(const QString& folder) {
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

// A table of cases: each input, given to `f`, must give its expected text. A failure names the
// input.
inline void expectEach(const std::function<QString(const QString&)>& f,
                       const QList<std::pair<QString, QString>>& cases) {
    for (const auto& [input, expected] : cases)
        if (!QTest::qCompare(f(input), expected, qPrintable(input), "expected", __FILE__, __LINE__))
            return;
}

inline QJsonObject json(const QString& text) {
    return QJsonDocument::fromJson(text.toUtf8()).object();
}

// A template as "id|title|prefix|suffix|enabled|executable", flags as 1 and 0, a UUID id as "*".
inline QString describe(const QJsonObject& record) {
    QStringList members;
    for (const char* key : {"id", "title", "prefix", "suffix", "enabled", "executable"})
        members << (record.value(key).isBool() ? QString::number(record.value(key).toBool())
                                               : record.value(key).toVariant().toString());
    members[0].replace(
        QRegularExpression("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$"),
        "*");
    return members.join('|');
}

// The compact JSON text of the six built-in templates, as every place holds it after a first start.
inline constexpr char builtInTemplatesJSON[] =
    R"([{"enabled":true,"executable":false,"id":"text","prefix":"New Text File","suffix":"txt","title":"Text File"},)"
    R"({"enabled":true,"executable":false,"id":"markdown","prefix":"MarkdownDocument","suffix":"md","title":"Markdown Document"},)"
    R"({"enabled":false,"executable":false,"id":"json","prefix":"JSONFile","suffix":"json","title":"JSON File"},)"
    R"({"enabled":false,"executable":true,"id":"shell","prefix":"script","suffix":"sh","title":"Shell Script"},)"
    R"({"enabled":false,"executable":true,"id":"python","prefix":"script","suffix":"py","title":"Python Script"},)"
    R"({"enabled":false,"executable":true,"id":"ruby","prefix":"script","suffix":"rb","title":"Ruby Script"}])";

// One start of the application, by the user or for a URL (then no window).
inline std::unique_ptr<brindlemark::AppDelegate> start(brindlemark::Platform& platform,
                                                       bool forURL = false) {
    auto delegate = std::make_unique<brindlemark::AppDelegate>(platform);
    delegate->applicationWillFinishLaunching();
    if (forURL) // else the controller's own start: no URL has arrived
        delegate->setHandledURLLaunch(true);
    delegate->applicationDidFinishLaunching();
    return delegate;
}

// A helper process that ends with this object, and with the test even when it crashes.
struct Child : QProcess {
    Child() {
        setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    }
    ~Child() override {
        kill();
        waitForFinished();
    }
};

// A session bus of the test's own, in `folder`, that starts no services: a file manager installed
// on the machine would otherwise be started on it, in the real home. Its address, once it runs.
inline QString startSessionBus(Child& bus, const QString& folder) {
    writeFile(folder + "/bus.conf",
              "<busconfig><type>session</type><listen>unix:path=" + folder.toUtf8() +
                  "/bus</listen><policy context='default'>"
                  "<allow send_destination='*'/><allow receive_sender='*'/>"
                  "<allow own='*'/></policy></busconfig>");
    bus.start("dbus-daemon",
              {"--config-file=" + folder + "/bus.conf", "--nofork", "--print-address=1"});
    return bus.waitForReadyRead(20'000) ? QString::fromLatin1(bus.readLine()).trimmed() : QString();
}

// Widget tests always run on the offscreen platform, whatever display the developer has (the
// program includes QApplication).
#define BRINDLEMARK_WIDGET_TEST_MAIN(TestObject)                                                   \
    int main(int argc, char** argv) {                                                              \
        qputenv("QT_QPA_PLATFORM", "offscreen");                                                   \
        QApplication application(argc, argv);                                                      \
        TestObject test;                                                                           \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
