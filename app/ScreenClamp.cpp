#include "app/ScreenClamp.h"

namespace sondrel::app {

QPoint ScreenClamp::clampOrigin(QPoint origin, QSize size, const QRect& available) {
    int x = origin.x(), y = origin.y();
    // Right and bottom first, so that a window wider or taller than the area
    // ends with its left and top edges visible.
    if (x + size.width() > available.x() + available.width())
        x = available.x() + available.width() - size.width();
    if (x < available.x()) x = available.x();
    if (y + size.height() > available.y() + available.height())
        y = available.y() + available.height() - size.height();
    if (y < available.y()) y = available.y();
    return {x, y};
}

QPoint ScreenClamp::dragOrigin(QPoint windowOrigin, QPoint pressInWindow, QPoint mouseGlobal) {
    // The mouse's position in the window stays where it was pressed.
    const QPoint mouseInWindow = mouseGlobal - windowOrigin;
    return windowOrigin + (mouseInWindow - pressInWindow);
}

}  // namespace sondrel::app
