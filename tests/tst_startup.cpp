// Start-up as a user meets it: the controller loads, normalises and saves the templates to every
// place in a temporary home, keeps unreadable text, and shows the window only for a user launch.
#include "TestEnvironment.h"

#include "app/AppDelegate.h"
#include "platform/linux/LinuxPlatform.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QSettings>

using namespace brindlemark;

namespace {

const char appId[] = "org.brindlemark.Brindlemark";
const char extensionId[] = "org.brindlemark.Brindlemark.BrindlemarkFinderSync";

QString settingsText(const QString& confFile)
{
    const QVariant value = QSettings(confFile, QSettings::IniFormat).value("TemplatesJSON");
    return value.typeId() == QMetaType::QString ? value.toString() : QString();
}

struct Places {
    QString userDefaults, extensionPreferences;
    QStringList files;
};

Places placesUnder(const QString& configHome, const QString& dataHome)
{
    return {configHome + "/" + appId + ".conf",
            configHome + "/" + extensionId + ".conf",
            {dataHome + "/" + extensionId + "/Templates.json",
             dataHome + "/" + appId + "/Templates.json",
             configHome + "/Brindlemark/Templates.json"}};
}

void storeTemplatesText(const QString& text)
{
    QSettings settings(LinuxPlatform::userDefaultsFilePath(), QSettings::IniFormat);
    settings.setValue("TemplatesJSON", text);
}

QStringList ids(const TemplateList& templates)
{
    QStringList list;
    for (const Template& t : templates)
        list << t.value("id").toString();
    return list;
}

} // namespace

class StartupTest : public QObject {
    Q_OBJECT

private slots:
    void firstStartWritesEveryPlace_data()
    {
        QTest::addColumn<bool>("xdgVariablesSet");
        QTest::newRow("XDG variables set") << true;
        QTest::newRow("XDG variables unset") << false;
    }
    void firstStartWritesEveryPlace()
    {
        QFETCH(bool, xdgVariablesSet);
        TestHome home;
        if (!xdgVariablesSet) {
            qunsetenv("XDG_CONFIG_HOME");
            qunsetenv("XDG_DATA_HOME");
        }
        const Places places = xdgVariablesSet
                                  ? placesUnder(home.file("config"), home.file("data"))
                                  : placesUnder(home.file(".config"), home.file(".local/share"));
        LinuxPlatform platform;
        QCOMPARE(platform.templateConfigFilePaths(), places.files);

        auto delegate = start(platform);
        QCOMPARE(ids(delegate->templates()),
                 (QStringList{"text", "markdown", "json", "shell", "python", "ruby"}));
        QCOMPARE(settingsText(places.userDefaults), QString(builtInTemplatesJSON));
        QCOMPARE(settingsText(places.extensionPreferences), QString(builtInTemplatesJSON));
        for (const QString& file : places.files)
            QCOMPARE(readFile(file), QByteArray(builtInTemplatesJSON));
        QVERIFY(!QFile::exists(home.file("config/Brindlemark/Templates.json.unreadable")));
    }

