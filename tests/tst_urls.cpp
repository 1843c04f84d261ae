// The URL command protocol: our own URL parser, the strict payload decoder, and what a command
// URL asks for (command, folder, template record).
#include "TestEnvironment.h"

#include "bridge/UrlCommands.h"
#include "templates/TemplateStore.h"

#include <QJsonDocument>

using namespace brindlemark;

namespace {

// scheme|host|items, items written name=value, or name alone for an item without "=".
QString describe(const std::optional<CommandUrl>& url)
{
    if (!url)
        return "<none>";
    QStringList items;
    for (const QueryItem& item : url->queryItems)
        items << (item.value ? item.name + "=" + *item.value : item.name);
    return url->scheme + "|" + url->host + "|" + items.join("&");
}

Template json(const QString& text) { return QJsonDocument::fromJson(text.toUtf8()).object(); }

} // namespace

class UrlsTest : public QObject {
    Q_OBJECT

private slots:
    void parseCommandUrl_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("expected");
        QTest::newRow("escaped path") << "brindlemark://terminal?path=%2Ftmp%2Fa%20b" << "brindlemark|terminal|path=/tmp/a b";
        QTest::newRow("case kept") << "BrindleMark://Create?Path=/tmp" << "BrindleMark|Create|Path=/tmp";
        QTest::newRow("no query") << "brindlemark://create" << "brindlemark|create|";
        QTest::newRow("empty query") << "brindlemark://create?" << "brindlemark|create|";
        QTest::newRow("item forms") << "brindlemark://x?a&b=&c=1+2&d=1=2" << "brindlemark|x|a&b=&c=1+2&d=1=2";
        QTest::newRow("plus stays plus") << "brindlemark://x?p=%2B+" << "brindlemark|x|p=++";
        QTest::newRow("escaped names") << "brindlemark://x?%70ath=/a" << "brindlemark|x|path=/a";
        QTest::newRow("utf-8 escapes") << "brindlemark://x?p=%C3%BC" << "brindlemark|x|p=ü";
        QTest::newRow("raw non-ascii") << "brindlemark://x?p=/tmp/Ünï" << "brindlemark|x|p=/tmp/Ünï";
        QTest::newRow("escape not utf-8: no value") << "brindlemark://x?p=%FF&q=1" << "brindlemark|x|p&q=1";
        QTest::newRow("path and fragment ignored") << "brindlemark://x/a/b?p=1#f&p=2" << "brindlemark|x|p=1";
        QTest::newRow("no host") << "brindlemark:///a?p=1" << "brindlemark||p=1";
        QTest::newRow("user and port") << "brindlemark://me@x:80?p=1" << "brindlemark|x|p=1";
        QTest::newRow("malformed escape") << "brindlemark://x?p=%zz" << "<none>";
        QTest::newRow("truncated escape") << "brindlemark://x?p=%2" << "<none>";
        QTest::newRow("raw blank") << "brindlemark://x?p=/a b" << "<none>";
        QTest::newRow("line break") << "brindlemark://x?p=/a\nb" << "<none>";
        QTest::newRow("empty text") << "" << "<none>";
    }
    void parseCommandUrl()
    {
        QFETCH(QString, url);
        QFETCH(QString, expected);
        QCOMPARE(describe(brindlemark::parseCommandUrl(url)), expected);
    }

    void veryLongValuesParse()
    {
        const QString folder = "/" + QString(200'000, u'a');
        const auto url = brindlemark::parseCommandUrl("brindlemark://create?path=" + folder + "&x=" + QString(100'000, u'%').replace("%", "%41"));
        QVERIFY(url.has_value());
        QCOMPARE(url->queryItems.size(), 2);
        QCOMPARE(*url->queryItems[0].value, folder);
        QCOMPARE(url->queryItems[1].value->size(), 100'000);
    }

    void strictBase64Decode_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected"); // "<none>" when rejected
        QTest::newRow("object") << "e30=" << "{}";
        QTest::newRow("array") << "W10=" << "[]";
        QTest::newRow("no pad needed") << "YWJj" << "abc";
        QTest::newRow("plus and slash") << "eyJ0aXRsZSI6ImE/PiIsInByZWZpeCI6ImJ+fiJ9" << R"({"title":"a?>","prefix":"b~~"})";
        QTest::newRow("empty") << "" << "";
        QTest::newRow("missing padding") << "e30" << "<none>";
        QTest::newRow("url-safe alphabet") << "eyJ0aXRsZSI6ImE_PiIsInByZWZpeCI6ImJ-fiJ9" << "<none>";
        QTest::newRow("line break") << "e30=\n" << "<none>";
        QTest::newRow("inner line break") << "eyJ0\naXRsZSI6Ij4+PiJ9" << "<none>";
        QTest::newRow("blank") << "e3 0" << "<none>";
        QTest::newRow("padding inside") << "e30=e30=" << "<none>";
        QTest::newRow("only padding") << "====" << "<none>";
    }
    void strictBase64Decode()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        const std::optional<QByteArray> decoded = brindlemark::strictBase64Decode(text);
        QCOMPARE(decoded ? QString::fromUtf8(*decoded) : QString("<none>"), expected);
    }

    void templateRecord_data()
    {
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("expected"); // JSON of the record; "id":"*" for a fresh UUID
        const QString text = R"({"id":"text","title":"Text File","prefix":"New Text File","suffix":"txt","enabled":true,"executable":false})";
        QTest::newRow("id only")
            << "id=markdown" << R"({"id":"markdown","title":"Markdown Document","prefix":"MarkdownDocument","suffix":"md","enabled":true,"executable":false})";
        QTest::newRow("executable alone is not a field") << "executable=yes" << text;
        QTest::newRow("title only")
            << "title=Notes" << R"({"id":"text","title":"Notes","prefix":"New Text File","suffix":"txt","enabled":true,"executable":false})";
        QTest::newRow("empty title skipped")
            << "title=&prefix=Memo" << R"({"id":"text","title":"Text File","prefix":"Memo","suffix":"txt","enabled":true,"executable":false})";
        QTest::newRow("last title wins") << "title=A&title=B&title="
            << R"({"id":"text","title":"B","prefix":"New Text File","suffix":"txt","enabled":true,"executable":false})";
        QTest::newRow("unknown id keeps its id")
            << "id=nope&suffix=.org" << R"({"id":"nope","title":"Text File","prefix":"New Text File","suffix":".org","enabled":true,"executable":false})";
        QTest::newRow("executable from base")
            << "id=shell&prefix=run" << R"({"id":"shell","title":"Shell Script","prefix":"run","suffix":"sh","enabled":true,"executable":true})";
        QTest::newRow("executable overrides base")
            << "id=shell&prefix=run&executable=NO" << R"({"id":"shell","title":"Shell Script","prefix":"run","suffix":"sh","enabled":true,"executable":false})";
        QTest::newRow("enabled item has no effect")
            << "enabled=false&title=T" << R"({"id":"text","title":"T","prefix":"New Text File","suffix":"txt","enabled":true,"executable":false})";
        QTest::newRow("values not trimmed")
            << "prefix=%20a%20" << R"({"id":"text","title":"Text File","prefix":" a ","suffix":"txt","enabled":true,"executable":false})";
        QTest::newRow("stored template") << "id=mine"
            << R"({"id":"mine","title":"Mine","prefix":"Mine","suffix":"x","enabled":false,"executable":false})";
        QTest::newRow("payload wins over fields")
            << "title=Y&payload=eyJ0aXRsZSI6Ij4+PiJ9"
            << R"({"id":"*","title":">>>","prefix":">>>","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("empty object payload")
            << "payload=e30=&id=markdown" << R"({"id":"*","title":"New File","prefix":"New File","suffix":"","enabled":false,"executable":false})";
        QTest::newRow("array payload ignored") << "payload=W10=&id=json"
            << R"({"id":"json","title":"JSON File","prefix":"JSONFile","suffix":"json","enabled":false,"executable":false})";
        QTest::newRow("unpadded payload ignored") << "payload=e30&id=json"
            << R"({"id":"json","title":"JSON File","prefix":"JSONFile","suffix":"json","enabled":false,"executable":false})";
        QTest::newRow("escaped line break in payload ignored") << "payload=e30%3D%0A&title=Z"
            << R"({"id":"text","title":"Z","prefix":"New Text File","suffix":"txt","enabled":true,"executable":false})";
        QTest::newRow("payload not utf-8 json ignored") << "payload=%2F%2F79&title=Z"
            << R"({"id":"text","title":"Z","prefix":"New Text File","suffix":"txt","enabled":true,"executable":false})";
    }
    void templateRecord()
    {
        QFETCH(QString, query);
        QFETCH(QString, expected);
        const TemplateList stored{json(R"({"id":"mine","title":"Mine","suffix":".x"})")};
        const UrlRequest request = interpretCommandUrl("brindlemark://template?path=/tmp&" + query, stored);
        QCOMPARE(request.kind, UrlRequest::CreateFromTemplate);
        Template wanted = json(expected);
        if (wanted.value("id") == "*") {
            QCOMPARE(request.record.value("id").toString().size(), 36);
            wanted.insert("id", request.record.value("id"));
        }
        QCOMPARE(request.record, wanted);
    }

    void commands_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("folder");
        QTest::newRow("terminal") << "brindlemark://terminal?path=%2Ftmp%2Fa%20b" << int(UrlRequest::OpenTerminal) << "/tmp/a b";
        QTest::newRow("first path counts") << "brindlemark://iterm?path=/a&path=/b" << int(UrlRequest::OpenITerm) << "/a";
        QTest::newRow("first path empty") << "brindlemark://iterm?path=&path=/b" << int(UrlRequest::MissingFolder) << "";
        QTest::newRow("first path without =") << "brindlemark://iterm?path&path=/b" << int(UrlRequest::MissingFolder) << "";
        QTest::newRow("path not utf-8") << "brindlemark://create?path=%FF" << int(UrlRequest::MissingFolder) << "";
        QTest::newRow("create without query") << "brindlemark://create" << int(UrlRequest::MissingFolder) << "";
        QTest::newRow("unknown without query") << "brindlemark://nothing" << int(UrlRequest::MissingFolder) << "";
        QTest::newRow("unknown with path") << "brindlemark://nothing?path=/tmp" << int(UrlRequest::Ignore) << "/tmp";
        QTest::newRow("host case") << "brindlemark://Create?path=/tmp" << int(UrlRequest::Ignore) << "/tmp";
        QTest::newRow("scheme case") << "Brindlemark://create?path=/tmp" << int(UrlRequest::Ignore) << "";
        QTest::newRow("other scheme") << "https://create?path=/tmp" << int(UrlRequest::Ignore) << "";
        QTest::newRow("not a url") << "create me" << int(UrlRequest::Ignore) << "";
        QTest::newRow("create reads only path") << "brindlemark://create?path=/tmp&id=markdown&title=X" << int(UrlRequest::Create) << "/tmp";
        QTest::newRow("template") << "brindlemark://template?path=/t%2Bx+y" << int(UrlRequest::CreateFromTemplate) << "/t+x+y";
    }
    void commands()
    {
        QFETCH(QString, url);
        QFETCH(int, kind);
        QFETCH(QString, folder);
        const UrlRequest request = interpretCommandUrl(url, {});
        QCOMPARE(int(request.kind), kind);
        QCOMPARE(request.folder, folder);
    }
};

QTEST_GUILESS_MAIN(UrlsTest)
#include "tst_urls.moc"
