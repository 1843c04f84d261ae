// The template record, its normalisation, and the store's parsing, queries and file writing.
#include "TestEnvironment.h"

#include "templates/Template.h"
#include "templates/TemplateStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>

using namespace brindlemark;

namespace {

// A JSON value written as JSON text; "<missing>" stands for an absent member.
QJsonValue jsonValue(const QString& json)
{
    if (json == "<missing>")
        return QJsonValue(QJsonValue::Undefined);
    const QJsonDocument document = QJsonDocument::fromJson(("[" + json + "]").toUtf8());
    Q_ASSERT(document.isArray() && document.array().size() == 1);
    return document.array().first();
}

Template record(const QString& json)
{
    return QJsonDocument::fromJson(json.toUtf8()).object();
}

const QRegularExpression upperUuid(
    "^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$");

QStringList ids(const TemplateList& templates)
{
    QStringList list;
    for (const Template& t : templates)
        list << t.value("id").toString();
    return list;
}

const QStringList builtInIds{"text", "markdown", "json", "shell", "python", "ruby"};

} // namespace

class TemplatesTest : public QObject {
    Q_OBJECT

private slots:
    void cleanedString_data()
    {
        QTest::addColumn<QString>("json");
        QTest::addColumn<QString>("expected");
        QTest::newRow("ascii blanks") << R"(" \t a b \r\n")" << "a b";
        QTest::newRow("no-break space") << R"("\u00a0x\u00a0")" << "x";
        QTest::newRow("next line U+0085") << R"("\u0085x\u0085")" << "x";
        QTest::newRow("line and paragraph separators") << R"("\u2028x\u2029")" << "x";
        QTest::newRow("typographic spaces") << R"("\u2003\u3000x\u202f\u205f")" << "x";
        QTest::newRow("inner whitespace stays") << R"("\u00a0a\u2028b ")" << "a\u2028b";
        QTest::newRow("zero-width space is no whitespace") << R"("\u200bx")" << "\u200bx";
        QTest::newRow("information separator is no whitespace") << R"("\u001fx")" << "\u001fx";
        QTest::newRow("integer") << "42" << "42";
        QTest::newRow("fraction") << "1.5" << "1.5";
        QTest::newRow("true") << "true" << "1";
        QTest::newRow("false") << "false" << "0";
        QTest::newRow("null") << "null" << "";
        QTest::newRow("missing") << "<missing>" << "";
        QTest::newRow("array") << R"([1, "a"])" << R"([1,"a"])";
    }
    void cleanedString()
    {
        QFETCH(QString, json);
        QFETCH(QString, expected);
        const QString cleaned = brindlemark::cleanedString(jsonValue(json));
        QCOMPARE(cleaned, expected);
        QVERIFY(!cleaned.isNull());
    }

    void boolFromValue_data()
    {
        QTest::addColumn<QString>("json");
        QTest::addColumn<int>("expected"); // 1 true, 0 false, -1 the default
        QTest::newRow("number 2") << "2" << 1;
        QTest::newRow("number -1") << "-1" << 1;
        QTest::newRow("number 0") << "0" << 0;
        QTest::newRow("json true") << "true" << 1;
        QTest::newRow("json false") << "false" << 0;
        QTest::newRow("text 2") << R"("2")" << -1;
        QTest::newRow("text YES padded") << R"("  YES ")" << 1;
        QTest::newRow("text On") << R"("On")" << 1;
        QTest::newRow("text yes in unicode blanks") << R"("\u00a0yes\u2028")" << 1;
        QTest::newRow("text oFF") << R"("oFF")" << 0;
        QTest::newRow("text false") << R"(" false ")" << 0;
        QTest::newRow("text empty") << R"("")" << -1;
        QTest::newRow("text tru") << R"("tru")" << -1;
        QTest::newRow("null") << "null" << -1;
        QTest::newRow("missing") << "<missing>" << -1;
        QTest::newRow("array") << "[true]" << -1;
        QTest::newRow("object") << R"({"a":1})" << -1;
    }
    void boolFromValue()
    {
        QFETCH(QString, json);
        QFETCH(int, expected);
        const QJsonValue value = jsonValue(json);
        for (bool defaultValue : {false, true}) {
            const bool wanted = expected == -1 ? defaultValue : expected == 1;
            QCOMPARE(brindlemark::boolFromValue(value, defaultValue), wanted);
        }
    }