    void idsGeneratedAtLoadBecomePermanent()
    {
        TestHome home;
        LinuxPlatform platform;
        storeTemplatesText(R"([{"title":" Notes ","suffix":".md","enabled":"yes","colour":"red"}])");

        auto first = start(platform, true);
        QCOMPARE(first->templates().size(), 1);
        const Template loaded = first->templates().first();
        const QString id = loaded.value("id").toString();
        QCOMPARE(id.size(), 36);
        QCOMPARE(loaded.value("suffix").toString(), QString("md"));
        const QString saved =
            QString(R"([{"enabled":true,"executable":false,"id":"%1","prefix":"Notes","suffix":"md","title":"Notes"}])")
                .arg(id);
        QCOMPARE(settingsText(LinuxPlatform::userDefaultsFilePath()), saved);
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), saved.toUtf8());

        auto second = start(platform, true);
        QCOMPARE(second->templates().first().value("id").toString(), id);
        QCOMPARE(settingsText(LinuxPlatform::userDefaultsFilePath()), saved);
    }

    void storedTextOutcomes_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<bool>("builtIns");
        QTest::addColumn<bool>("backup");
        QTest::newRow("empty array") << "[]" << true << false;
        QTest::newRow("broken json") << R"([{"id":"mine","title":)" << true << true;
        QTest::newRow("object") << R"({"id":"mine"})" << true << true;
        QTest::newRow("bare string") << R"("mine")" << true << true;
        QTest::newRow("a non-object element") << R"([{"id":"mine"},7])" << false << true;
        QTest::newRow("readable list") << R"([{"id":"mine"}])" << false << false;
    }
    void storedTextOutcomes()
    {
        QFETCH(QString, stored);
        QFETCH(bool, builtIns);
        QFETCH(bool, backup);
        TestHome home;
        LinuxPlatform platform;
        storeTemplatesText(stored);

        auto delegate = start(platform, true);
        QCOMPARE(ids(delegate->templates()).first(), builtIns ? QString("text") : QString("mine"));
        const QString backupFile = home.file("config/Brindlemark/Templates.json.unreadable");
        QCOMPARE(QFile::exists(backupFile), backup);
        if (backup)
            QCOMPARE(readFile(backupFile), stored.toUtf8());
    }

    void storedValueThatIsNotTextCountsAsMissing()
    {
        TestHome home;
        LinuxPlatform platform;
        // An INI value with an unquoted comma reads back as a list, not as text.
        QVERIFY(writeFile(LinuxPlatform::userDefaultsFilePath(), "[General]\nTemplatesJSON=a, b\n"));
        auto delegate = start(platform, true);
        QCOMPARE(ids(delegate->templates()).first(), QString("text"));
        QCOMPARE(settingsText(LinuxPlatform::userDefaultsFilePath()), QString(builtInTemplatesJSON));
    }

    void unwritablePlacesDoNotStopStartUp()
    {
        TestHome home;
        QVERIFY(writeFile(home.file("data"), "a file where the data folder should be"));
        LinuxPlatform platform;
        auto delegate = start(platform);
        QCOMPARE(readFile(home.file("config/Brindlemark/Templates.json")), QByteArray(builtInTemplatesJSON));
        QCOMPARE(settingsText(LinuxPlatform::userDefaultsFilePath()), QString(builtInTemplatesJSON));
        QCOMPARE(settingsText(LinuxPlatform::extensionPreferencesFilePath()), QString(builtInTemplatesJSON));
        QCOMPARE(readFile(home.file("data")), QByteArray("a file where the data folder should be"));
        QVERIFY(delegate->window() && delegate->window()->isVisible()); // start-up went on
    }

    void nonAsciiSurvivesTheSettingsFile()
    {
        TestHome home;
        LinuxPlatform platform;
        const QString text = "[{\"enabled\":true,\"executable\":false,\"id\":\"x\",\"prefix\":"
                             "\"Notiz, \\\"neu\\\" ü\",\"suffix\":\"md\",\"title\":\"Ünïcødé = ok; [x]\"}]";
        storeTemplatesText(text);
        auto delegate = start(platform, true);
        QCOMPARE(settingsText(LinuxPlatform::userDefaultsFilePath()), text);
        QCOMPARE(delegate->templates().first().value("title").toString(), QString("Ünïcødé = ok; [x]"));
    }

    void lookupsBeforeLoadingSeeOnlyBuiltIns()
    {
        TestHome home;
        LinuxPlatform platform;
        storeTemplatesText(R"([{"id":"mine","title":"Mine"},{"id":"shell","title":"My Shell"}])");
        AppDelegate delegate(platform);
        delegate.applicationWillFinishLaunching();
        QCOMPARE(delegate.templateWithIdentifier("mine").value("id").toString(), QString("text"));
        QCOMPARE(delegate.templateWithIdentifier("shell").value("title").toString(), QString("Shell Script"));
        QVERIFY(delegate.enabledTemplates().isEmpty());
        delegate.setHandledURLLaunch(true);
        delegate.applicationDidFinishLaunching();
        QCOMPARE(delegate.templateWithIdentifier("mine").value("title").toString(), QString("Mine"));
        QCOMPARE(delegate.templateWithIdentifier("shell").value("title").toString(), QString("My Shell"));
    }

    void urlLaunchShowsNoWindow()
    {
        TestHome home;
        LinuxPlatform platform;
        auto delegate = start(platform, true);
        QVERIFY(!delegate->window());
        QVERIFY(!delegate->statusLabel());
        delegate->saveTemplates(); // the status text has nowhere to go and is dropped
        QVERIFY(!delegate->window());
    }

    void userLaunchShowsOneWindowThatSurvivesClosing()
    {
        TestHome home;
        LinuxPlatform platform;
        auto delegate = start(platform);
        QWidget* window = delegate->window();
        QVERIFY(window && window->isVisible());
        QCOMPARE(window->windowTitle(), QString("Brindlemark"));
        QCOMPARE(window->size(), QSize(760, 620));
        QCOMPARE(window->minimumSize(), window->maximumSize());
        QCOMPARE(delegate->statusLabel()->text(), QString("Ready"));

        delegate->saveTemplates();
        QCOMPARE(delegate->statusLabel()->text(),
                 QString("Templates saved. Finder menu updates on the next right-click."));

        QVERIFY(window->close());
        QVERIFY(!window->isVisible());
        delegate->showWindow();
        QCOMPARE(delegate->window(), window); // the same window, not a new one
        QVERIFY(window->isVisible());
        QCOMPARE(delegate->statusLabel()->text(),
                 QString("Templates saved. Finder menu updates on the next right-click."));
        delegate->hideWindow();
        QVERIFY(!window->isVisible());
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(StartupTest)
#include "tst_startup.moc"
