#include "platform/Platform.h"

namespace brindlemark {

Platform::~Platform() = default;

} // namespace brindlemark
