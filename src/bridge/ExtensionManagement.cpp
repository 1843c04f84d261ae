#include "bridge/ExtensionManagement.h"

namespace brindlemark {

ExtensionState extensionStateFromListing(const QString& listing, const QString& identifier)
{
    if (listing.contains(QStringLiteral("+    ") + identifier) || listing.contains(QStringLiteral("+\t") + identifier))
        return ExtensionState::Enabled;
    if (listing.contains(identifier))
        return ExtensionState::Registered;
    return ExtensionState::NotRegistered;
}

QString extensionMenuTitle(ExtensionState state)
{
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

QString extensionStateText(ExtensionState state)
{
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
