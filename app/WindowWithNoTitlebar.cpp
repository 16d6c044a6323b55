#include "app/WindowWithNoTitlebar.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainterPath>
#include <QScreen>

#include "app/RoundedView.h"
#include "app/ScreenClamp.h"

namespace sondrel::app {

WindowWithNoTitlebar::WindowWithNoTitlebar(QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint), content_(new RoundedView(this)) {
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowOpacity(1.0);
}

bool WindowWithNoTitlebar::useWindowColour() const {
    return content_->useWindowColour();
}

void WindowWithNoTitlebar::setUseWindowColour(bool on) {
    content_->setUseWindowColour(on);
}

QRect WindowWithNoTitlebar::availableArea() const {
    QScreen* s = QGuiApplication::primaryScreen();
    return s ? s->availableGeometry() : QRect();
}

void WindowWithNoTitlebar::setFrame(const QRect& frame) {
    const QRect area = availableArea();
    const QPoint origin =
        area.isValid() ? ScreenClamp::clampOrigin(frame.topLeft(), frame.size(), area) : frame.topLeft();
    setGeometry(QRect(origin, frame.size()));
}

// Presses and drags that no control took reach the window: its background.
void WindowWithNoTitlebar::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        initLocation_ = event->position().toPoint();
        dragging_ = true;
    }
    QWidget::mousePressEvent(event);
}

void WindowWithNoTitlebar::mouseMoveEvent(QMouseEvent* event) {
    if (!dragging_ || !(event->buttons() & Qt::LeftButton)) return QWidget::mouseMoveEvent(event);
    QPoint origin = ScreenClamp::dragOrigin(pos(), initLocation_, event->globalPosition().toPoint());
    const QRect area = availableArea();
    if (area.isValid()) origin = ScreenClamp::clampOrigin(origin, frameGeometry().size(), area);
    move(origin);
}

void WindowWithNoTitlebar::resizeEvent(QResizeEvent* event) {
    content_->setGeometry(rect());
    // Without a compositor a non-opaque window shows black where it should be
    // clear; the mask cuts the corners away on every screen.
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()), RoundedView::kRadius, RoundedView::kRadius);
    setMask(QRegion(path.toFillPolygon().toPolygon()));
    QWidget::resizeEvent(event);
}

}  // namespace sondrel::app
