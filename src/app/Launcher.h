#pragma once

namespace brindlemark {

// Runs Brindlemark as a tray (accessory) application until the user quits it.
int runBrindlemark(int argc, char** argv);

} // namespace brindlemark
