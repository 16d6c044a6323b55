#pragma once
// The background of the borderless windows: a rounded panel (corner radius
// 10) in a light grey, or in the window colour when asked, with the corners
// left clear.
#include <QWidget>

namespace sondrel::app {

class RoundedView : public QWidget {
    Q_OBJECT

  public:
    static constexpr qreal kRadius = 10.0;
    static constexpr qreal kGrey = 0.722;

    explicit RoundedView(QWidget* parent = nullptr);
    bool useWindowColour() const { return useWindowColour_; }
    void setUseWindowColour(bool on);
    QColor fillColour() const;

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    bool useWindowColour_ = false;
};

}  // namespace sondrel::app
