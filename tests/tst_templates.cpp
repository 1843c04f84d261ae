// The template record and its normalisation (and so the text and flag rules), and the store: parsing, queries, the places it
// writes to and the backup of unreadable text.
#include "TestSupport.h"

#include "templates/TemplateStore.h"

#include <QJsonArray>

using namespace brindlemark;

namespace {

QJsonValue value(const QString& text)
{
    return QJsonDocument::fromJson(("[" + text + "]").toUtf8()).array().first();
}

QString ids(const TemplateList& templates)
{
    QStringList list;
    for (const Template& t : templates)
        list << t.value("id").toString();
    return list.join(',');
}

const QString builtIns = "text,markdown,json,shell,python,ruby";

} // namespace

class TemplatesTest : public QObject {
    Q_OBJECT

private slots:
    void boolFromValue()
    {
        auto both = [](const QString& json) {
            return QString("%1%2").arg(brindlemark::boolFromValue(value(json), false)).arg(brindlemark::boolFromValue(value(json), true));
        };
        QList<std::pair<QString, QString>> cases;
        for (const char* yes : {"2", "-1", "0.5", "true", R"("  YES ")", R"("On")", R"("\u00a0true\u2028")", R"("1")"})
            cases.append(std::pair<QString, QString>(yes, "11"));
        for (const char* no : {"0", "false", R"("oFF")", R"(" no ")", R"("FALSE")", R"("0")"})
            cases.append(std::pair<QString, QString>(no, "00"));
        for (const char* other : {R"("2")", R"("")", R"("tru")", "null", "[true]", R"({"a":1})"})
            cases.append(std::pair<QString, QString>(other, "01")); // the default
        expectEach(both, cases);
    }

    void normalizedTemplate()
    {
        // id|title|prefix|suffix|enabled|executable; "*" stands for a fresh upper-case UUID.
        expectEach([](const QString& input) {
            const Template in = json(input), before = in;
            const Template out = brindlemark::normalizedTemplate(in);
            QStringList described;
            for (const char* key : {"id", "title", "prefix", "suffix", "enabled", "executable"})
                described << (out.value(key).isString() ? out.value(key).toString() : brindlemark::cleanedString(out.value(key)));
            static const QRegularExpression uuid("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$");
            described[0].replace(uuid, "*");
            const bool canonical = in == before && out.size() == 6 && out.value("enabled").isBool() && out.value("executable").isBool();
            return described.join('|') + (canonical ? "" : " (not canonical)");
        }, {{R"({"title":"  Text File  "})", "*|Text File|Text File||0|0"}, {"{}", "*|New File|New File||0|0"},
            {R"({"id":" \u2029 ","title":"x"})", "*|x|x||0|0"}, {R"({"id":7.0,"title":-0.25,"prefix":true,"suffix":{"a":[false,1]}})", "7|-0.25|1|{\"a\":[false,1]}|0|0"},
            {R"({"id":"a","suffix":" .txt"})", "a|New File|New File|txt|0|0"}, {R"({"id":"a","suffix":"."})", "a|New File|New File||0|0"},
            {R"({"id":"a","suffix":"..md"})", "a|New File|New File|.md|0|0"}, {R"({"id":"a","suffix":". py"})", "a|New File|New File| py|0|0"},
            {R"({"id":"a","enabled":"YeS","executable":"On"})", "a|New File|New File||1|1"},
            {R"({"id":"a","enabled":"2","executable":1})", "a|New File|New File||0|1"},
            {R"({"id":" Id\u00a0\u0085","prefix":"\u2028\u3000 p\u202f\t","title":"\u00a0a\u2028b ","colour":1})", "Id|a\u2028b|p||0|0"},
            {R"({"id":"\u200bx\u001f","prefix":false})", "\u200bx\u001f|New File|0||0|0"},
            {R"({"id":"a","title":null,"prefix":["p"]})", "a|New File|[\"p\"]||0|0"}});
        QVERIFY(brindlemark::normalizedTemplate({}).value("id") != brindlemark::normalizedTemplate({}).value("id"));
    }

    void loadedTemplates()
    {
        expectEach([](const QString& stored) {
            const LoadedTemplates loaded = brindlemark::loadedTemplates(stored == "<none>" ? QString() : stored);
            return ids(loaded.templates) + (loaded.storedTextUnreadable ? " (unreadable)" : "");
        }, {{"<none>", builtIns}, {"[]", builtIns}, {"[{\"id\":", builtIns + " (unreadable)"}, {"[] x", builtIns + " (unreadable)"},
            {R"({"id":"mine"})", builtIns + " (unreadable)"}, {R"("mine")", builtIns + " (unreadable)"},
            {R"([{"id":"b"},{"id":"a"},{"id":"b"}])", "b,a,b"}, {R"([1,{"id":"a"},"x",null])", "a (unreadable)"},
            {"[1,2]", builtIns + " (unreadable)"}});
        QCOMPARE(templatesJSONText({}), QString("[]"));
    }

    void queries()
    {
        const TemplateList mine{json(R"({"id":"json","title":"My JSON","enabled":true,"suffix":".j"})"), json(R"({"id":"dup","title":"first"})"),
                                json(R"({"id":"dup","title":"second","enabled":"on"})"), json(R"({"id":"U1","title":"Mine"})")};
        expectEach([&](const QString& identifier) {
            const Template found = templateWithIdentifier(mine, identifier == "<null>" ? QString() : identifier);
            return found.value("id").toString() + "|" + found.value("title").toString() + "|" + found.value("suffix").toString();
        }, {{"json", "json|My JSON|j"}, {"dup", "dup|first|"}, {"markdown", "markdown|Markdown Document|md"},
            {"u1", "text|Text File|txt"}, {" U1", "text|Text File|txt"}, {"<null>", "text|Text File|txt"}});
        const TemplateList enabled = enabledTemplates(mine);
        QCOMPARE(ids(enabled) + enabled[0].value("suffix").toString() + enabled[1].value("title").toString(), QString("json,dupjsecond"));
    }

    void writesEveryPlaceItCan()
    {
        TestHome home;
        QVERIFY(writeFile(home.file("blocker"), "I am a file"));
        const QStringList paths{home.file("blocker/sub/Templates.json"), "/proc/brindlemark-no-such-place/Templates.json",
                                home.file("a/b/c/Templates.json"), home.file("d/Templates.json")};
        QCOMPARE(writeTemplatesJSONFiles("[]", paths), paths.mid(0, 2));
        QCOMPARE(readFile(paths[2]) + readFile(paths[3]) + readFile(home.file("blocker")), QByteArray("[][]I am a file"));
    }

    void unreadableTextIsKeptWithoutOverwritingOlderBackups()
    {
        TestHome home;
        const QString folder = home.file("config/Brindlemark"), first = folder + "/Templates.json.unreadable";
        QCOMPARE(keepUnreadableTemplatesText("{broken", folder), first);
        QCOMPARE(keepUnreadableTemplatesText("{broken", folder), first); // same text: no copy
        QCOMPARE(keepUnreadableTemplatesText("{broken ü", folder), first + ".1");
        QCOMPARE(keepUnreadableTemplatesText("{other", folder), first + ".2");
        QCOMPARE(readFile(first) + readFile(first + ".1"), QString("{broken{broken ü").toUtf8());
        QCOMPARE(keepUnreadableTemplatesText("x", "/proc/brindlemark-no-such-place"), QString());
    }
};

QTEST_GUILESS_MAIN(TemplatesTest)
#include "tst_templates.moc"
