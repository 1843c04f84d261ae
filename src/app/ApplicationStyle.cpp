#include "app/ApplicationStyle.h"

#include <QIconEngine>
#include <QPainter>
#include <QPointer>
#include <QStyleOption>

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

QIcon ApplicationStyle::standardIcon(StandardPixmap standardIcon, const QStyleOption* option,
                                     const QWidget* widget) const {
    if (standardIcon == SP_ToolBarHorizontalExtensionButton && !option)
        return QIcon(new DeferredStandardIconEngine(baseStyle(), standardIcon));
    return QProxyStyle::standardIcon(standardIcon, option, widget);
}

} // namespace brindlemark
