// Writes the built-in templates as the application stores them, for the file-manager menus to
// show until the user's own list has been stored: run once at build time into the extension's
// bundle, so that the list lives in one place, the application's.
#include "templates/TemplateStore.h"

#include <QFile>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: brindlemark-default-templates FILE\n");
        return 64;
    }
    QFile file(QString::fromLocal8Bit(argv[1]));
    const QByteArray text =
        brindlemark::templatesJSONText(brindlemark::defaultTemplates()).toUtf8() + '\n';
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(text) != text.size() ||
        !file.flush()) {
        std::fprintf(stderr, "brindlemark-default-templates: cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
