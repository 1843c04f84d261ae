#pragma once

// Which arguments of a launch are URLs to handle, in plain C++ for the Qt-free launcher too:
// every argument that is not an option (options start with "-", as Qt's own do).

namespace brindlemark {

inline bool isUrlArgument(const char* argument) { return argument[0] != '-'; }

} // namespace brindlemark
