// The template record and its normalisation (and so the text and flag rules), and the store:
// parsing, queries, the places it writes to and the backup of unreadable text.
#include "TestSupport.h"

#include "templates/AtomicWrite.h"
#include "templates/StrictJson.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateSync.h"

#include <sys/file.h>
#include <sys/stat.h>

using namespace brindlemark;

namespace {

// Rows as "id:title:prefix," one after another; the other members are the same in every row.
TemplateList rows(const QString& written) {
    TemplateList list;
    for (const QString& row : written.split(',', Qt::SkipEmptyParts)) {
        const QStringList m = row.split(':');
        list << Template{{"id", m[0]},      {"title", m[1]},   {"prefix", m[2]},
                         {"suffix", "txt"}, {"enabled", true}, {"executable", false}};
    }
    return list;
}

// The rows back in that form, with the members named.
QString text(const TemplateList& list, const QStringList& keys = {"id", "title", "prefix"}) {
    QString out;
    for (const Template& row : list)
        for (const QString& key : keys)
            out += row.value(key).toVariant().toString() + (key == keys.last() ? ',' : ':');
    return out;
}

} // namespace

class TemplatesTest : public QObject {
    Q_OBJECT

private slots:
    void boolFromValue() {
        // JSON values that read as true, as false, and as neither: then the default decides.
        const QStringList yes{
            "-1", "0.5", "true", R"("  YES ")", R"("On")", R"("1")", R"("\u00a0true\u2028")"},
            no{"0", "false", R"("oFF")", R"(" no ")", R"("FALSE")", R"("0")"};
        for (const QString& json :
             yes + no +
                 QStringList{R"("2")", R"("")", R"("tru")", "null", "[true]", R"({"a":1})"}) {
            const QJsonValue v = QJsonDocument::fromJson(("[" + json + "]").toUtf8()).array()[0];
            QVERIFY2(brindlemark::boolFromValue(v, false) == yes.contains(json) &&
                         brindlemark::boolFromValue(v, true) == !no.contains(json),
                     qPrintable(json));
        }
    }

    void normalizedTemplate() {
        // Six members, the flags as booleans; a generated id shows as "*".
        expectEach(
            [](const QString& input) {
                const Template out = brindlemark::normalizedTemplate(json(input));
                const bool canonical =
                    out.size() == 6 && out["enabled"].isBool() && out["executable"].isBool();
                return describe(out) + (canonical ? "" : " (not canonical)");
            },
            {{R"({"title":"  Text File  ","suffix":" .txt"})", "*|Text File|Text File|txt|0|0"},
             {R"({"id":" \u2029 ","prefix":false,"suffix":"..md","x":1})", "*|New File|0|.md|0|0"},
             {R"({"id":7.0,"title":{"a":[1]},"prefix":true,"suffix":"."})", "7|{\"a\":[1]}|1||0|0"},
             {R"({"title":"T","suffix":". py","enabled":"YeS","executable":1})", "*|T|T| py|1|1"},
             {R"({"id":" Id\u00a0\u0085","prefix":"\u2028\u3000 p\u202f\t","title":"\u00a0a\u2028b "})",
              "Id|a\u2028b|p||0|0"},
             {R"({"id":"\u200b\u001f","title":-0.25,"prefix":[1]})", "\u200b\u001f|-0.25|[1]||0|0"},
             {"{\"id\":\" \xEF\xBB\xBF\xEF\xBB\xBF i\",\"title\":\"\\ufeff\\u00a0T\ufeff \"}",
              "i|T\ufeff|T\ufeff||0|0"}});
        QVERIFY(brindlemark::normalizedTemplate({}).value("id") !=
                brindlemark::normalizedTemplate({}).value("id"));
    }

    void loadedTemplates() {
        // An empty list gives the built-ins; elements that are no objects are left out, and then
        // the text counts as unreadable. Qt's reader alone takes a raw tab in a string: the text
        // must be strict JSON.
        expectEach(
            [](const QString& stored) {
                const LoadedTemplates loaded = brindlemark::loadedTemplates(stored);
                const QString ids = text(loaded.templates, {"id"});
                return (ids == "text,markdown,json,shell,python,ruby," ? "built-ins" : ids) +
                       (loaded.storedTextUnreadable ? "?" : "");
            },
            {{"[]", "built-ins"},
             {R"({"id":"a"})", "built-ins?"},
             {"[1,2]", "built-ins?"},
             {"[{\"id\":\"a\tb\"}]", "built-ins?"},
             {R"([{"id":"b"},{"id":"a"},{"id":"b"}])", "b,a,b,"},
             {R"([1,{"id":"\u0061\ud83d\ude00"},null])", "a😀,?"}});
        QCOMPARE(templatesJSONText({}), QString("[]"));
    }

