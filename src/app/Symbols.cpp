#include "app/Symbols.h"

#include "Identifiers.h"

#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHash>
#include <QIconEngine>
#include <QImageReader>
#include <QPainter>
#include <QPalette>

#include <algorithm>
#include <memory>
#include <optional>

namespace brindlemark {

namespace {

// What a symbol is drawn from: a shape recoloured to one colour, or, where the theme has no
// symbolic form, the theme's ordinary icon in its own colours.
struct SymbolShape {
    QIcon icon;
    QString name;
    bool monochrome = true;
};

SymbolShape symbolShape(const QString& symbol);

// Draws a symbol: the shape (its alpha) in one colour, a fixed one, or else the application
// palette's text colour at the moment of drawing, so that icons already handed to buttons and
// menus follow a change of palette. The shape is looked up when the icon is first drawn or
// measured, not when it is made: a tray menu built at start-up costs no theme look-ups until it
// opens.
class SymbolIconEngine final : public QIconEngine {
public:
    explicit SymbolIconEngine(const QString& symbol, const QColor& fixedColour = QColor())
        : m_symbol(symbol), m_fixedColour(fixedColour) {}

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        if (!shape().monochrome)
            return shape().icon.pixmap(size, mode, state);
        QPixmap pixmap = shape().icon.pixmap(size, 1.0, QIcon::Normal, state);
        if (pixmap.isNull())
            return pixmap;
        QPainter painter(&pixmap);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(pixmap.rect(), colour(mode));
        return pixmap;
    }

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        const qreal scale = painter->device() ? painter->device()->devicePixelRatio() : 1.0;
        painter->drawPixmap(rect, pixmap(rect.size() * scale, mode, state));
    }

    QSize actualSize(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return shape().icon.actualSize(size, shape().monochrome ? QIcon::Normal : mode, state);
    }

    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override {
        return shape().icon.availableSizes(shape().monochrome ? QIcon::Normal : mode, state);
    }
    QString iconName() override { return shape().name; }
    bool isNull() override { return shape().icon.isNull(); }
    QString key() const override { return QStringLiteral("brindlemark.symbol"); }
    QIconEngine* clone() const override { return new SymbolIconEngine(*this); }

private:
    const SymbolShape& shape() {
        if (!m_shape)
            m_shape = symbolShape(m_symbol);
        return *m_shape;
    }

    QColor colour(QIcon::Mode mode) const {
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

    QString m_symbol;
    QColor m_fixedColour;
    std::optional<SymbolShape> m_shape;
};

// Read as the PNG it is: left to guess, Qt would load every image plug-in on the system to ask
// each whether it knows the file.
QImage decodedPNG(const QString& file) {
    QImageReader reader(file, "PNG");
    reader.setAutoDetectImageFormat(false);
    return reader.read();
}

// PNG files of known sizes as one icon, each decoded only when a size near its own is drawn: the
// largest, never shown in a menu, cost nothing. (Qt's own QIcon::addFile decodes every file at
// once.) Copies of the icon share what was decoded and kept.
class FilesIconEngine final : public QIconEngine {
public:
    explicit FilesIconEngine(QList<std::pair<QString, int>> files)
        : m_files(std::make_shared<Files>()) {
        std::sort(files.begin(), files.end(),
                  [](const auto& a, const auto& b) { return a.second < b.second; });
        for (const auto& [file, size] : files)
            m_files->append({file, size, QImage(), false});
    }

