#pragma once

#include <QColor>
#include <QIcon>

namespace brindlemark {

// The symbol names the interface is described with ("doc.badge.plus", "terminal", ...) as
// monochrome icons drawn in the palette's window-text colour, like the text beside them: light in
// a dark palette, dimmed where the control is disabled, in the highlighted-text colour where it is
// selected, and following the palette when it changes. "doc.badge.plus" is Brindlemark's own mark,
// shipped with it as PNGs; the others are the desktop icon theme's symbolic icons (freedesktop
// names ending in "-symbolic", GTK's pre-rendered PNGs first). Where the theme has no symbolic
// form of one, its ordinary icon (the name without "-symbolic") stands in, in its own colours. An
// unknown name, or one the theme lacks altogether, gives a null icon, and the item then shows no
// image. The theme is looked up when the icon is first drawn or measured, and the icon is drawn
// at whatever size it is shown at.
QIcon symbolImage(const QString& name);

// The tray's icon: the mark in a light neutral grey for panels that show the application's own
// pixmap; where the mark is installed in the icon theme it also carries its theme name, so that
// panels that look icons up by name draw it in their own style.
// The tray's mark, a symbolic icon in `colour`.
QIcon statusItemIcon(const QColor& colour);
// The mark's colour on a panel of which these pixels show: dark on a light one, light on a dark
// one; a grey readable on both while nothing of the panel is known.
QColor statusItemColour(const QList<QColor>& panel);

// Brindlemark's full-colour icon, its identity on the desktop: the windows' icon.
QIcon applicationIcon();

} // namespace brindlemark
