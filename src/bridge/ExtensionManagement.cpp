#include "bridge/ExtensionManagement.h"

#include <QList>

namespace brindlemark {

ExtensionState extensionStateFromListing(const QString& listing, const QString& identifier) {
    if (!listing.contains(identifier))
        return ExtensionState::NotRegistered;
    // Line by line: a registration whose identifier holds "+    " and ours (the registry tool shows
    // a line break in it escaped) must not pass for our extension's elected line.
    for (const QStringView line : QStringView(listing).split(u'\n')) {
        for (const QLatin1String marker : {QLatin1String("+    "), QLatin1String("+\t")}) {
            if (!line.startsWith(marker) || !line.mid(marker.size()).startsWith(identifier))
                continue;
            const QStringView rest = line.mid(marker.size() + identifier.size());
            if (rest.isEmpty() || rest.startsWith(u'('))
                return ExtensionState::Enabled;
        }
    }
    return ExtensionState::Registered;
}

QString extensionMenuTitle(ExtensionState state) {
    switch (state) {
    case ExtensionState::Enabled:
        return QStringLiteral("Finder Extension: Enabled");
    case ExtensionState::Registered:
        return QStringLiteral("Finder Extension: Registered");
    case ExtensionState::NotRegistered:
        break;
    }
    return QStringLiteral("Finder Extension: Not Registered");
}

QString extensionStateText(ExtensionState state) {
    switch (state) {
    case ExtensionState::Enabled:
        return QStringLiteral("Enabled");
    case ExtensionState::Registered:
        return QStringLiteral("Registered");
    case ExtensionState::NotRegistered:
        break;
    }
    return QStringLiteral("Not registered");
}

} // namespace brindlemark
