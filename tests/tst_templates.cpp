// The template record and its normalisation (and so the text and flag rules), and the store:
// parsing, queries, the places it writes to and the backup of unreadable text.
#include "TestSupport.h"

#include "templates/AtomicWrite.h"
#include "templates/StrictJson.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateSync.h"

#include <QJsonArray>

#include <sys/file.h>
#include <sys/stat.h>

using namespace brindlemark;

namespace {

QString ids(const TemplateList& templates) {
    QStringList list;
    for (const Template& t : templates)
        list << t.value("id").toString();
    return list.join(',');
}

const QString builtIns = "text,markdown,json,shell,python,ruby";

// Rows as "id:title:prefix" separated by commas; the other members are left out.
TemplateList rows(const QString& written) {
    TemplateList list;
    for (const QString& row : written.split(',', Qt::SkipEmptyParts)) {
        const QStringList members = row.split(':');
        list << Template{{"id", members[0]}, {"title", members[1]}, {"prefix", members[2]},
                         {"suffix", "txt"},  {"enabled", true},     {"executable", false}};
    }
    return list;
}

QString rowsText(const TemplateList& list) {
    QStringList out;
    for (const Template& row : list)
        out << row.value("id").toString() + ':' + row.value("title").toString() + ':' +
                   row.value("prefix").toString();
    return out.join(',');
}

} // namespace

class TemplatesTest : public QObject {
    Q_OBJECT

private slots:
    void boolFromValue() {
        // The value as JSON text -> the result with the default false, then with the default true.
        expectEach(
            [](const QString& json) {
                const QJsonValue value =
                    QJsonDocument::fromJson(("[" + json + "]").toUtf8()).array().first();
                return QString("%1%2")
                    .arg(brindlemark::boolFromValue(value, false))
                    .arg(brindlemark::boolFromValue(value, true));
            },
            {{"2", "11"},           {"-1", "11"},
             {"0.5", "11"},         {"true", "11"},
             {R"("  YES ")", "11"}, {R"("On")", "11"},
             {R"("1")", "11"},      {R"("\u00a0true\u2028")", "11"},
             {"0", "00"},           {"false", "00"},
             {R"("oFF")", "00"},    {R"(" no ")", "00"},
             {R"("FALSE")", "00"},  {R"("0")", "00"},
             {R"("2")", "01"},      {R"("")", "01"},
             {R"("tru")", "01"},    {"null", "01"},
             {"[true]", "01"},      {R"({"a":1})", "01"}});
    }

    void normalizedTemplate() {
        expectEach(
            [](const QString& input) {
                const Template in = json(input), before = in;
                const Template out = brindlemark::normalizedTemplate(in);
                const bool canonical = in == before && out.size() == 6 &&
                                       out.value("enabled").isBool() &&
                                       out.value("executable").isBool();
                return describe(out) + (canonical ? "" : " (not canonical)");
            },
            {{R"({"title":"  Text File  "})", "*|Text File|Text File||0|0"},
             {"{}", "*|New File|New File||0|0"},
             {R"({"id":" \u2029 ","title":"x"})", "*|x|x||0|0"},
             {R"({"id":7.0,"title":-0.25,"prefix":true,"suffix":{"a":[false,1]}})",
              "7|-0.25|1|{\"a\":[false,1]}|0|0"},
             {R"({"id":"a","suffix":" .txt"})", "a|New File|New File|txt|0|0"},
             {R"({"id":"a","suffix":"."})", "a|New File|New File||0|0"},
             {R"({"id":"a","suffix":"..md"})", "a|New File|New File|.md|0|0"},
             {R"({"id":"a","suffix":". py"})", "a|New File|New File| py|0|0"},
             {R"({"id":"a","enabled":"YeS","executable":"On"})", "a|New File|New File||1|1"},
             {R"({"id":"a","enabled":"2","executable":1})", "a|New File|New File||0|1"},
             {R"({"id":" Id\u00a0\u0085","prefix":"\u2028\u3000 p\u202f\t","title":"\u00a0a\u2028b ","colour":1})",
              "Id|a\u2028b|p||0|0"},
             {R"({"id":"\u200bx\u001f","prefix":false})", "\u200bx\u001f|New File|0||0|0"},
             {R"({"id":"a","title":null,"prefix":["p"]})", "a|New File|[\"p\"]||0|0"}});
        QVERIFY(brindlemark::normalizedTemplate({}).value("id") !=
                brindlemark::normalizedTemplate({}).value("id"));
    }