    void strictJson() {
        // Beyond what nlohmann::json reads: at most 512 levels of nesting, no NUL byte, no
        // byte-order mark; lone surrogates and numbers of any size taken, and what their
        // rewriting must not let through. Then what Qt's reader alone lets through, and UTF-8.
        QByteArrayList strict{QByteArray(512, '[') + QByteArray(512, ']'),
                              QByteArray("[{\"a\":").repeated(256) + "1" +
                                  QByteArray("}]").repeated(256)},
            broken{QByteArray(513, '[') + QByteArray(513, ']'), QByteArray("[]\0", 3)};
        for (const char* json :
             {" \t\n\r{ } \r\n", "\"top\"", "[0,-0,1.5,-0.25e+10,2E-3,1e5,10]",
              "[1e400,-1E+999,0.5e999,-1e-400,123456789012345678901234567890]",
              "[\"\\udc00\\ud800\\u0041\\ud800\"]",
              "[\"\\ud83d\\ude00\\uDBFF\\uDFFF\\ud800\\ue000\"]",
              "{\"a\":[true,false,null,{}],\"\":\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\u00e9\",\"a\":1}",
              "[\"\xDF\xBF\xC2\x80\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF"
              "\xBF\x7F\"]"})
            strict << json;
        for (const char* json :
             {"\xEF\xBB\xBF[]", "\f[]", "[\\ud800]", "[\"\\ud800\\u00G0\"]", "[\"\\u00e\"]",
              "[\"\\u00e", "[\"a\\", "[1e400.5]", "[-1e400e1]", "[--1e400]", "[1e-400e-4]",
              "[\"a\tb\"]", "[\"\x01\"]", "[\"\\a\"]", "[1.]", "[.5]", "", "[\"\xC0\xAF\"]",
              "[\"\xED\xA0\x80\"]"})
            broken << json;
        for (const QByteArray& json : strict + broken)
            QVERIFY2(isStrictJson(json.toStdString()) == strict.contains(json),
                     json.left(40).toPercentEncoding());
    }

    void queries() {
        // Found by the exact id (the first of two), normalised; else a built-in of that id; else
        // the first built-in, also for a null id. Enabled: normalised copies, in order.
        const TemplateList mine{json(R"({"id":"a","title":"A","enabled":true,"suffix":".j"})"),
                                json(R"({"id":"a","title":"B","enabled":"on"})")};
        QString found;
        for (const QString& id :
             {QString("a"), QString("json"), QString("A"), QString(" a"), QString()})
            found += text({templateWithIdentifier(mine, id)}, {"id", "title", "suffix"});
        QCOMPARE(found + text(enabledTemplates(mine), {"id", "title", "suffix"}),
                 "a:A:j,json:JSON File:json,text:Text File:txt,text:Text File:txt,"
                 "text:Text File:txt,a:A:j,a:B:,");
    }

    void mergedTemplates() {
        // "base|ours|theirs", ours and theirs both made from the base: this instance's change
        // on top of theirs. Different rows, different members of one row, the same cell (ours,
        // the later edit), removed there and edited here, removed here and edited there, added
        // on both sides, all removed here, an emptied title (stored as the fallback title: no
        // change), rows sharing an id (told apart by their order).
        expectEach(
            [](const QString& sides) {
                const QStringList s = sides.split('|');
                return text(brindlemark::mergedTemplates(rows(s[0]), rows(s[1]), rows(s[2])));
            },
            {{"a:A:p,b:B:p|a:X:p,b:B:p|a:A:p,b:Y:p", "a:X:p,b:Y:p,"},
             {"a:A:p|a:X:p|a:A:q", "a:X:q,"},
             {"a:A:p|a:O:p|a:T:p", "a:O:p,"},
             {"a:A:p,b:B:p|a:A:p,b:O:p|a:A:p", "a:A:p,"},
             {"a:A:p,b:B:p|a:A:p|a:A:p,b:T:p", "a:A:p,"},
             {"a:A:p|a:A:p,d:D:p|a:A:p,e:E:p", "a:A:p,e:E:p,d:D:p,"},
             {"a:A:p,b:B:p||a:A:p,b:B:p,e:E:p", "e:E:p,"},
             {"a:New File:p|a::p|a:T:p", "a:T:p,"},
             {"a:1:p,a:2:p|a:1:p,a:Z:p|a:Y:p,a:2:p", "a:Y:p,a:Z:p,"}});
    }

