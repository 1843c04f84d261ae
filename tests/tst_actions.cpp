// File creation: the first free name, numbering, modes, and the names and folders it refuses;
// which of a burst's new files are shown.
#include "TestSupport.h"

#include "actions/FileCreation.h"
#include "actions/PendingShows.h"

#include <sys/stat.h>

using namespace brindlemark;

class ActionsTest : public QObject {
    Q_OBJECT

private slots:
    void fileNames() {
        // "record|entries there": an entry "x/" is a folder, "x->y" a link to y. Under a umask of
        // 077 a new file's mode is 0600, the user's default for new files, shown when it differs:
        // a script is 0755 whatever the umask (Qt's permission bits read like the octal mode in
        // hexadecimal). The new file is empty and nothing else appears: one that was there would
        // have been overwritten under its own name.
        const mode_t oldMask = ::umask(077);
        const auto restoreMask = qScopeGuard([&] { ::umask(oldMask); });
        expectEach(
            [](const QString& input) {
                TestHome home;
                for (const QString& entry : input.section('|', 1).split(',', Qt::SkipEmptyParts)) {
                    if (entry.endsWith('/'))
                        QDir().mkpath(home.file(entry));
                    else if (entry.contains("->"))
                        QFile::link(entry.section("->", 1), home.file(entry.section("->", 0, 0)));
                    else
                        writeFile(home.file(entry), "kept");
                }
                const auto all =
                    QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot;
                const qsizetype before = QDir(home.path()).entryList(all).size();
                const FileCreation made =
                    createFileFromTemplate(json(input.section('|', 0, 0)), home.path());
                const bool intact = made.status == FileCreation::Created &&
                                    readFile(made.filePath).isEmpty() &&
                                    QDir(home.path()).entryList(all).size() == before + 1;
                const QString mode =
                    QString::number(int(QFileInfo(made.filePath).permissions() & 0x777), 16);
                return made.filePath.section('/', -1) + (mode == "600" ? "" : " mode " + mode) +
                       (intact ? "" : " (something else changed)");
            },
            {{R"({"prefix":"a b","suffix":"txt"}|a b.txt,a b 1.txt,a b 3.txt)", "a b 2.txt"},
             {R"({"prefix":"a b","suffix":"txt"}|a b 1.txt)", "a b.txt"},
             {R"({"title":"Notes","prefix":"  ","suffix":"md"}|)", "Notes.md"},
             {R"({"prefix":"x","suffix":"..txt"}|x.txt)", "x 1.txt"},
             {R"({"prefix":"x","suffix":"...txt"}|)", "x..txt"},
             // A folder, a link to a file and a dangling link all take their names.
             {R"({"prefix":"x","suffix":"sh","executable":"yes"}|x.sh/,t,x 1.sh->t,x 2.sh->gone)",
              "x 3.sh mode 755"},
             {R"({"prefix":"50%1 off","suffix":"%2","executable":"no"}|50%1 off.%2)",
              "50%1 off 1.%2"},
             {R"({"prefix":"n"}|n,n 1,n 2,n 3,n 4,n 5,n 6,n 7,n 8,n 9)", "n 10"},
             {R"({"prefix":"n"}|n,n 01,n 1x,n 2)", "n 1"},
             // "." and ".." are in every folder: taken, and the numbering goes on.
             {"{\"prefix\":\".\",\"suffix\":\".\"}|", ". 1"},
             {"{\"prefix\":\"..\"}|.. 1", ".. 2"}});
    }

    void numberingFollowsTheFolder() {
        // One burst's steps -> the files it made: "+" makes a file, any other step is a shell
        // command run in the folder, which changes it behind the burst's back between its files.
        // The first free name all the same.
        expectEach(
            [](const QString& steps) -> QString {
                TestHome home;
                const QString folder = home.file("f");
                FolderNames burst;
                QStringList made;
                bool done = QDir().mkpath(folder);
                for (const QString& step : steps.split(';')) {
                    if (step == "+")
                        made << createFileFromTemplate(Template{{"prefix", "p"}, {"suffix", "txt"}},
                                                       folder, &burst)
                                    .filePath.section('/', -1);
                    else
                        done = done &&
                               QProcess::execute("sh", {"-c", "cd \"$0\" && " + step, folder}) == 0;
                }
                return made.join(',') + (done ? "" : " (a step failed)");
            },
            {{"+;+;rm p.txt;+;+", "p.txt,p 1.txt,p.txt,p 2.txt"},
             {"+;+;+;rm 'p 1.txt';+", "p.txt,p 1.txt,p 2.txt,p 1.txt"},
             {"+;touch 'p 1.txt';touch 'p 2.txt';+", "p.txt,p 3.txt"},
             {"+;+;mv 'p 1.txt' q;+;mv q 'p 3.txt';+;+", "p.txt,p 1.txt,p 1.txt,p 2.txt,p 4.txt"},
             // A new, empty folder in the old one's place.
             {"+;+;mv ../f ../old && mkdir ../f;+", "p.txt,p 1.txt,p.txt"}});
    }

    void pendingShows() {
        // "files of a burst" -> what is shown: each folder once, its last file, in the order of
        // those last files. Then nothing is pending.
        PendingShows pending;
        expectEach(
            [&](const QString& burst) {
                for (const QString& file : burst.split(','))
                    pending.add(file);
                const QString shown = pending.take().join(',');
                return shown + "|" + pending.take().join(',');
            },
            {{"/a/1,/b/1,/a/2,/c/1,/b/2", "/a/2,/c/1,/b/2|"},
             {"/a/1,/a/b/1,/a//2,/a/b/./2", "/a//2,/a/b/./2|"},
             {"/1,/a/1,/2", "/a/1,/2|"}});
    }

    void failures() {
        // Not a folder, or a folder where the file cannot be made: nothing is made anywhere.
        TestHome home;
        writeFile(home.file("folder/file"), "x");
        const auto status = [&](QString folder, const QString& prefix) {
            folder.replace("~", home.path()).replace("\\0", QChar(0));
            return createFileFromTemplate(Template{{"prefix", prefix}}, folder).status;
        };
        for (const QString folder :
             {"~/missing", "~/folder/file", "", "relative/folder", "/tmp\\0/x"})
            QVERIFY2(status(folder, "x") == FileCreation::NotAFolder, qPrintable(folder));
        QCOMPARE(status("/proc", "x"), FileCreation::CouldNotCreate);
        QCOMPARE(status("~/folder", "../escaped"), FileCreation::CouldNotCreate);
        QCOMPARE(entries(home.file("folder")), QStringList{"file"});
        QVERIFY(!QFile::exists(home.file("escaped")));
    }
};

QTEST_GUILESS_MAIN(ActionsTest)
#include "tst_actions.moc"
