// The application's platform on macOS; apart from the other sources of this folder so that they
// also build, for their tests, beside another system's platform.
#include "platform/macos/MacPlatform.h"

namespace brindlemark {

std::unique_ptr<Platform> createPlatform() {
    return std::make_unique<MacPlatform>();
}

} // namespace brindlemark
