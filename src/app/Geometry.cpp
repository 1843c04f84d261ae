#include "app/Geometry.h"

namespace brindlemark {

QRect frameInParent(int x, int y, int width, int height, int parentHeight) {
    return QRect(x, parentHeight - y - height, width, height);
}

} // namespace brindlemark
