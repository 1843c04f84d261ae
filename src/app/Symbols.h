#pragma once

#include <QFont>
#include <QIcon>

namespace brindlemark {

// The symbol names the interface is described with ("doc.badge.plus", "terminal", ...) as
// monochrome icons drawn in the palette's text colour, like the text beside them: light in a
// dark palette, dimmed where the control is disabled, and following the palette when it
// changes. "doc.badge.plus" is Brindlemark's own mark, shipped with it; the others are the
// desktop icon theme's symbolic icons (freedesktop names ending in "-symbolic"). Where the
// theme has no symbolic form of one, its ordinary icon of that name stands in, in its own
// colours. An unknown name, or one the theme lacks altogether, gives a null icon, and the item
// then shows no image. The icons scale to the size they are drawn at, so the point size and
// weight only matter where a pixmap is made.
QIcon symbolImage(const QString& name, qreal pointSize = 14, QFont::Weight weight = QFont::Normal);

// The freedesktop symbolic icon name used for a symbol, or an empty text for an unknown symbol.
QString themeIconName(const QString& symbol);

// The tray's icon: the mark in a light neutral grey for panels that show the application's own
// pixmap; where the mark is installed in the icon theme it also carries its theme name, so that
// panels that look icons up by name draw it in their own style.
QIcon statusItemIcon();

// Brindlemark's full-colour icon, its identity on the desktop: the windows' icon.
QIcon applicationIcon();

} // namespace brindlemark
