// Times the front-folder query against whatever runs on this display and session bus: the
// file managers of a real desktop, or none. Prints the folder found and the query's times.
//   front_folder_time [RUNS]
#include "platform/linux/FrontFolder.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 51;
    using namespace brindlemark::frontfolder;
    // As in the application, whose event loop runs: the bus connection delivers calls to this
    // process (a KWin script's answer) only once the event loop has started.
    sessionBusIfRunning();
    QCoreApplication::processEvents();
    std::vector<double> times;
    std::optional<QString> folder;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer clock;
        clock.start();
        // As a command asks: the bus looked up each time, the whole query under its deadline.
        folder = frontFolder(QCoreApplication::applicationPid(), sessionBusIfRunning());
        times.push_back(clock.nsecsElapsed() / 1e6);
    }
    const double first = times.front();
    std::sort(times.begin(), times.end());
    std::printf("folder: %s\nruns: %d  first: %.2f ms  median: %.2f ms  max: %.2f ms\n",
                folder ? qPrintable(*folder) : "(none)", runs, first, times[times.size() / 2],
                times.back());
    return 0;
}