    void loadedTemplates() {
        expectEach(
            [](const QString& stored) {
                const LoadedTemplates loaded =
                    brindlemark::loadedTemplates(stored == "<none>" ? QString() : stored);
                return ids(loaded.templates) + (loaded.storedTextUnreadable ? " (unreadable)" : "");
            },
            {{"<none>", builtIns},
             {"[]", builtIns},
             {"[{\"id\":", builtIns + " (unreadable)"},
             {"[] x", builtIns + " (unreadable)"},
             {R"({"id":"mine"})", builtIns + " (unreadable)"},
             {R"("mine")", builtIns + " (unreadable)"},
             {R"([{"id":"b"},{"id":"a"},{"id":"b"}])", "b,a,b"},
             {R"([1,{"id":"a"},"x",null])", "a (unreadable)"},
             {"[1,2]", builtIns + " (unreadable)"},
             {"[{\"id\":\"a\tb\"}]", builtIns + " (unreadable)"},
             {"[{\"id\":\"a\",\"n\":1.}]", builtIns + " (unreadable)"},
             {"[{\"id\":\"\\u0061\\ud83d\\ude00\"}]", "a😀"}});
        QCOMPARE(templatesJSONText({}), QString("[]"));
    }

    void strictJson() {
        // Bytes written as Latin-1, so that broken UTF-8 can be written too.
        QList<std::pair<QString, QString>> cases{
            {QString(512, '[') + QString(512, ']'), "strict"},
            {QString("[{\"a\":").repeated(256) + "1" + QString("}]").repeated(256), "strict"},
            {QString(513, '[') + QString(513, ']'), "broken"},
            {QString::fromLatin1("[]\0", 3), "broken"}};
        for (const char* good :
             {"[]", " \t\n\r{ } \r\n", "[0,-0,1.5,-0.25e+10,2E-3,1e5,10]",
              "[1e400,-1E+999,0.5e999,-1e-400,123456789012345678901234567890]",
              "{\"a\":{\"b\":[true,false,null,{}]},\"\":\"\"}",
              "[\"\\\"\\\\\\/"
              "\\b\\f\\n\\r\\t\\u00e9\\ud83d\\ude00\\uDBFF\\uDFFF\\udc00\\ud800\\u0041\\ud800\"]",
              "\"top\"", "1", "null",
              "[\"\xDF\xBF\xC2\x80\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF"
              "\xBF\x7F\"]",
              "{ \"a\" : 1 , \"b\" : [ ] , \"a\" : 2 }", "[\"\\ud800\\ue000\"]"})
            cases.append({QString::fromLatin1(good), "strict"});
        // In groups of fewer than 20 (clang-format packs those): ends and control characters,
        // numbers and escapes, structure, white space and UTF-8, what nlohmann::json alone reads.
        const std::initializer_list<const char*> broken[]{
            {"", " ", "[", "[\"abc", "[\"a\\", "[\"a\tb\"]", "[\"\x01\"]", "[\"\x1f\"]"},
            {"[1.]", "[.5]", "[01]", "[-01]", "[+1]", "[1e]", "[1e+]", "[-]", "[1.e5]", "[0x1]",
             "[NaN]", "[\"\\a\"]", "[\"\\u00e\"]", "[\"\\u00G0\"]", "[\"\\u00e", "[\"\\U0041\"]",
             "[\"\\'\"]"},
            {"[TRUE]", "[nul]", "[truex]", "[] x", "[][]", "1 2", "[1,]", "[,1]", "{\"a\":1,}",
             "{\"a\"}", "{a:1}", "{\"a\" 1}", "{\"a\":}", "{1:2}", "{:1}", "['a']", "[}", "{]",
             "[1}"},
            {"\f[]", "\xEF\xBB\xBF[]", "[\v1]", "[\xA0\x31]", "[\xC3\xBC]", "[\"\xC0\xAF\"]",
             "[\"\xE0\x80\xAF\"]", "[\"\xED\xA0\x80\"]", "[\"\xF4\x90\x80\x80\"]",
             "[\"\xF5\x80\x80\x80\"]", "[\"\xFF\"]", "[\"\x80\"]", "[\"\xC3\"]",
             "[\"\xE2\x82\xC0\"]", "[\"\xF0\x9F\x98\"]"},
            {"[\\ud800]", "[\"\\ud800\\u00G0\"]", "[1e400.5]", "[-1e400e1]", "[--1e400]",
             "[1e-400e-4]"}};
        for (const auto& group : broken)
            for (const char* bad : group)
                cases.append({QString::fromLatin1(bad), "broken"});
        expectEach(
            [](const QString& text) {
                return isStrictJson(text.toLatin1().toStdString()) ? "strict" : "broken";
            },
            cases);
    }

