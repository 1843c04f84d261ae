// The template places under faults, on real file systems: a full disk, a read-only folder and a
// link to a file elsewhere. The other places are still written, the settings file is never left
// half-written, and nothing the user had is lost. Needs root (it mounts small tmpfs folders);
// elsewhere it is skipped with the reason.
#include "TestEnvironment.h"

#include "app/AppDelegate.h"
#include "platform/linux/LinuxPlatform.h"
#include "templates/TemplateStore.h"

#include <QProcess>
#include <QSettings>

using namespace brindlemark;

namespace {

bool run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(10'000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// A tmpfs of `size` at `folder`, unmounted again when this goes.
class SmallFileSystem {
public:
    SmallFileSystem(const QString& folder, const QString& size) : m_folder(folder)
    {
        QDir().mkpath(folder);
        m_mounted = run("mount", {"-t", "tmpfs", "-o", "size=" + size, "tmpfs", folder});
    }
    ~SmallFileSystem()
    {
        if (m_mounted)
            run("umount", {m_folder});
    }
    bool mounted() const { return m_mounted; }
    bool fill() const { return !run("dd", {"if=/dev/zero", "of=" + m_folder + "/filler", "bs=4k"}); }
    void makeRoom() const { QFile::remove(m_folder + "/filler"); }
    bool readOnly() const { return run("mount", {"-o", "remount,ro", m_folder}); }

private:
    QString m_folder;
    bool m_mounted = false;
};

QString settingsText()
{
    const QVariant value = QSettings(LinuxPlatform::userDefaultsFilePath(), QSettings::IniFormat).value("TemplatesJSON");
    return value.toString();
}

// The list with one more, long template: a text clearly larger than the built-ins'.
TemplateList grown(const TemplateList& templates)
{
    TemplateList more = templates;
    more << Template{{"id", "big"}, {"title", QString(3000, u'x')}, {"prefix", "big"}, {"enabled", true}};
    return more;
}

} // namespace

class FaultsTest : public QObject {
    Q_OBJECT

private slots:
    void fullDisk()
    {
        TestHome home;
        SmallFileSystem config(home.file("config"), "64k");
        if (!config.mounted())
            QSKIP("cannot mount a tmpfs here (needs root)");
        LinuxPlatform platform;
        const auto delegate = start(platform, true);
        const QString before = settingsText();
        QCOMPARE(before, QString(builtInTemplatesJSON));
        const QByteArray settingsBefore = readFile(LinuxPlatform::userDefaultsFilePath());

        QVERIFY(config.fill());
        delegate->setTemplates(grown(delegate->templates()));
        delegate->saveTemplates();
        const QString after = templatesJSONText(delegate->templates());
        // On the full disk: the old files, whole (read from the disk: this process's settings
        // object keeps the new value in memory). Elsewhere: the new text.
        QCOMPARE(readFile(LinuxPlatform::userDefaultsFilePath()), settingsBefore);
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), before.toUtf8());
        QCOMPARE(readFile(home.file("data/org.brindlemark.Brindlemark/Templates.json")), after.toUtf8());

        config.makeRoom();
        delegate->saveTemplates();
        QCOMPARE(settingsText(), after);
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), after.toUtf8());
    }

    void readOnlyFolder()
    {
        TestHome home;
        SmallFileSystem data(home.file("data"), "1m");
        if (!data.mounted())
            QSKIP("cannot mount a tmpfs here (needs root)");
        LinuxPlatform platform;
        const auto delegate = start(platform, true);
        QVERIFY(data.readOnly());
        delegate->setTemplates(grown(delegate->templates()));
        delegate->saveTemplates();
        const QString after = templatesJSONText(delegate->templates());
        for (const char* id : {"org.brindlemark.Brindlemark", "org.brindlemark.Brindlemark.BrindlemarkFinderSync"})
            QCOMPARE(readFile(home.file(QString("data/") + id + "/Templates.json")), QByteArray(builtInTemplatesJSON));
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), after.toUtf8());
        QCOMPARE(settingsText(), after);
    }

    void linkToAFileElsewhere()
    {
        TestHome home;
        QVERIFY(writeFile(home.file("dotfiles/brindlemark.json"), "[]"));
        QDir().mkpath(home.file("config/Brindlemark"));
        QVERIFY(QFile::link(home.file("dotfiles/brindlemark.json"), home.file("config/Brindlemark/Templates.json")));
        LinuxPlatform platform;
        const auto delegate = start(platform, true);
        // The link stays a link, and the file it names holds the templates.
        QCOMPARE(QFileInfo(home.file("config/Brindlemark/Templates.json")).symLinkTarget(), home.file("dotfiles/brindlemark.json"));
        QCOMPARE(readFile(home.file("dotfiles/brindlemark.json")), QByteArray(builtInTemplatesJSON));
    }

};

BRINDLEMARK_WIDGET_TEST_MAIN(FaultsTest)
#include "tst_faults.moc"
