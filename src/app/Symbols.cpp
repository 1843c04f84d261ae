#include "app/Symbols.h"

#include "Identifiers.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QHash>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QSettings>

namespace brindlemark {

namespace {

// Draws the shape of another icon (its alpha) in one colour: a fixed one, or else the
// application palette's text colour at the moment of drawing, so that icons already handed to
// buttons and menus follow a change of palette.
class MonochromeIconEngine final : public QIconEngine {
public:
    MonochromeIconEngine(const QIcon& shape, const QString& name,
                         const QColor& fixedColour = QColor())
        : m_shape(shape), m_name(name), m_fixedColour(fixedColour)
    {
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        QPixmap pixmap = m_shape.pixmap(size, 1.0, QIcon::Normal, state);
        if (pixmap.isNull())
            return pixmap;
        QPainter painter(&pixmap);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(pixmap.rect(), colour(mode));
        return pixmap;
    }

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State state) override
    {
        const qreal scale = painter->device() ? painter->device()->devicePixelRatio() : 1.0;
        painter->drawPixmap(rect, pixmap(rect.size() * scale, mode, state));
    }

    QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State state) override
    {
        return m_shape.actualSize(size, QIcon::Normal, state);
    }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State state) override
    {
        return m_shape.availableSizes(QIcon::Normal, state);
    }
    QString iconName() override { return m_name; }
    bool isNull() override { return m_shape.isNull(); }
    QString key() const override { return QStringLiteral("brindlemark.monochrome"); }
    QIconEngine* clone() const override { return new MonochromeIconEngine(*this); }

private:
    QColor colour(QIcon::Mode mode) const
    {
        if (m_fixedColour.isValid())
            return m_fixedColour;
        const QPalette palette = QGuiApplication::palette();
        if (mode == QIcon::Selected)
            return palette.color(QPalette::HighlightedText);
        const QColor text = palette.color(QPalette::Active, QPalette::WindowText);
        if (mode != QIcon::Disabled)
            return text;
        // Dimmed as disabled text is; half as opaque where the palette dims nothing.
        QColor disabled = palette.color(QPalette::Disabled, QPalette::WindowText);
        if (disabled == text)
            disabled.setAlphaF(0.5);
        return disabled;
    }

    QIcon m_shape;
    QString m_name;
    QColor m_fixedColour;
};

QString markThemeName()
{
    return QLatin1String(ApplicationBundleIdentifier) + QLatin1String("-symbolic");
}

// Decoding is what costs here (a quarter of a millisecond for each small PNG), and the menus
// are rebuilt each time they open: each file is read once. Kept as images, not pixmaps, as they
// outlive the application object.
QIcon iconFromFiles(const QStringList& files)
{
    static QHash<QString, QImage> images;
    QIcon icon;
    for (const QString& file : files) {
        auto image = images.constFind(file);
        if (image == images.constEnd())
            image = images.insert(file, QImage(file));
        if (!image->isNull())
            icon.addPixmap(QPixmap::fromImage(*image));
    }
    return icon;
}

// The mark, from the PNGs rendered from packaging/icons/brindlemark-symbolic.svg: drawing it
// needs no SVG support.
QIcon bundledMark()
{
    QStringList files;
    for (int size : {16, 22, 24, 32, 48, 64, 96, 128})
        files << QStringLiteral(":/icons/symbolic/brindlemark-symbolic-%1.png").arg(size);
    return iconFromFiles(files);
}

// The mark's theme name where the desktop can find it (our package installs it into hicolor),
// else an empty text. Qt itself may not see the installed SVG (it draws SVG only with its SVG
// module), but the panels that look names up do.
QString installedMarkName()
{
    // Looked up once per themes and places: the menus ask at every opening.
    static QHash<QString, QString> found;
    const QString key = QIcon::themeName() + u'\n' + QIcon::themeSearchPaths().join(u'\n');
    if (const auto known = found.constFind(key); known != found.constEnd())
        return *known;
    const QString name = markThemeName();
    QString installed;
    if (QIcon::fromTheme(name).name() == name)
        installed = name;
    for (const QString& base : QIcon::themeSearchPaths())
        if (QFileInfo::exists(base + QLatin1String("/hicolor/scalable/apps/") + name +
                              QLatin1String(".svg")))
            installed = name;
    return *found.insert(key, installed);
}