    void queries() {
        const TemplateList mine{
            json(R"({"id":"json","title":"My JSON","enabled":true,"suffix":".j"})"),
            json(R"({"id":"dup","title":"first"})"),
            json(R"({"id":"dup","title":"second","enabled":"on"})"),
            json(R"({"id":"U1","title":"Mine"})")};
        expectEach(
            [&](const QString& identifier) {
                const Template found =
                    templateWithIdentifier(mine, identifier == "<null>" ? QString() : identifier);
                return found.value("id").toString() + "|" + found.value("title").toString() + "|" +
                       found.value("suffix").toString();
            },
            {{"json", "json|My JSON|j"},
             {"dup", "dup|first|"},
             {"markdown", "markdown|Markdown Document|md"},
             {"u1", "text|Text File|txt"},
             {" U1", "text|Text File|txt"},
             {"<null>", "text|Text File|txt"}});
        const TemplateList enabled = enabledTemplates(mine);
        QCOMPARE(ids(enabled) + enabled[0].value("suffix").toString() +
                     enabled[1].value("title").toString(),
                 QString("json,dupjsecond"));
    }

    void mergedTemplates() {
        // "ours | theirs", both made from the same base: this instance's change on top of theirs.
        const TemplateList base = rows("a:A:p,b:B:p,c:C:p");
        expectEach(
            [&](const QString& sides) {
                const QStringList both = sides.split('|');
                return rowsText(brindlemark::mergedTemplates(base, rows(both[0]), rows(both[1])));
            },
            {{"a:A:p,b:B:p,c:C:p|a:A:p,b:B:p,c:C:p", "a:A:p,b:B:p,c:C:p"},
             {"a:X:p,b:B:p,c:C:p|a:A:p,b:Y:p,c:C:p", "a:X:p,b:Y:p,c:C:p"}, // different rows
             {"a:X:p,b:B:p,c:C:p|a:A:q,b:B:p,c:C:p",
              "a:X:q,b:B:p,c:C:p"}, // different members of one row
             {"a:A:p,b:O:p,c:C:p|a:A:p,b:T:p,c:C:p",
              "a:A:p,b:O:p,c:C:p"}, // the same cell: the later edit, ours
             {"a:A:p,b:O:p,c:C:p|a:A:p,c:C:p", "a:A:p,c:C:p"}, // removed there, edited here
             {"a:A:p,c:C:p|a:A:p,b:T:p,c:C:p", "a:A:p,c:C:p"}, // removed here, edited there
             {"a:A:p,b:B:p,c:C:p,d:D:p|a:A:p,b:B:p,c:C:p,e:E:p", "a:A:p,b:B:p,c:C:p,e:E:p,d:D:p"},
             {"|a:A:p,b:B:p,c:C:p,e:E:p", "e:E:p"}}); // all removed here
        // An emptied title is stored as the fallback title: no change either, theirs stays.
        QCOMPARE(rowsText(brindlemark::mergedTemplates(rows("a:New File:p"), rows("a::p"),
                                                       rows("a:T:p"))),
                 QString("a:T:p"));
        // Rows sharing an id are told apart by their order.
        QCOMPARE(rowsText(brindlemark::mergedTemplates(rows("a:1:p,a:2:p"), rows("a:1:p,a:Z:p"),
                                                       rows("a:Y:p,a:2:p"))),
                 QString("a:Y:p,a:Z:p"));
    }

