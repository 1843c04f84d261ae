#include "app/ApplicationStyle.h"

#include <QFontMetrics>
#include <QIcon>
#include <QIconEngine>
#include <QPainter>
#include <QPointer>
#include <QStyleOption>
#include <QWidget>

#include <algorithm>
#include <cmath>

namespace brindlemark {

namespace {

// A style's standard icon, asked of the style only when it is first measured or drawn.
class DeferredStandardIconEngine final : public QIconEngine {
public:
    DeferredStandardIconEngine(QStyle* style, QStyle::StandardPixmap which)
        : m_style(style), m_which(which) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        icon().paint(painter, rect, Qt::AlignCenter, mode, state);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return icon().pixmap(size, mode, state);
    }
    QSize actualSize(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return icon().actualSize(size, mode, state);
    }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override {
        return icon().availableSizes(mode, state);
    }
    bool isNull() override { return icon().isNull(); }
    QString key() const override { return QStringLiteral("brindlemark.deferred"); }
    QIconEngine* clone() const override { return new DeferredStandardIconEngine(*this); }

private:
    const QIcon& icon() {
        if (!m_loaded && m_style) {
            m_icon = m_style->standardIcon(m_which);
            m_loaded = true;
        }
        return m_icon;
    }

    QPointer<QStyle> m_style;
    QStyle::StandardPixmap m_which;
    QIcon m_icon;
    bool m_loaded = false;
};

} // namespace

void ApplicationStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option,
                                     QPainter* painter, const QWidget* widget) const {
    QProxyStyle::drawPrimitive(element, option, painter, widget);
    if (element != PE_IndicatorItemViewItemCheck)
        return;
    QColor border = option->palette.color(QPalette::Text);
    border.setAlphaF(0.55f);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing, false);
    painter->setPen(border);
    painter->setBrush(Qt::NoBrush);
    painter->drawRect(option->rect.adjusted(0, 0, -1, -1));
    painter->restore();
}

ApplicationStyle::ButtonLabel ApplicationStyle::buttonLabel(const QRect& rect,
                                                            const QSize& iconSize,
                                                            const QString& text, QFont font) {
    const QRect room = rect.adjusted(ButtonPadding, 0, -ButtonPadding, 0);
    const int symbol = iconSize.isEmpty() ? 0 : iconSize.width() + SymbolGap;
    // Widths in whole pixels, rounded up: a title that is a fraction wider than its place would be
    // shortened with an ellipsis.
    const auto advance = [&] {
        return int(std::ceil(QFontMetricsF(font).horizontalAdvance(text)));
    };
    int width = advance();
    // First a little narrower (the font engine stretches a face that has no condensed form),
    // then smaller: pixel sizes one by one, point sizes by half a point, down to the smallest
    // legible size.
    for (int stretch = 95; symbol + width > room.width() && stretch >= 85; stretch -= 5) {
        font.setStretch(stretch);
        width = advance();
    }
    while (symbol + width > room.width()) {
        const bool pixels = font.pixelSize() > 0;
        const qreal size = pixels ? font.pixelSize() : font.pointSizeF();
        if (size <= SmallestTitleSize)
            break;
        pixels ? font.setPixelSize(int(size) - 1) : font.setPointSizeF(size - 0.5);
        width = advance();
    }
    width = std::min(width, room.width() - symbol);
    const int left = room.left() + std::max(0, (room.width() - symbol - width) / 2);
    ButtonLabel label;
    if (symbol > 0)
        label.icon = QRect(QPoint(left, rect.center().y() - iconSize.height() / 2 + 1), iconSize);
    label.text = QRect(left + symbol, rect.top(), width, rect.height());
    label.font = font;
    return label;
}

void ApplicationStyle::drawControl(ControlElement element, const QStyleOption* option,
                                   QPainter* painter, const QWidget* widget) const {
    const auto* button = qstyleoption_cast<const QStyleOptionButton*>(option);
    if (element != CE_PushButtonLabel || !button || button->text.isEmpty() ||
        button->features.testFlag(QStyleOptionButton::HasMenu)) {
        QProxyStyle::drawControl(element, option, painter, widget);
        return;
    }
    // Laid out in the whole button, not in the style's contents rectangle, whose margins would
    // leave a fixed-width button's title less room than the button has.
    QRect rect = widget ? widget->rect() : button->rect;
    if (button->state & (State_On | State_Sunken)) // pressed in, as the style draws it
        rect.translate(proxy()->pixelMetric(PM_ButtonShiftHorizontal, option, widget),
                       proxy()->pixelMetric(PM_ButtonShiftVertical, option, widget));
    const ButtonLabel label = buttonLabel(rect, button->icon.isNull() ? QSize() : button->iconSize,
                                          button->text, widget ? widget->font() : painter->font());
    const bool enabled = button->state & State_Enabled;
    if (!label.icon.isNull()) {
        const QIcon::Mode mode = !enabled                         ? QIcon::Disabled
                                 : button->state & State_HasFocus ? QIcon::Active
                                                                  : QIcon::Normal;
        button->icon.paint(painter, label.icon, Qt::AlignCenter, mode,
                           button->state & State_On ? QIcon::On : QIcon::Off);
    }
    painter->save();
    painter->setFont(label.font);
    const QString shown =
        QFontMetrics(label.font).elidedText(button->text, Qt::ElideMiddle, label.text.width());
    proxy()->drawItemText(painter, label.text,
                          Qt::AlignLeft | Qt::AlignVCenter | Qt::TextShowMnemonic, button->palette,
                          enabled, shown, QPalette::ButtonText);
    painter->restore();
}

QIcon ApplicationStyle::standardIcon(StandardPixmap standardIcon, const QStyleOption* option,
                                     const QWidget* widget) const {
    if (standardIcon == SP_ToolBarHorizontalExtensionButton && !option)
        return QIcon(new DeferredStandardIconEngine(baseStyle(), standardIcon));
    return QProxyStyle::standardIcon(standardIcon, option, widget);
}

} // namespace brindlemark
