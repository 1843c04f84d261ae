#pragma once

#include <QStringList>

namespace brindlemark {

// How long a tool may run before it is stopped. The tools Brindlemark runs end at once; the
// bound only keeps a tool that hangs from freezing the application.
inline constexpr int ToolTimeoutMilliseconds = 10'000;

// Runs the executable directly (no shell) with the arguments, each passed unchanged, waits for
// it and returns everything it wrote to standard output and standard error, merged in order.
// Output that is not UTF-8 gives "". A tool that cannot be started gives the reason, or
// "Command failed.". A tool still running after `timeoutMilliseconds` is killed, and the text
// is its output so far followed by a line saying it was stopped. Its standard input is empty.
QString runTool(const QString& path, const QStringList& arguments,
                int timeoutMilliseconds = ToolTimeoutMilliseconds);

} // namespace brindlemark