    void chosenStoredText() {
        // The copies as "state text@time" (R read, U unreadable, M missing), the user defaults
        // first: which text is the stored list. L1..L3 are lists, B is broken.
        const QMap<QString, QString> texts{
            {"L1", R"([{"id":"1"}])"}, {"L2", R"([{"id":"2"}])"}, {"L3", "[]"}, {"B", "[{"}};
        expectEach(
            [&](const QString& copiesText) {
                QList<StoredCopy> copies;
                for (const QString& each : copiesText.split(',')) {
                    const QStringList parts = each.trimmed().split(QRegularExpression("[ @]"));
                    StoredCopy copy;
                    copy.state = parts[0] == "R"   ? StoredCopy::State::Read
                                 : parts[0] == "U" ? StoredCopy::State::Unreadable
                                                   : StoredCopy::State::Missing;
                    if (parts.size() == 3) {
                        copy.text = texts[parts[1]];
                        copy.modified = parts[2].toLongLong();
                    }
                    copies << copy;
                }
                const ChosenText chosen = brindlemark::chosenStoredText(copies);
                return texts.key(chosen.text, chosen.text.isEmpty() ? "-" : "?") +
                       (chosen.fromUserDefaults ? "" : " (file)");
            },
            {{"R L1@10, R L1@10, R L1@12, R L1@10", "L1"},
             {"M, R L2@20, R L2@20, R L2@20", "-"},   // nothing stored: the built-ins
             {"U, R L1@20, R L2@30, M", "L2 (file)"}, // defaults unreadable: the newest list
             {"U, U, R B@50, M", "- (file)"},
             {"R L1@10, R L2@20, R L1@10, R L1@10", "L2 (file)"}, // a save that missed the defaults
             {"R L2@20, R L1@10, R L1@10, R L1@10", "L2"},
             {"R L1@10, R L3@20, M, M", "L3 (file)"},
             {"R B@30, R L1@10, R L1@10, R L1@10", "B"}, // broken, and written last
             {"R L1@10, R B@40, M, M", "L1"},            // a broken copy never counts
             {"R L1@0, R L2@20, M, M", "L1"}});          // the defaults' time unknown
    }

