// The main window shows the controller's state and refuses to close while a
// scan runs.
#include "app/MainWindow.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>

#include "app/AboutWindowController.h"
#include "app/AppDelegate.h"
#include "app/LogViewer.h"
#include "tests/app/FakePlatform.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::app {
namespace {

QPushButton* button(QWidget& w, const QString& text) {
    for (auto* b : w.findChildren<QPushButton*>())
        if (b->text() == text) return b;
    return nullptr;
}

bool showsStatus(QWidget& w, const std::string& text) {
    for (auto* l : w.findChildren<QLabel*>())
        if (l->text().toStdString() == text) return true;
    return false;
}

TEST(MainWindow, FollowsTheStateAndRefusesToCloseWhileScanning) {
    fixtures::TempDir config, data;
    testing::FakePlatform platform;
    AppDelegate delegate(platform, config.path(), "");
    LogViewer viewer(delegate);
    AboutWindowController about;
    MainWindow window(delegate, viewer, about);
    window.setFirstUseNoteAllowed(false);
    delegate.applicationDidFinishLaunching();
    window.show();

    ASSERT_NE(button(window, "Start"), nullptr);
    EXPECT_FALSE(button(window, "Start")->isEnabled());
    EXPECT_FALSE(button(window, "Reset")->isEnabled());
    EXPECT_TRUE(showsStatus(window, "Drag Files or Folders to the Target"));

    data.write("music/a.flac", std::string("x"));
    delegate.logPathSelected(data.path() + "/log.txt");
    ASSERT_TRUE(delegate.dropPaths({data.path() + "/music"}));
    testing::turn();
    EXPECT_TRUE(button(window, "Start")->isEnabled());
    EXPECT_TRUE(button(window, "Reset")->isEnabled());
    EXPECT_TRUE(showsStatus(window, "1 folder selected"));

    button(window, "Start")->click();
    ASSERT_NE(button(window, "Cancel"), nullptr);
    EXPECT_FALSE(button(window, "View Log")->isEnabled());
    EXPECT_FALSE(window.close());
    EXPECT_TRUE(window.isVisible());
    ASSERT_TRUE(testing::spinUntil([&] { return !delegate.running(); }));
    EXPECT_EQ(delegate.statusText().rfind("1 file scanned. ", 0), 0u);
    EXPECT_TRUE(showsStatus(window, delegate.statusText()));
    EXPECT_TRUE(button(window, "View Log")->isEnabled());
    EXPECT_NE(button(window, "Start"), nullptr);
}

}  // namespace
}  // namespace sondrel::app
