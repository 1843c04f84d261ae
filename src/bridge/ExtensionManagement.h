#pragma once

#include <QString>

namespace brindlemark {

// The plug-in registry protocol the file-manager extension is registered under.
inline const QString FileManagerExtensionProtocol = QStringLiteral("com.apple.FinderSync");
inline const QString ExtensionBundleName = QStringLiteral("BrindlemarkFinderSync.appex");

enum class ExtensionState { NotRegistered, Registered, Enabled };

// Read from the registry's listing by plain, case-sensitive substring searches: registered when
// the identifier appears anywhere, enabled when it follows "+" and four blanks or "+" and a tab.
ExtensionState extensionStateFromListing(const QString& listing, const QString& identifier);

QString extensionMenuTitle(ExtensionState state); // "Finder Extension: Enabled", ...
QString extensionStateText(ExtensionState state); // "Enabled", "Registered", "Not registered"

} // namespace brindlemark
