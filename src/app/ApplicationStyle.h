#pragma once

#include <QProxyStyle>

namespace brindlemark {

// The application's style: the desktop's (or the one given with -style), with two changes.
//  - The check boxes of item views get a border in the text's colour at half strength: the
//    styles' own border all but vanishes on a dark base.
//  - The menu bar's overflow arrow is loaded when it is first drawn, which is never for a menu bar
//    as short as the window's: loading it at once would have Qt try every image plug-in on the
//    system to find out that a PNG is a PNG.
class ApplicationStyle final : public QProxyStyle {
public:
    using QProxyStyle::QProxyStyle;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget = nullptr) const override;
    QIcon standardIcon(StandardPixmap standardIcon, const QStyleOption* option = nullptr,
                       const QWidget* widget = nullptr) const override;
};

} // namespace brindlemark
