#include "platform/macos/UrlReceiver.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QFileOpenEvent>

namespace brindlemark {

namespace {
const QString Scheme = QStringLiteral("brindlemark");
}

UrlReceiver::UrlReceiver(std::function<void(const QStringList&)> deliver)
    : m_deliver(std::move(deliver)) {
    QDesktopServices::setUrlHandler(Scheme, this, "openUrl");
    if (QCoreApplication* application = QCoreApplication::instance())
        application->installEventFilter(this);
}

UrlReceiver::~UrlReceiver() {
    QDesktopServices::unsetUrlHandler(Scheme);
}

bool UrlReceiver::eventFilter(QObject* watched, QEvent* event) {
    // Files opened with the application are not ours: they go on to whoever wants them.
    if (event->type() == QEvent::FileOpen && watched == QCoreApplication::instance())
        return deliverIfOurs(static_cast<QFileOpenEvent*>(event)->url());
    return false;
}

void UrlReceiver::openUrl(const QUrl& url) {
    deliverIfOurs(url);
}

bool UrlReceiver::deliverIfOurs(const QUrl& url) {
    if (url.scheme() != Scheme)
        return false;
    m_deliver({url.toString(QUrl::FullyEncoded)});
    return true;
}

} // namespace brindlemark