    void normalizedTemplate_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected"); // "id":"*" means a fresh UUID
        QTest::newRow("only a padded title")
            << R"({"title":"  Text File  "})"
            << R"({"id":"*","title":"Text File","prefix":"Text File","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("empty map")
            << "{}"
            << R"({"id":"*","title":"New File","prefix":"New File","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("numbers as text")
            << R"({"id":7,"title":42})"
            << R"({"id":"7","title":"42","prefix":"42","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("one leading dot removed")
            << R"({"id":"a","suffix":".txt"})"
            << R"({"id":"a","title":"New File","prefix":"New File","suffix":"txt","enabled":false,"executable":false})";
        QTest::newRow("lone dot")
            << R"({"id":"a","suffix":"."})"
            << R"({"id":"a","title":"New File","prefix":"New File","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("two dots lose one")
            << R"({"id":"a","suffix":"..md"})"
            << R"({"id":"a","title":"New File","prefix":"New File","suffix":".md","enabled":false,"executable":false})";
        QTest::newRow("blank behind the dot stays")
            << R"({"id":"a","suffix":". py"})"
            << R"({"id":"a","title":"New File","prefix":"New File","suffix":" py","enabled":false,"executable":false})";
        QTest::newRow("whitespace before the dot trimmed first")
            << R"({"id":"a","suffix":"  .sh"})"
            << R"({"id":"a","title":"New File","prefix":"New File","suffix":"sh","enabled":false,"executable":false})";
        QTest::newRow("flags in words")
            << R"({"id":"a","enabled":"YeS","executable":"On"})"
            << R"({"id":"a","title":"New File","prefix":"New File","suffix":"","enabled":true,"executable":true})";
        QTest::newRow("flags other text")
            << R"({"id":"a","enabled":"2","executable":""})"
            << R"({"id":"a","title":"New File","prefix":"New File","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("unknown members dropped")
            << R"({"id":"a","title":"T","colour":"red","order":3})"
            << R"({"id":"a","title":"T","prefix":"T","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("id kept exactly but trimmed")
            << R"({"id":"  MiXeD-Id\u00a0","prefix":" p "})"
            << R"({"id":"MiXeD-Id","title":"New File","prefix":"p","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("blank id gets a UUID")
            << R"({"id":" \u2029 ","title":"x"})"
            << R"({"id":"*","title":"x","prefix":"x","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("null and array members")
            << R"({"id":"a","title":null,"prefix":["p"]})"
            << "{\"id\":\"a\",\"title\":\"New File\",\"prefix\":\"[\\\"p\\\"]\",\"suffix\":\"\","
               "\"enabled\":false,\"executable\":false}";
    }
    void normalizedTemplate()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        const Template in = record(input);
        const Template before = in;
        Template out = brindlemark::normalizedTemplate(in);
        QCOMPARE(in, before); // the input is never changed
        QCOMPARE(out.keys().size(), 6);
        Template wanted = record(expected);
        if (wanted.value("id").toString() == "*") {
            QVERIFY2(upperUuid.match(out.value("id").toString()).hasMatch(),
                     qPrintable(out.value("id").toString()));
            wanted.insert("id", out.value("id"));
        }
        QCOMPARE(out, wanted);
    }

    void freshIdsDiffer()
    {
        const Template a = brindlemark::normalizedTemplate(Template{});
        const Template b = brindlemark::normalizedTemplate(Template{});
        QVERIFY(a.value("id") != b.value("id"));
        QVERIFY(upperUuid.match(newTemplateIdentifier()).hasMatch());
    }

    void twoDotsLoseOneDotPerPass()
    {
        const Template once = brindlemark::normalizedTemplate(record(R"({"id":"a","suffix":"..md"})"));
        QCOMPARE(brindlemark::normalizedTemplate(once).value("suffix").toString(), QString("md"));
    }

    void builtInsAreCanonical()
    {
        const TemplateList& builtIns = defaultTemplates();
        QCOMPARE(ids(builtIns), builtInIds);
        for (const Template& t : builtIns)
            QCOMPARE(brindlemark::normalizedTemplate(t), t);
        QCOMPARE(&defaultTemplates(), &builtIns);
    }

    void templatesFromJSONString_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("count"); // -1: nothing
        QTest::newRow("null text") << QString() << -1;
        QTest::newRow("empty text") << "" << -1;
        QTest::newRow("empty array") << "[]" << 0;
        QTest::newRow("array of two") << R"([{"id":"a"}, 3])" << 2;
        QTest::newRow("object") << R"({"id":"a"})" << -1;
        QTest::newRow("bare string") << R"("text")" << -1;
        QTest::newRow("truncated") << R"([{"id":"a"})" << -1;
        QTest::newRow("trailing garbage") << "[] x" << -1;
    }
    void templatesFromJSONString()
    {
        QFETCH(QString, text);
        QFETCH(int, count);
        const std::optional<QJsonArray> parsed = brindlemark::templatesFromJSONString(text);
        QCOMPARE(parsed.has_value() ? int(parsed->size()) : -1, count);
    }

    void loadedTemplates_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QStringList>("expectedIds");
        QTest::addColumn<bool>("unreadable");
        QTest::newRow("nothing stored") << QString() << builtInIds << false;
        QTest::newRow("empty array") << "[]" << builtInIds << false;
        QTest::newRow("broken json") << "[{\"id\":" << builtInIds << true;
        QTest::newRow("object") << R"({"id":"mine"})" << builtInIds << true;
        QTest::newRow("bare string") << R"("mine")" << builtInIds << true;
        QTest::newRow("user list") << R"([{"id":"b"},{"id":"a"}])" << QStringList{"b", "a"} << false;
        QTest::newRow("duplicate ids kept")
            << R"([{"id":"a","title":"1"},{"id":"a","title":"2"}])" << QStringList{"a", "a"} << false;
        QTest::newRow("non-object elements skipped")
            << R"([1,{"id":"a"},"x",null])" << QStringList{"a"} << true;
        QTest::newRow("only non-objects") << R"([1,2])" << builtInIds << true;
    }
    void loadedTemplates()
    {
        QFETCH(QString, stored);
        QFETCH(QStringList, expectedIds);
        QFETCH(bool, unreadable);
        const LoadedTemplates loaded = brindlemark::loadedTemplates(stored);
        QCOMPARE(ids(loaded.templates), expectedIds);
        QCOMPARE(loaded.storedTextUnreadable, unreadable);
        for (const Template& t : loaded.templates)
            QCOMPARE(brindlemark::normalizedTemplate(t), t);
    }

    void jsonTextIsCompactUtf8WithSixMembers()
    {
        TemplateList list{record(R"({"id":"ü/1","title":" Übersicht ","suffix":".md","enabled":"yes","extra":1})")};
        const QString text = templatesJSONText(list);
        QCOMPARE(text, QString(R"([{"enabled":true,"executable":false,"id":"ü/1","prefix":"Übersicht","suffix":"md","title":"Übersicht"}])")
                 );
        QCOMPARE(list[0].value("title").toString(), QString(" Übersicht ")); // memory left as is
        QCOMPARE(templatesJSONText({}), QString("[]"));

        // Compact: no whitespace between tokens, members in a stable order.
        QCOMPARE(templatesJSONText(defaultTemplates()), QString(builtInTemplatesJSON));
    }

    void enabledTemplates()
    {
        TemplateList list{record(R"({"id":"a","enabled":true,"suffix":".x"})"),
                          record(R"({"id":"b","enabled":false})"),
                          record(R"({"id":"c","enabled":true})")};
        const TemplateList enabled = brindlemark::enabledTemplates(list);
        QCOMPARE(ids(enabled), (QStringList{"a", "c"}));
        QCOMPARE(enabled[0].value("suffix").toString(), QString("x")); // normalised copies
        list[0].insert("enabled", false);
        list[2].insert("enabled", false);
        QVERIFY(brindlemark::enabledTemplates(list).isEmpty());
    }

    void templateWithIdentifier_data()
    {
        QTest::addColumn<QString>("list");
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("expectedId");
        QTest::addColumn<QString>("expectedTitle");
        const QString mine = R"([{"id":"json","title":"My JSON","enabled":true},
                                 {"id":"dup","title":"first"},{"id":"dup","title":"second"},
                                 {"id":"U1","title":"Mine"}])";
        QTest::newRow("user record wins over built-in") << mine << "json" << "json" << "My JSON";
        QTest::newRow("first of duplicates") << mine << "dup" << "dup" << "first";
        QTest::newRow("built-in after removal") << mine << "markdown" << "markdown" << "Markdown Document";
        QTest::newRow("disabled built-in still returned") << "[]" << "json" << "json" << "JSON File";
        QTest::newRow("case matters") << mine << "TEXT" << "text" << "Text File";
        QTest::newRow("case matters for user ids") << mine << "u1" << "text" << "Text File";
        QTest::newRow("no trimming") << mine << " U1" << "text" << "Text File";
        QTest::newRow("unknown") << mine << "nope" << "text" << "Text File";
        QTest::newRow("missing") << mine << QString() << "text" << "Text File";
        QTest::newRow("before loading: user id") << "[]" << "U1" << "text" << "Text File";
        QTest::newRow("before loading: built-in id") << "[]" << "shell" << "shell" << "Shell Script";
    }
    void templateWithIdentifier()
    {
        QFETCH(QString, list);
        QFETCH(QString, identifier);
        QFETCH(QString, expectedId);
        QFETCH(QString, expectedTitle);
        TemplateList templates;
        for (const QJsonValue& v : QJsonDocument::fromJson(list.toUtf8()).array())
            templates << v.toObject();
        const Template found = brindlemark::templateWithIdentifier(templates, identifier);
        QCOMPARE(found.value("id").toString(), expectedId);
        QCOMPARE(found.value("title").toString(), expectedTitle);
        QCOMPARE(found.keys().size(), 6);
    }

    void unwritablePlacesDoNotStopTheOthers()
    {
        TestHome home;
        QVERIFY(writeFile(home.file("blocker"), "I am a file"));
        const QStringList paths{
            home.file("blocker/sub/Templates.json"),       // a file where a folder should be
            "/proc/brindlemark-no-such-place/Templates.json", // refused even to root
            home.file("a/b/c/Templates.json"),
            home.file("d/Templates.json"),
        };
        const QStringList failed = writeTemplatesJSONFiles("[]", paths);
        QCOMPARE(failed, paths.mid(0, 2));
        QCOMPARE(readFile(paths[2]), QByteArray("[]"));
        QCOMPARE(readFile(paths[3]), QByteArray("[]"));
        QCOMPARE(readFile(home.file("blocker")), QByteArray("I am a file"));
    }

    void unreadableTextIsKeptWithoutOverwritingOlderBackups()
    {
        TestHome home;
        const QString folder = home.file("config/Brindlemark");
        const QString first = keepUnreadableTemplatesText("{broken", folder);
        QCOMPARE(first, folder + "/Templates.json.unreadable");
        QCOMPARE(readFile(first), QByteArray("{broken"));
        QCOMPARE(keepUnreadableTemplatesText("{broken", folder), first); // same text: no copy
        const QString second = keepUnreadableTemplatesText("{broken again ü", folder);
        QCOMPARE(second, folder + "/Templates.json.unreadable.1");
        QCOMPARE(readFile(second), QString("{broken again ü").toUtf8());
        QCOMPARE(readFile(first), QByteArray("{broken"));
        QCOMPARE(keepUnreadableTemplatesText("x", "/proc/brindlemark-no-such-place"), QString());
    }
};

QTEST_GUILESS_MAIN(TemplatesTest)
#include "tst_templates.moc"
