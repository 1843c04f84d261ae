#pragma once

#include <QObject>
#include <QStringList>
#include <QUrl>

#include <functional>

namespace brindlemark {

// Receives the brindlemark URLs that the system sends the running application, as Qt hands
// them on: to the URL handler registered for the scheme, or, in Qt versions that have none for
// it, as a file-open event to the application object. Each URL is delivered alone, as a list
// of one. Qt has parsed the URL on the way (lower-casing its host), and it is passed on fully
// encoded, so that what the query held stays as it was.
class UrlReceiver final : public QObject {
    Q_OBJECT
public:
    explicit UrlReceiver(std::function<void(const QStringList&)> deliver);
    ~UrlReceiver() override;

    bool eventFilter(QObject* watched, QEvent* event) override;

public slots:
    void openUrl(const QUrl& url); // QDesktopServices calls it by this name

private:
    bool deliverIfOurs(const QUrl& url);

    std::function<void(const QStringList&)> m_deliver;
};

} // namespace brindlemark
