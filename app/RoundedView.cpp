#include "app/RoundedView.h"

#include <QPainter>
#include <QPainterPath>

namespace sondrel::app {

RoundedView::RoundedView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TranslucentBackground);
}

void RoundedView::setUseWindowColour(bool on) {
    useWindowColour_ = on;
    update();
}

QColor RoundedView::fillColour() const {
    return useWindowColour_ ? palette().color(QPalette::Window) : QColor::fromRgbF(kGrey, kGrey, kGrey, 1.0);
}

void RoundedView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setCompositionMode(QPainter::CompositionMode_Clear);
    p.fillRect(rect(), Qt::transparent);
    p.setCompositionMode(QPainter::CompositionMode_SourceOver);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()), kRadius, kRadius);
    p.fillPath(path, fillColour());
}

}  // namespace sondrel::app
