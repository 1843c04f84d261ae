#pragma once

#include <QFont>
#include <QProxyStyle>
#include <QRect>

namespace brindlemark {

// The application's style: the desktop's (or the one given with -style), with three changes.
//  - The check boxes of item views get a border in the text's colour at half strength: the
//    styles' own border all but vanishes on a dark base.
//  - The menu bar's overflow arrow is loaded when it is first drawn, which is never for a menu bar
//    as short as the window's: loading it at once would have Qt try every image plug-in on the
//    system to find out that a PNG is a PNG.
//  - A push button's symbol and title keep a gap between them and room to the button's edges:
//    the buttons have fixed frames, and where a title would not fit it is set a little narrower,
//    then smaller.
class ApplicationStyle final : public QProxyStyle {
public:
    using QProxyStyle::QProxyStyle;

    // Where a button's symbol and title go inside `rect`, and the title's font.
    struct ButtonLabel {
        QRect icon, text;
        QFont font;
    };
    static constexpr int ButtonPadding = 6, SymbolGap = 5, SmallestTitleSize = 10;
    static ButtonLabel buttonLabel(const QRect& rect, const QSize& iconSize, const QString& text,
                                   QFont font);

    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget = nullptr) const override;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget = nullptr) const override;
    QIcon standardIcon(StandardPixmap standardIcon, const QStyleOption* option = nullptr,
                       const QWidget* widget = nullptr) const override;
};

} // namespace brindlemark
