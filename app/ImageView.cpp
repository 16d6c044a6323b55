#include "app/ImageView.h"

#include <QDragEnterEvent>
#include <QMimeData>
#include <QPainter>
#include <QUrl>

#include "app/AppDelegate.h"

namespace sondrel::app {

ImageView::ImageView(AppDelegate& delegate, QWidget* parent) : QWidget(parent), delegate_(delegate) {
    setAcceptDrops(true);
    setMinimumSize(120, 120);
    setToolTip("Drop files and folders here");
}

// A target: alternating red and white rings around a red centre.
void ImageView::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const qreal side = std::min(width(), height()) - 8.0;
    const QPointF centre = QRectF(rect()).center();
    const QColor red(200, 30, 40), white(250, 250, 250);
    if (highlighted_) {
        p.setPen(QPen(QColor(40, 110, 220), 4));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(centre, side / 2 + 2, side / 2 + 2);
    }
    p.setPen(QPen(QColor(90, 90, 90), 1));
    const int rings = 5;
    for (int i = 0; i < rings; ++i) {
        const qreal r = side / 2 * (rings - i) / rings;
        p.setBrush(i % 2 == 0 ? red : white);
        p.drawEllipse(centre, r, r);
    }
}

// Any drag that offers some operation is welcomed, shown as a copy.
void ImageView::dragEnterEvent(QDragEnterEvent* event) {
    if (event->possibleActions() == Qt::IgnoreAction) return event->ignore();
    event->setDropAction(Qt::CopyAction);
    event->accept();
    highlighted_ = true;
    update();
}

void ImageView::dragMoveEvent(QDragMoveEvent* event) {
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void ImageView::dragLeaveEvent(QDragLeaveEvent*) {
    highlighted_ = false;
    update();
}

void ImageView::dropEvent(QDropEvent* event) {
    highlighted_ = false;
    update();
    // Only the list of file names counts; text or other data in the drag is ignored.
    if (!dropUrls(event->mimeData()->urls())) return event->ignore();
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

}  // namespace sondrel::app

namespace sondrel::app {

bool ImageView::dropUrls(const QList<QUrl>& urls) {
    std::vector<std::string> paths;
    for (const QUrl& url : urls)
        if (url.isLocalFile()) paths.push_back(url.toLocalFile().toStdString());
    return delegate_.dropPaths(paths);
}

}  // namespace sondrel::app