    void leftoversOfKilledWritesGo() {
        TestHome home;
        const QString folder = home.file("config/Brindlemark"), target = folder + "/Templates.json";
        const QStringList leftovers{".Templates.json.tmp-Ab3xZ9", ".Templates.json.tmp-000000"};
        const QStringList kept{"Templates.json",
                               "Templates.json.backup",
                               ".Templates.json.tmp-abc",
                               ".Templates.json.tmp-abcdefg",
                               ".Other.json.tmp-Ab3xZ9",
                               ".Templates.json.tmp-InUse1",
                               ".Templates.json.tmp-Link12"};
        for (const QString& name : leftovers + kept.mid(0, 6))
            QVERIFY(writeFile(folder + '/' + name, "x"));
        QVERIFY(QFile::link(home.file("elsewhere"), folder + "/.Templates.json.tmp-Link12"));
        // A write still at work holds its temporary file locked.
        QFile inUse(folder + "/.Templates.json.tmp-InUse1");
        QVERIFY(inUse.open(QIODevice::ReadOnly) && ::flock(inUse.handle(), LOCK_EX) == 0);
        QCOMPARE(removeLeftoverTemporaries(QFile::encodeName(target).toStdString()), 2);
        const QStringList left = QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System);
        QCOMPARE(QSet<QString>(left.begin(), left.end()), QSet<QString>(kept.begin(), kept.end()));
    }

    void writesEveryPlaceItCan() {
        TestHome home;
        QVERIFY(writeFile(home.file("blocker"), "I am a file"));
        const QStringList paths{home.file("blocker/sub/Templates.json"),
                                "/proc/brindlemark-no-such-place/Templates.json",
                                home.file("a/b/c/Templates.json"), home.file("d/Templates.json")};
        QCOMPARE(writeTemplatesJSONFiles("[]", paths), paths.mid(0, 2));
        QCOMPARE(readFile(paths[2]) + readFile(paths[3]) + readFile(home.file("blocker")),
                 QByteArray("[][]I am a file"));
    }

    void batchKeepsModesLinksAndTheMask() {
        // The files of a batch are written side by side: the creation mask must hold for every
        // one of them (new folders too), a file keeps the mode the user gave it, and a link stays
        // a link to the file that is replaced.
        TestHome home;
        QVERIFY(writeFile(home.file("kept/Templates.json"), "old"));
        QVERIFY(QFile::setPermissions(home.file("kept/Templates.json"),
                                      QFile::ReadOwner | QFile::WriteOwner));
        QVERIFY(writeFile(home.file("real/Templates.json"), "old"));
        QVERIFY(QDir().mkpath(home.file("linked")));
        QVERIFY(QFile::link(home.file("real/Templates.json"), home.file("linked/Templates.json")));
        const QStringList paths{
            home.file("new1/a/Templates.json"), home.file("kept/Templates.json"),
            home.file("linked/Templates.json"), home.file("new2/Templates.json"),
            home.file("new3/b/Templates.json")};
        const mode_t previous = ::umask(027);
        const QStringList failed = writeTemplatesJSONFiles("[]", paths);
        ::umask(previous);
        QCOMPARE(failed, QStringList());
        auto mode = [](const QString& path) {
            struct stat info {};
            return ::lstat(QFile::encodeName(path).constData(), &info) == 0
                       ? QString::number(info.st_mode & 07777, 8)
                       : QString("none");
        };
        expectEach(mode, {{paths[0], "640"},
                          {home.file("new1"), "750"},
                          {home.file("new1/a"), "750"},
                          {paths[1], "600"},
                          {paths[3], "640"},
                          {paths[4], "640"},
                          {home.file("new3/b"), "750"},
                          {home.file("real/Templates.json"), "644"}});
        QVERIFY(QFileInfo(paths[2]).isSymLink());
        QCOMPARE(readFile(home.file("real/Templates.json")), QByteArray("[]"));
        // A file of one byte is written by one write that returns 1.
        QVERIFY(replaceFileAtomically(home.file("one").toStdString(), "1"));
        QCOMPARE(readFile(home.file("one")), QByteArray("1"));
        QCOMPARE(QDir(home.file("kept")).entryList(QDir::Files | QDir::Hidden),
                 QStringList{"Templates.json"}); // no temporary left
    }

    void unreadableTextIsKeptWithoutOverwritingOlderBackups() {
        TestHome home;
        const QString folder = home.file("config/Brindlemark"),
                      first = folder + "/Templates.json.unreadable";
        QCOMPARE(keepUnreadableTemplatesText("{broken", folder), first);
        QCOMPARE(keepUnreadableTemplatesText("{broken", folder), first); // same text: no copy
        QCOMPARE(keepUnreadableTemplatesText("{broken ü", folder), first + ".1");
        QCOMPARE(readFile(first) + readFile(first + ".1"), QString("{broken{broken ü").toUtf8());
        QCOMPARE(keepUnreadableTemplatesText("x", "/proc/brindlemark-no-such-place"), QString());
    }
};

QTEST_GUILESS_MAIN(TemplatesTest)
#include "tst_templates.moc"
