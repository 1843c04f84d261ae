#pragma once

class QApplication;

namespace brindlemark {

// Brindlemark's own settings of the application object: its names, style, icon and icon theme.
void setUpApplication(QApplication& application);

// Runs Brindlemark as a tray (accessory) application until the user quits it.
int runBrindlemark(int argc, char** argv);

} // namespace brindlemark
