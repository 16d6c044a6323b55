#pragma once
// The drop target: a target image that accepts files and folders dragged from
// a file manager and hands their paths to the controller, which keeps what it
// can scan (or beeps and refuses the drop).
#include <QWidget>

namespace sondrel::app {

class AppDelegate;

class ImageView : public QWidget {
    Q_OBJECT

  public:
    explicit ImageView(AppDelegate& delegate, QWidget* parent = nullptr);
    QSize sizeHint() const override { return {150, 150}; }
    // A drop's URLs: the local file names go to the controller; false when it refused them.
    bool dropUrls(const QList<QUrl>& urls);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    AppDelegate& delegate_;
    bool highlighted_ = false;
};

}  // namespace sondrel::app
