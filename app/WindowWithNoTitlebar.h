#pragma once
// A borderless, non-opaque top-level window that is moved by dragging its
// background and never leaves the main screen's available area.
#include <QPoint>
#include <QWidget>

namespace sondrel::app {

class RoundedView;

class WindowWithNoTitlebar : public QWidget {
    Q_OBJECT

  public:
    explicit WindowWithNoTitlebar(QWidget* parent = nullptr);

    // The rounded panel filling the window; controls go on it.
    RoundedView* contentView() const { return content_; }
    bool useWindowColour() const;
    void setUseWindowColour(bool on);
    // Places the window, clamped to the available area first.
    void setFrame(const QRect& frame);

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

  private:
    QRect availableArea() const;
    RoundedView* content_;
    QPoint initLocation_;  // where the last left press happened, in window coordinates
    bool dragging_ = false;
};

}  // namespace sondrel::app
