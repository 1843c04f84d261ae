#pragma once

#include <QFont>
#include <QIcon>

namespace brindlemark {

// The symbol names the interface is described with ("doc.badge.plus", "terminal", ...) as
// icons: "doc.badge.plus" is Brindlemark's own icon, shipped with it; the others come from the
// desktop's icon theme (freedesktop names). An unknown name, or one the theme lacks, gives a
// null icon, and the item then shows no image. Qt icons scale to the size they are drawn at,
// so the point size and weight only matter where a pixmap is made.
QIcon symbolImage(const QString& name, qreal pointSize = 14, QFont::Weight weight = QFont::Normal);

// The freedesktop icon name used for a symbol, or an empty text for an unknown symbol.
QString themeIconName(const QString& symbol);

} // namespace brindlemark
