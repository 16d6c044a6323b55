#pragma once
#include <QPoint>
#include <QRect>
#include <QSize>

namespace sondrel::app {

// Keeps a window inside the screen's available area: an origin that would put
// an edge outside is shifted back so that the edge lies on the area's edge.
// A window larger than the area keeps its left or top edge on the area's.
class ScreenClamp {
  public:
    static QPoint clampOrigin(QPoint origin, QSize size, const QRect& available);
    // The origin a drag gives: the window's origin plus the mouse's travel.
    static QPoint dragOrigin(QPoint windowOrigin, QPoint pressInWindow, QPoint mouseGlobal);
};

}  // namespace sondrel::app