    // The same pixmap in every mode: these icons are the shapes the symbol engine recolours, and
    // the windows' icon.
    QPixmap pixmap(const QSize& size, QIcon::Mode, QIcon::State) override {
        const QImage image = imageFor(size);
        if (image.isNull() || (image.width() <= size.width() && image.height() <= size.height()))
            return QPixmap::fromImage(image);
        return QPixmap::fromImage(
            image.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        const qreal scale = painter->device() ? painter->device()->devicePixelRatio() : 1.0;
        painter->drawPixmap(rect, pixmap(rect.size() * scale, mode, state));
    }

    QSize actualSize(const QSize& size, QIcon::Mode, QIcon::State) override {
        const Entry* entry = entryFor(size);
        if (!entry)
            return QSize();
        return QSize(entry->size, entry->size).boundedTo(size);
    }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override {
        QList<QSize> sizes;
        for (const Entry& entry : *m_files)
            sizes.append(QSize(entry.size, entry.size));
        return sizes;
    }
    bool isNull() override { return m_files->isEmpty(); }
    QString key() const override { return QStringLiteral("brindlemark.files"); }
    QIconEngine* clone() const override { return new FilesIconEngine(*this); }

private:
    struct Entry {
        QString file;
        int size;
        QImage image;
        bool decoded;
    };
    using Files = QList<Entry>;

    // The smallest file at least as large as asked for, else the largest.
    Entry* entryFor(const QSize& size) {
        if (m_files->isEmpty())
            return nullptr;
        const int wanted = qMax(size.width(), size.height());
        for (Entry& entry : *m_files)
            if (entry.size >= wanted)
                return &entry;
        return &m_files->last();
    }

    // Small images, the symbols of menus and buttons that are drawn again at every opening, are
    // kept once decoded; larger ones, the window's icon that is handed to the window manager once,
    // are decoded whenever they are asked for rather than held for the life of the process.
    QImage imageFor(const QSize& size) {
        Entry* entry = entryFor(size);
        if (!entry)
            return QImage();
        if (entry->size > KeptSize)
            return decodedPNG(entry->file);
        if (!entry->decoded) {
            entry->image = decodedPNG(entry->file);
            entry->decoded = true;
        }
        return entry->image;
    }

    static constexpr int KeptSize = 32;

    std::shared_ptr<Files> m_files;
};

QIcon iconFromFiles(const QList<std::pair<QString, int>>& files) {
    return files.isEmpty() ? QIcon() : QIcon(new FilesIconEngine(files));
}

// The mark, from the PNGs rendered from packaging/icons/brindlemark-symbolic.svg: drawing it
// needs no SVG support.
QIcon bundledMark() {
    QList<std::pair<QString, int>> files;
    for (int size : {16, 22, 24, 32, 48, 64, 96, 128})
        files.append(
            {QStringLiteral(":/icons/symbolic/brindlemark-symbolic-%1.png").arg(size), size});
    return iconFromFiles(files);
}

// The mark's theme name where the desktop can find it (our package installs it into hicolor),
// else an empty text. Qt itself may not see the installed SVG (it draws SVG only with its SVG
// module), but the panels that look names up do. Only the installed file is looked for: asking
// Qt's theme loader for a name it lacks searches every folder of every theme.
QString installedMarkName() {
    const QString name = QLatin1String(ApplicationBundleIdentifier) + QLatin1String("-symbolic");
    for (const QString& base : QIcon::themeSearchPaths())
        if (QFileInfo::exists(base + QLatin1String("/hicolor/scalable/apps/") + name +
                              QLatin1String(".svg")))
            return name;
    return QString();
}

// hicolor holds applications' own icons, not symbolic sets or actions, and lists hundreds of
// folders: searching it for a symbol costs milliseconds and finds nothing.
bool isSymbolTheme(const QString& theme) {
    return !theme.isEmpty() && theme != QLatin1String("hicolor");
}

// A theme's folders as its index.theme lists them, each with its icon size. Read once per theme
// folder, with a few lines of its own: QSettings would keep the whole parsed file in its cache for
// the life of the process.
QList<std::pair<QString, int>> themeFolders(const QString& root) {
    static QHash<QString, QList<std::pair<QString, int>>> read;
    if (const auto known = read.constFind(root); known != read.constEnd())
        return *known;
    QStringList folders;
    QHash<QString, int> sizes;
    QFile file(root + QLatin1String("/index.theme"));
    QString group;
    if (file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        for (const QByteArray& rawLine : file.readAll().split('\n')) {
            const QString line = QString::fromUtf8(rawLine).trimmed();
            if (line.startsWith('[') && line.endsWith(']')) {
                group = line.mid(1, line.size() - 2);
                continue;
            }
            const qsizetype equals = line.indexOf('=');
            if (equals < 0)
                continue;
            const QString key = line.left(equals).trimmed(), value = line.mid(equals + 1).trimmed();
            if (group == QLatin1String("Icon Theme") && key == QLatin1String("Directories"))
                folders = value.split(',', Qt::SkipEmptyParts);
            else if (key == QLatin1String("Size"))
                sizes.insert(group, value.toInt());
        }
    }
    QList<std::pair<QString, int>> listed;
    for (const QString& folder : folders)
        listed.append({folder, sizes.value(folder)});
    return *read.insert(root, listed);
}

// A theme's symbolic icon as GTK's pre-rendered "<name>.symbolic.png" files in its fixed-size
// folders (Adwaita ships all its symbolic icons so, besides the SVGs): they need no SVG support,
// and their alpha is the shape. Looked for in the desktop's theme, then in the fallback theme.
QList<std::pair<QString, int>> prerenderedSymbolicFiles(const QString& name) {
    for (const QString& theme : {QIcon::themeName(), QIcon::fallbackThemeName()}) {
        if (!isSymbolTheme(theme))
            continue;
        for (const QString& base : QIcon::themeSearchPaths()) {
            const QString root = base + '/' + theme;
            if (!QFileInfo::exists(root + QLatin1String("/index.theme")))
                continue;
            QList<std::pair<QString, int>> files;
            for (const auto& [folder, size] : themeFolders(root))
                if (const QString file =
                        root + '/' + folder + '/' + name + QLatin1String(".symbolic.png");
                    QFileInfo::exists(file))
                    files.append({file, size});
            if (!files.isEmpty())
                return files;
        }
    }
    return {};
}

// The freedesktop symbolic icon name used for a symbol, or an empty text for an unknown symbol.
QString themeIconName(const QString& symbol) {
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
        {"paperclip", "mail-attachment-symbolic"},
    };
    return names.value(symbol);
}

SymbolShape lookUpSymbolShape(const QString& symbol) {
    if (symbol == QLatin1String("doc.badge.plus"))
        return {bundledMark(), installedMarkName()};
    const QString symbolic = themeIconName(symbol);
    if (symbolic.isEmpty())
        return {};
    // The pre-rendered shapes first: found with a look at one theme's index.
    if (const QList<std::pair<QString, int>> files = prerenderedSymbolicFiles(symbolic);
        !files.isEmpty())
        return {iconFromFiles(files), symbolic};
    if (!isSymbolTheme(QIcon::themeName()) && !isSymbolTheme(QIcon::fallbackThemeName()))
        return {};
    // Qt answers a name its theme lacks with a shorter one ("view-refresh" for
    // "view-refresh-symbolic"), a full-colour icon: only the exact name will do here.
    if (const QIcon shape = QIcon::fromTheme(symbolic); shape.name() == symbolic && !shape.isNull())
        return {shape, symbolic};
    // A theme without symbolic icons: its ordinary icon (the name without "-symbolic") rather
    // than none.
    const QIcon plain = QIcon::fromTheme(symbolic.section('-', 0, -2));
    return {plain, plain.name(), false};
}

// Each symbol is looked up once per themes and places: menus are rebuilt at every opening.
SymbolShape symbolShape(const QString& symbol) {
    static QHash<QString, SymbolShape> found;
    const QString key = QStringList{QIcon::themeName(), QIcon::fallbackThemeName(),
                                    QIcon::themeSearchPaths().join('\n'), symbol}
                            .join('\n');
    auto shape = found.constFind(key);
    if (shape == found.constEnd())
        shape = found.insert(key, lookUpSymbolShape(symbol));
    return *shape;
}

} // namespace

