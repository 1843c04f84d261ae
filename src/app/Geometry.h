#pragma once

#include <QRect>

namespace brindlemark {

// Window layouts are written as (x, y, width, height) with the origin at the bottom left of the
// parent and y growing upwards; Qt places children from the top left. This is the one place
// that converts between the two.
QRect frameInParent(int x, int y, int width, int height, int parentHeight);

} // namespace brindlemark
