// Keeping the borderless window inside the screen's available area.
#include "app/ScreenClamp.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QScreen>

#include "app/WindowWithNoTitlebar.h"

namespace sondrel::app {
namespace {

TEST(ScreenClamp, EdgesStopAtTheAvailableAreaAndDragFollowsTheMouse) {
    const QRect area(0, 30, 1000, 700);  // a panel takes the top 30 pixels
    const QSize size(400, 200);
    EXPECT_EQ(ScreenClamp::clampOrigin({100, 100}, size, area), QPoint(100, 100));
    EXPECT_EQ(ScreenClamp::clampOrigin({-50, 600}, size, area), QPoint(0, 530));
    EXPECT_EQ(ScreenClamp::clampOrigin({2000, -2000}, size, area), QPoint(600, 30));
    // Exactly at the edges is inside.
    EXPECT_EQ(ScreenClamp::clampOrigin({600, 530}, size, area), QPoint(600, 530));
    // Larger than the area: the left and top edges stay visible.
    EXPECT_EQ(ScreenClamp::clampOrigin({300, 300}, QSize(1200, 900), area), QPoint(0, 30));
    // A second screen to the left of the first (negative coordinates).
    EXPECT_EQ(ScreenClamp::clampOrigin({-100, 0}, size, QRect(-1280, 0, 1280, 1024)), QPoint(-400, 0));
    // Pressed at (10, 5) in a window at (100, 100); the mouse is now at (250, 80).
    EXPECT_EQ(ScreenClamp::dragOrigin({100, 100}, {10, 5}, {250, 80}), QPoint(240, 75));
}

TEST(ScreenClamp, WindowIsPlacedInsideTheScreen) {
    QScreen* screen = QGuiApplication::primaryScreen();
    ASSERT_NE(screen, nullptr);
    const QRect area = screen->availableGeometry();
    WindowWithNoTitlebar window;
    window.setFrame(QRect(area.right() + 500, area.bottom() + 500, 300, 200));
    EXPECT_EQ(window.geometry(),
              QRect(area.x() + area.width() - 300, area.y() + area.height() - 200, 300, 200));
    EXPECT_TRUE(window.windowFlags() & Qt::FramelessWindowHint);
}

}  // namespace
}  // namespace sondrel::app