QIcon symbolImage(const QString& name) {
    return QIcon(new SymbolIconEngine(name));
}

QIcon statusItemIcon(const QColor& colour) {
    return QIcon(new SymbolIconEngine(QStringLiteral("doc.badge.plus"), colour));
}

QColor statusItemColour(const QList<QColor>& panel) {
    // Until the panel is seen, the grey GTK gives symbolic icons where it knows no colour. Then
    // a near-black or a near-white, by the panel's lightness where the mark leaves it showing
    // (the median of the samples, so that a neighbour's or the mark's own pixel does not decide).
    if (panel.isEmpty())
        return QColor(0xbe, 0xbe, 0xbe);
    QList<float> lightness;
    for (const QColor& colour : panel)
        lightness.append(0.2126f * colour.redF() + 0.7152f * colour.greenF() +
                         0.0722f * colour.blueF());
    std::sort(lightness.begin(), lightness.end());
    return lightness[lightness.size() / 2] > 0.5f ? QColor(0x2e, 0x34, 0x36)
                                                  : QColor(0xf6, 0xf5, 0xf4);
}

QIcon applicationIcon() {
    QList<std::pair<QString, int>> files;
    // Up to 128 pixels: the window manager is sent every size, and larger ones only cost. The
    // desktop's menus take the larger icons from the icon theme.
    for (int size : {16, 22, 24, 32, 48, 64, 128})
        files.append({QStringLiteral(":/icons/brindlemark-%1.png").arg(size), size});
    return iconFromFiles(files);
}

} // namespace brindlemark
