#include "app/Launcher.h"

int main(int argc, char** argv) {
    return brindlemark::runBrindlemark(argc, argv);
}
