// Reads a brindlemark:// URL with the application's own parser and prints what it asks for, as
// one JSON object: {"kind": ..., "folder": ..., "record": {...}}. Used by the tests of the
// file-manager menus to check the URLs they open.
#include "bridge/UrlCommands.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 2) {
        std::fputs("usage: url_probe URL\n", stderr);
        return 64;
    }
    const brindlemark::UrlRequest request = brindlemark::interpretCommandUrl(arguments[1], {});
    static const char* const kinds[] = {"ignore", "missing-folder", "create", "template", "terminal", "iterm"};
    const QJsonObject result{{"kind", kinds[request.kind]}, {"folder", request.folder}, {"record", request.record}};
    std::fputs(QJsonDocument(result).toJson(QJsonDocument::Compact).constData(), stdout);
    return 0;
}
