// A running Brindlemark whose template table is edited through its standard input, for the tests
// of several instances on one home: the real controller, platform and window (offscreen), edits
// made as the window's table makes them. One command a line:
//   set ROW MEMBER VALUE   an edit of one cell (a flag: "true" or "false")
//   add ID                 a row added at the end
//   remove ROW             a row removed
//   list                   prints the list as the instance holds it, one line of JSON
// It prints "ready" once started, and ends with its input.
#include "app/AppDelegate.h"
#include "platform/Platform.h"
#include "templates/TemplateStore.h"
#include "templates/TemplateTableModel.h"

#include <QApplication>

#include <iostream>
#include <thread>

using namespace brindlemark;

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    const std::unique_ptr<Platform> platform = createPlatform();
    AppDelegate app(*platform);
    app.applicationWillFinishLaunching();
    app.applicationDidFinishLaunching(); // as the user starts it: the window and its table

    const auto perform = [&](const QStringList& words) {
        TemplateList list = app.templates();
        if (words[0] == "set") {
            const QVariant value =
                words[3] == "true" || words[3] == "false" ? QVariant(words[3] == "true") : words[3];
            app.templateTableModel()->setObjectValue(value, words[2], words[1].toInt());
        } else if (words[0] == "list") {
            std::cout << templatesJSONText(list).toStdString() << std::endl;
        } else {
            if (words[0] == "add")
                list.append(Template{{TemplateKey::id, words[1]}, {TemplateKey::title, words[1]}});
            else
                list.removeAt(words[1].toInt());
            app.setTemplates(list);
            app.saveTemplates();
        }
    };
    // Each line read is performed on the event loop's thread, in order.
    std::thread([&] {
        for (std::string line; std::getline(std::cin, line);)
            QMetaObject::invokeMethod(&app,
                                      [=] { perform(QString::fromStdString(line).split(' ')); });
        QMetaObject::invokeMethod(&application, &QCoreApplication::quit);
    }).detach();
    std::cout << "ready" << std::endl;
    return application.exec();
}
