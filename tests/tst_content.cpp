// Templates with content: the files made from them, where their content is kept, what cannot be
// content, and the three ways a template gets it (the table's menu, a drop, the Templates folder).
#include "FakePlatform.h"
#include "TestSupport.h"

#include "actions/FileCreation.h"
#include "templates/TemplateContent.h"
#include "templates/TemplateTableModel.h"

#include <QtWidgets>

#include <sys/stat.h>
#include <unistd.h>

using namespace brindlemark;

namespace {

mode_t modeOf(const QString& path) {
    struct stat info {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

} // namespace

class ContentTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    std::unique_ptr<FakePlatform> platform;
    std::unique_ptr<AppDelegate> app;

    QString status() { return app->statusLabel()->text(); }
    TemplateContent content() { return TemplateContent(platform->templateContentFolder()); }
    std::unique_ptr<QMenu> menu; // the last one asked for
    QAction* item(int row, const QString& title) {
        menu = app->templateContextMenu(row);
        const QList<QAction*> items = menu->actions();
        return *std::find_if(items.begin(), items.end(),
                             [&](auto* a) { return a->text() == title; });
    }

private slots:
    void init() {
        menu.reset();
        app.reset();
        home = std::make_unique<TestHome>();
        platform = std::make_unique<FakePlatform>(home->path());
        QDir().mkpath(home->file("Desktop"));
        app = start(*platform);
    }

    void aFileHoldsTheContentAndAppearsOnlyWhole() {
        // Files with content, written as a file without a name first or not: their bytes, whether
        // executable, the name they get, and what appears at the free name just before they are
        // named.
        const struct {
            QByteArray bytes;
            bool executable;
            const char *name, *meanwhile;
        } files[] = {{"Hi\n", false, "Note.txt", ""},
                     {QByteArray("\x7f\x45LF\0\xff", 6), true, "Note.txt", ""},
                     {"#!/bin/sh\n", true, "Note 1.txt", "file"},
                     {"x", false, "Note 1.txt", "link"}};
        const auto guard = qScopeGuard([] {
            testing::beforeNamingWholeFile = nullptr;
            testing::withoutUnnamedFiles = false;
        });
        int n = 0;
        for (const bool unnamed : {true, false})
            for (const auto& [bytes, executable, name, then] : files) {
                const QString folder = home->file("f" + QString::number(n++));
                QVERIFY(QDir().mkpath(folder));
                testing::withoutUnnamedFiles = !unnamed;
                testing::beforeNamingWholeFile =
                    [&, meanwhile = QString(then)](const QString& path) mutable {
                        if (meanwhile == "file")
                            writeFile(path, "theirs");
                        else if (meanwhile == "link")
                            QFile::link(home->file("nowhere"), path);
                        meanwhile.clear();
                    };
                const FileCreation made = createFileFromTemplate(
                    {{"prefix", "Note"}, {"suffix", "txt"}, {"executable", executable}}, folder,
                    nullptr, &bytes);
                QCOMPARE(made.filePath, folder + "/" + name);
                QCOMPARE(readFile(made.filePath), bytes);
                // Else the mode of any new file.
                QVERIFY(writeFile(home->file("mode"), "x"));
                QCOMPARE(modeOf(made.filePath),
                         executable ? mode_t(0755) : modeOf(home->file("mode")));
                // Nothing else is left, and what was there first is as it was: no temporary file,
                // the link still leads nowhere.
                QCOMPARE(entries(folder).size(), QString(name) == "Note.txt" ? 1 : 2);
                QVERIFY(!QFileInfo::exists(home->file("nowhere")));
                if (QFileInfo(folder + "/Note.txt").isFile() && QString(name) != "Note.txt")
                    QCOMPARE(readFile(folder + "/Note.txt"), QByteArray("theirs"));
            }
    }

    void anyIdHasAPlaceOfItsOwn() {
        const QString longId(300, u'é');
        expectEach(contentFileName, {{"text", "text"},
                                     {"A-b_9", "A-b_9"},
                                     {"a/b", "a%2Fb"},
                                     {"a%2Fb", "a%252Fb"},
                                     {"..", "%2E%2E"},
                                     {" x~", "%20x%7E"},
                                     {"ü", "%C3%BC"}});
        QCOMPARE(contentFileName(longId),
                 "~" +
                     QCryptographicHash::hash(longId.toUtf8(), QCryptographicHash::Sha256).toHex());
        // Each id reads back what was written for it, and nothing leaves the folder.
        const QStringList ids{"a/b", "a%2Fb", "..", ".", "x y", longId, "../../escape"};
        for (const QString& id : ids)
            QVERIFY(content().write(id, id.toUtf8()));
        for (const QString& id : ids)
            QCOMPARE(content().read(id).bytes, id.toUtf8());
        QCOMPARE(entries(platform->templateContentFolder()).size(), ids.size());
        QCOMPARE(entries(home->file("data")), QStringList{"content"});
    }

    void contentThatCannotBeUsedGivesAnAlertAndNoFile_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("reason");
        for (const auto& [kind, reason] : {std::pair{"gone", "is gone (a link to nothing)"},
                                           {"folder", "is a folder"},
                                           {"fifo", "is not a regular file"},
                                           {"device", "is not a regular file"},
                                           {"socket", "cannot be read (No such device or address)"},
                                           {"large", "is larger than 64 MiB"}})
            QTest::newRow(kind) << QString(kind) << QString(reason);
    }
    void contentThatCannotBeUsedGivesAnAlertAndNoFile() {
        QFETCH(QString, kind);
        QFETCH(QString, reason);
        const QString path = content().pathFor("text");
        QDir().mkpath(platform->templateContentFolder());
        if (kind == "gone")
            QVERIFY(QFile::link(home->file("moved-away"), path));
        else if (kind == "folder")
            QVERIFY(QDir().mkpath(path));
        else if (kind == "fifo")
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0644), 0);
        else if (kind == "device")
            QVERIFY(QFile::link("/dev/zero", path));
        else if (kind == "socket")
            QCOMPARE(::mknod(QFile::encodeName(path).constData(), S_IFSOCK | 0644, 0), 0);
        else
            QVERIFY(writeFile(path, "x") && QFile::resize(path, ContentSizeLimit + 1));
        app->handleURL("brindlemark://create?path=" + home->file("Desktop"));
        QTRY_COMPARE(platform->alerts,
                     QStringList{"New Text File failed: The content of \"Text File\" " + reason +
                                 ": " + path});
        QCOMPARE(entries(home->file("Desktop")), QStringList());
        // Refused as well as the content of a template, and said so.
        QVERIFY(!app->setContentFromFile(1, path));
        QCOMPARE(status(), "Not used: \"text\" " + reason + ".");
    }

    void theTablesMenuGivesARowContentToEditAndRemove() {
        app->showWindow();
        QVERIFY(!item(1, "Remove Content")->isEnabled());
        QVERIFY(!app->templateTableModel()->index(1, 1).data(Qt::DecorationRole).isValid());
        QVERIFY(writeFile(home->file("header.md"), "# Title\n"));
        QVERIFY(app->setContentFromFile(1, home->file("header.md")));
        QCOMPARE(status(), "New \"Markdown Document\" files start with \"header.md\".");
        QVERIFY(app->templateTableModel()->index(1, 1).data(Qt::DecorationRole).isValid());
        // The chosen file may go: the content was copied.
        QFile::remove(home->file("header.md"));
        app->createTemplateWithIdentifier("markdown", home->file("Desktop"));
        QCOMPARE(readFile(home->file("Desktop/MarkdownDocument.md")), QByteArray("# Title\n"));

        // Editing opens a copy named as the template's files are; what is saved there is used.
        item(1, "Edit Content")->trigger();
        const QString copy = platform->openedFiles.value(0);
        QVERIFY(copy.endsWith("/MarkdownDocument.md"));
        QCOMPARE(readFile(copy), QByteArray("# Title\n"));
        // An editor's own files beside the copy are not the edit, however new.
        QVERIFY(writeFile(copy, "# Edited\n") &&
                writeFile(copy.section('/', 0, -2) + "/.MarkdownDocument.md.swp", "swap") &&
                writeFile(copy + "~", "backup"));
        app->createTemplateWithIdentifier("markdown", home->file("Desktop"));
        QCOMPARE(readFile(home->file("Desktop/MarkdownDocument 1.md")), QByteArray("# Edited\n"));

        // Edited again under another suffix: one copy, the new name, holding the edit.
        app->templateTableModel()->setData(app->templateTableModel()->index(1, 3), "txt",
                                           Qt::EditRole);
        item(1, "Edit Content")->trigger();
        QCOMPARE(entries(copy.section('/', 0, -2)).filter("Markdown"),
                 QStringList{"MarkdownDocument.txt"});
        QCOMPARE(readFile(platform->openedFiles.value(1)), QByteArray("# Edited\n"));

        // A row without content gets an empty one to edit.
        item(0, "Edit Content")->trigger();
        QCOMPARE(readFile(platform->openedFiles.value(2)), QByteArray());
        QVERIFY(content().has("text"));

        item(1, "Remove Content")->trigger();
        QVERIFY(!content().has("markdown") && !QFileInfo::exists(copy));

        // Removing a template removes its content, unless another template has the same id.
        app->setTemplates({app->templates()[0], app->templates()[0]});
        app->templateTableModel()->reload();
        for (const bool left : {true, false}) {
            app->templatesTableView()->selectRow(0);
            app->removeTemplate();
            QCOMPARE(content().has("text"), left);
        }
    }

    void theMenuIsForTheRowUnderThePointerOrTheSelectedOne() {
        app->showWindow();
        QVERIFY(writeFile(home->file("x"), "x") && app->setContentFromFile(1, home->file("x")));
        QTableView* table = app->templatesTableView();
        QStringList shown; // whether each menu could remove content: only for row 1
        const auto readMenu = [&] {
            QTimer::singleShot(0, [&] {
                auto* open = qobject_cast<QMenu*>(QApplication::activePopupWidget());
                shown << (open ? QString::number(open->actions()[2]->isEnabled()) : "none");
                open && open->close();
            });
        };
        QVERIFY(QTest::qWaitForWindowActive(app->window()));
        table->setFocus();
        table->selectRow(1);
        readMenu();
        QTest::keyClick(table, Qt::Key_F10, Qt::ShiftModifier);
        const QPoint row0 = table->visualRect(table->model()->index(0, 1)).center();
        QContextMenuEvent click(QContextMenuEvent::Mouse, row0,
                                table->viewport()->mapToGlobal(row0));
        readMenu();
        QApplication::sendEvent(table->viewport(), &click);
        QCOMPARE(shown, QStringList({"1", "0"}));
        QCOMPARE(app->selectedTemplateRow(), 0);
    }

    void droppedFilesBecomeTemplates() {
        app->showWindow();
        QVERIFY(writeFile(home->file("in/Letter.odt"), QByteArray("PK\x03\x04", 4)) &&
                writeFile(home->file("in/build.sh"), "#!/bin/sh\n", QFile::ExeOwner) &&
                writeFile(home->file("in/.profile"), "umask 022\n") &&
                QDir().mkpath(home->file("in/folder")));
        QMimeData drop;
        drop.setUrls({QUrl::fromLocalFile(home->file("in/Letter.odt")),
                      QUrl::fromLocalFile(home->file("in/build.sh")),
                      QUrl::fromLocalFile(home->file("in/.profile")),
                      QUrl::fromLocalFile(home->file("in/folder")), QUrl("https://example.org/a")});
        QAbstractItemModel* model = app->templateTableModel();
        QVERIFY(!model->dropMimeData(&drop, Qt::MoveAction, -1, -1, {}));
        QVERIFY(model->dropMimeData(&drop, Qt::CopyAction, -1, -1, {}));
        QCOMPARE(status(), "Added 3 templates. Not added: \"folder\" is a folder.");
        QStringList added;
        for (const Template& record : app->templates().mid(6))
            added << describe(record) + "|" + content().read(record["id"].toString()).bytes;
        QCOMPARE(added, QStringList({"*|Letter|Letter|odt|1|0|PK\x03\x04",
                                     "*|build|build|sh|1|1|#!/bin/sh\n",
                                     "*|.profile|.profile||1|0|umask 022\n"}));
        QVERIFY(platform->userDefaults.value("TemplatesJSON").toString().contains("\"Letter\""));
    }

    void theTemplatesFolderIsAddedOnce() {
        app->showWindow();
        app->importTemplatesFolder();
        QCOMPARE(status(), QString("No Templates folder: there is nothing to add."));
        const QString folder = home->file("Vorlagen");
        platform->templatesFolder = folder;
        QVERIFY(writeFile(folder + "/Brief.odt", "letter") && writeFile(folder + "/.hidden", "x") &&
                writeFile(folder + "/Skripte/run.py", "#!/usr/bin/python3\n", QFile::ExeOwner) &&
                writeFile(folder + "/.git/HEAD", "x"));
        const QStringList before = entries(folder);
        app->handleFolderCommand("--import-templates");
        QCOMPARE(status(), "Added 2 templates from " + folder + ".");
        QCOMPARE(app->templates().size(), 8);
        // Again: nothing new. A file of the same name with other bytes is new.
        app->importTemplatesFolder();
        QCOMPARE(status(), "No new templates in " + folder + ".");
        QVERIFY(writeFile(folder + "/Brief.odt", "another letter"));
        app->importTemplatesFolder();
        QCOMPARE(app->templates().size(), 9);
        QCOMPARE(describe(app->templates().last()), QString("*|Brief|Brief|odt|1|0"));
        QCOMPARE(entries(folder), before);
        QCOMPARE(readFile(folder + "/Skripte/run.py"), QByteArray("#!/usr/bin/python3\n"));
    }

    void aStartRemovesWhatKilledContentSavesLeft() {
        const QString folder = platform->templateContentFolder();
        QVERIFY(writeFile(folder + "/.text.tmp-abc123", "half") &&
                writeFile(folder + "/.text.tmp-abc12", "not ours") &&
                writeFile(folder + "/text", "x"));
        platform->removeInterruptedSaves();
        QCOMPARE(entries(folder), QStringList({".text.tmp-abc12", "text"}));
    }
};

BRINDLEMARK_WIDGET_TEST_MAIN(ContentTest)
#include "tst_content.moc"
