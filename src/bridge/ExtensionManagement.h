#pragma once

#include <QString>

namespace brindlemark {

// The plug-in registry protocol the file-manager extension is registered under.
inline const QString FileManagerExtensionProtocol = QStringLiteral("com.apple.FinderSync");
inline const QString ExtensionBundleName = QStringLiteral("BrindlemarkFinderSync.appex");

enum class ExtensionState { NotRegistered, Registered, Enabled };

// Read from the registry's listing, case-sensitively: registered when the identifier appears
// anywhere, enabled when a line starts with "+" and four blanks or "+" and a tab, then the whole
// identifier (followed by its version in parentheses, or by the line's end).
ExtensionState extensionStateFromListing(const QString& listing, const QString& identifier);

QString extensionMenuTitle(ExtensionState state); // "Finder Extension: Enabled", ...
QString extensionStateText(ExtensionState state); // "Enabled", "Registered", "Not registered"

} // namespace brindlemark
