#include "app/Symbols.h"

#include <QHash>

namespace brindlemark {

QString themeIconName(const QString& symbol)
{
    static const QHash<QString, QString> names{
        {"terminal", "utilities-terminal"},
        {"apple.terminal", "utilities-terminal"},
        {"checkmark.shield", "security-high"},
        {"bolt.badge.checkmark", "emblem-default"},
        {"arrow.clockwise", "view-refresh"},
        {"gearshape", "preferences-system"},
        {"macwindow", "window-new"},
        {"power", "system-shutdown"},
        {"doc", "text-x-generic"},
        {"xmark", "window-close"},
    };
    return names.value(symbol);
}

QIcon symbolImage(const QString& name, qreal, QFont::Weight)
{
    if (name == QLatin1String("doc.badge.plus")) {
        QIcon icon;
        for (int size : {16, 22, 24, 32, 48, 64, 128, 256})
            icon.addFile(QStringLiteral(":/icons/brindlemark-%1.png").arg(size), QSize(size, size));
        return icon;
    }
    const QString themeName = themeIconName(name);
    return themeName.isEmpty() ? QIcon() : QIcon::fromTheme(themeName);
}

} // namespace brindlemark