// A theme's symbolic icon as GTK's pre-rendered "<name>.symbolic.png" files in its fixed-size
// folders (Adwaita ships all its symbolic icons so, besides the SVGs): they need no SVG support,
// and their alpha is the shape. Looked for in the desktop's theme, then in the fallback theme.
QStringList prerenderedSymbolicFiles(const QString& name)
{
    for (const QString& theme : {QIcon::themeName(), QIcon::fallbackThemeName()}) {
        // hicolor holds applications' own icons, not symbolic sets, and lists hundreds of folders.
        if (theme.isEmpty() || theme == QLatin1String("hicolor"))
            continue;
        for (const QString& base : QIcon::themeSearchPaths()) {
            const QString root = base + '/' + theme;
            if (!QFileInfo::exists(root + QLatin1String("/index.theme")))
                continue;
            QStringList files;
            const QSettings index(root + QLatin1String("/index.theme"), QSettings::IniFormat);
            for (const QString& folder :
                 index.value(QStringLiteral("Icon Theme/Directories")).toStringList())
                if (const QString file =
                        root + '/' + folder + '/' + name + QLatin1String(".symbolic.png");
                    QFileInfo::exists(file))
                    files << file;
            if (!files.isEmpty())
                return files;
        }
    }
    return QStringList();
}

QIcon prerenderedSymbolicIcon(const QString& name)
{
    // A look through a theme's folders is kept, per themes, places and name.
    static QHash<QString, QStringList> found;
    const QString key = QStringList{QIcon::themeName(), QIcon::fallbackThemeName(),
                                    QIcon::themeSearchPaths().join('\n'), name}
                            .join('\n');
    auto files = found.constFind(key);
    if (files == found.constEnd())
        files = found.insert(key, prerenderedSymbolicFiles(name));
    return iconFromFiles(*files);
}

} // namespace

QString themeIconName(const QString& symbol)
{
    static const QHash<QString, QString> names{
        {"terminal", "utilities-terminal-symbolic"},
        {"apple.terminal", "utilities-terminal-symbolic"},
        {"checkmark.shield", "security-high-symbolic"},
        {"bolt.badge.checkmark", "emblem-ok-symbolic"},
        {"arrow.clockwise", "view-refresh-symbolic"},
        {"gearshape", "emblem-system-symbolic"},
        {"macwindow", "window-new-symbolic"},
        {"power", "system-shutdown-symbolic"},
        {"doc", "text-x-generic-symbolic"},
        {"xmark", "window-close-symbolic"},
    };
    return names.value(symbol);
}

QIcon symbolImage(const QString& name, qreal, QFont::Weight)
{
    if (name == QLatin1String("doc.badge.plus"))
        return QIcon(new MonochromeIconEngine(bundledMark(), installedMarkName()));
    const QString symbolic = themeIconName(name);
    if (symbolic.isEmpty())
        return QIcon();
    // Qt answers a name its theme lacks with a shorter one ("view-refresh" for
    // "view-refresh-symbolic"), a full-colour icon: only the exact name will do here.
    QIcon shape = QIcon::fromTheme(symbolic);
    if (shape.name() != symbolic)
        shape = prerenderedSymbolicIcon(symbolic);
    if (!shape.isNull())
        return QIcon(new MonochromeIconEngine(shape, symbolic));
    // A theme without symbolic icons: its ordinary icon (the name without "-symbolic") rather
    // than none.
    return QIcon::fromTheme(symbolic.section('-', 0, -2));
}

QIcon statusItemIcon()
{
    // The grey GTK gives symbolic icons where it knows no colour: readable on light and dark
    // panels.
    return QIcon(
        new MonochromeIconEngine(bundledMark(), installedMarkName(), QColor(0xbe, 0xbe, 0xbe)));
}

QIcon applicationIcon()
{
    QStringList files;
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256})
        files << QStringLiteral(":/icons/brindlemark-%1.png").arg(size);
    return iconFromFiles(files);
}

} // namespace brindlemark