    void chosenStoredText() {
        // The copies, the user defaults first (R read, U unreadable, M missing): which text is the
        // stored list, and whether it is the defaults'. L1..L3 are lists, B is broken. In turn:
        // the newer copy holds the same text; nothing stored (the built-ins); defaults unreadable
        // (the newest list); nothing readable; a save that missed the defaults; older copies; an
        // empty list; broken defaults written last; a broken copy never counts; the defaults'
        // time unknown.
        const QString L1 = R"([{"id":"1"}])", L2 = R"([{"id":"2"}])", L3 = "[]", B = "[{";
        const StoredCopy U{StoredCopy::State::Unreadable, "", 0}, M{};
        const auto R = [](const QString& text, qint64 time) {
            return StoredCopy{StoredCopy::State::Read, text, time};
        };
        const struct {
            QList<StoredCopy> copies;
            QString text;
            bool fromUserDefaults;
        } cases[]{{{R(L1, 10), R(L1, 10), R(L1, 12), R(L1, 10)}, L1, true},
                  {{M, R(L2, 20), R(L2, 20), R(L2, 20)}, "", true},
                  {{U, R(L1, 20), R(L2, 30), M}, L2, false},
                  {{U, U, R(B, 50), M}, "", false},
                  {{R(L1, 10), R(L2, 20), R(L1, 10), R(L1, 10)}, L2, false},
                  {{R(L2, 20), R(L1, 10), R(L1, 10), R(L1, 10)}, L2, true},
                  {{R(L1, 10), R(L3, 20), M, M}, L3, false},
                  {{R(B, 30), R(L1, 10), R(L1, 10), R(L1, 10)}, B, true},
                  {{R(L1, 10), R(B, 40), M, M}, L1, true},
                  {{R(L1, 0), R(L2, 20), M, M}, L1, true}};
        for (const auto& c : cases) {
            const ChosenText chosen = brindlemark::chosenStoredText(c.copies);
            QCOMPARE(chosen.text + ' ' + QString::number(chosen.fromUserDefaults),
                     c.text + ' ' + QString::number(c.fromUserDefaults));
        }
    }

    void leftoversOfKilledWritesGo() {
        // Only hidden files named after the target with six letters or digits, plain files, and
        // not held locked by a write still at work.
        TestHome home;
        const QString folder = home.file("config/");
        const QStringList kept = QString("T.json T.json.backup .T.json.tmp-abc .T.json.tmp-abcdefg "
                                         ".O.json.tmp-Ab3xZ9 .T.json.tmp-InUse1 .T.json.tmp-Link12")
                                     .split(' ');
        for (const QString& name :
             kept.mid(0, 6) + QStringList{".T.json.tmp-Ab3xZ9", ".T.json.tmp-000000"})
            QVERIFY(writeFile(folder + name, "x"));
        QFile inUse(folder + ".T.json.tmp-InUse1");
        QVERIFY(QFile::link(home.file("elsewhere"), folder + ".T.json.tmp-Link12") &&
                inUse.open(QIODevice::ReadOnly) && ::flock(inUse.handle(), LOCK_EX) == 0);
        QCOMPARE(removeLeftoverTemporaries((folder + "T.json").toStdString()), 2);
        const QStringList left = QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System);
        QCOMPARE(QSet<QString>(left.begin(), left.end()), QSet<QString>(kept.begin(), kept.end()));
    }

    void batchWritesEveryPlaceItCanKeepingModesLinksAndTheMask() {
        // The files of a batch are written side by side: the creation mask must hold for every
        // one of them (new folders too), a file keeps the mode the user gave it, a link stays a
        // link to the file that is replaced, and a place that fails stops no other. Each file
        // is one byte, written by one write that returns 1.
        TestHome home;
        QVERIFY(writeFile(home.file("blocker"), "I am a file") &&
                writeFile(home.file("kept/Templates.json"), "old") &&
                QFile::setPermissions(home.file("kept/Templates.json"),
                                      QFile::ReadOwner | QFile::WriteOwner) &&
                writeFile(home.file("real/Templates.json"), "old") &&
                QDir().mkpath(home.file("linked")) &&
                QFile::link(home.file("real/Templates.json"), home.file("linked/Templates.json")));
        QStringList paths{home.file("blocker/sub/Templates.json"),
                          "/proc/brindlemark-no-such-place/Templates.json"};
        for (const char* path : {"new1/a", "kept", "linked", "new2", "new3/b"})
            paths << home.file(path + QString("/Templates.json"));
        const mode_t previous = ::umask(027);
        const QStringList failed = writeTemplatesJSONFiles("1", paths);
        ::umask(previous);
        QCOMPARE(failed, paths.mid(0, 2));
        // The mode (Qt's permission bits read like the octal mode in hexadecimal) and the
        // contents; a link's are its target's.
        QStringList modes;
        for (const QString& path :
             paths.mid(2) + QStringList{home.file("blocker"), home.file("new1"),
                                        home.file("new1/a"), home.file("new3/b")})
            modes << QString::number(QFile::permissions(path).toInt() & 0x7077, 16) +
                         readFile(path);
        QCOMPARE(modes, QStringList({"60401", "60001", "60441", "60401", "60401", "6044I am a file",
                                     "7050", "7050", "7050"}));
        QVERIFY(QFileInfo(paths[4]).isSymLink());
        QCOMPARE(entries(home.file("kept")), QStringList{"Templates.json"}); // no temporary left
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
