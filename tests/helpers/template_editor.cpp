// A running Brindlemark whose template table is edited through its standard input, for the tests
// of several instances on one home: the real controller and platform, with an event loop, edits
// made as the table makes them. One command a line:
//   set ROW MEMBER VALUE   an edit of one cell (a flag: "true" or "false")
//   add ID                 a row added at the end
//   remove ROW             a row removed
//   list                   prints the list as the instance holds it, one line of JSON
// It prints "ready" once started.
#include "app/AppDelegate.h"
#include "platform/Platform.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateTableModel.h"

#include <QApplication>
#include <QSocketNotifier>

#include <cstdio>
#include <unistd.h>

using namespace brindlemark;

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const std::unique_ptr<Platform> platform = createPlatform();
    AppDelegate app(*platform);
    app.applicationWillFinishLaunching();
    app.setHandledURLLaunch(true);
    app.applicationDidFinishLaunching();
    // The table's columns, as the window gives them.
    for (const QString& member : {TemplateKey::enabled, TemplateKey::title, TemplateKey::prefix,
                                  TemplateKey::suffix, TemplateKey::executable})
        app.templateTableModel()->appendColumn(
            {member, member, 0,
             member == TemplateKey::enabled || member == TemplateKey::executable});

    auto perform = [&](const QStringList& words) {
        if (words[0] == "set" && words.size() == 4) {
            const QVariant value = words[3] == "true"    ? QVariant(true)
                                   : words[3] == "false" ? QVariant(false)
                                                         : QVariant(words[3]);
            app.templateTableModel()->setObjectValue(value, words[2], words[1].toInt());
        } else if (words[0] == "add" && words.size() == 2) {
            TemplateList list = app.templates();
            list.append(Template{{TemplateKey::id, words[1]}, {TemplateKey::title, words[1]}});
            app.setTemplates(list);
            app.saveTemplates();
        } else if (words[0] == "remove" && words.size() == 2) {
            TemplateList list = app.templates();
            list.removeAt(words[1].toInt());
            app.setTemplates(list);
            app.saveTemplates();
        } else if (words[0] == "list") {
            std::printf("%s\n", qPrintable(templatesJSONText(app.templates())));
            std::fflush(stdout);
        }
    };
    QByteArray pending;
    QSocketNotifier input(0, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, &app, [&] {
        char buffer[4096];
        const ssize_t n = ::read(0, buffer, sizeof buffer);
        if (n <= 0) {
            application.quit();
            return;
        }
        pending.append(buffer, n);
        for (qsizetype end; (end = pending.indexOf('\n')) >= 0; pending.remove(0, end + 1))
            perform(QString::fromUtf8(pending.left(end)).split(' '));
    });
    std::printf("ready\n");
    std::fflush(stdout);
    return application.exec();
}
