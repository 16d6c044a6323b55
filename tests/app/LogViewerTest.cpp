// The log viewer's pending text and font-size rules, on their own and in the window.
#include "app/LogViewer.h"

#include <gtest/gtest.h>

#include <QPlainTextEdit>
#include <QScrollBar>

#include "app/AppDelegate.h"
#include "tests/app/FakePlatform.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::app {
namespace {

class LogViewerTest : public ::testing::Test {
  protected:
    LogViewerTest() : delegate(platform, config.path(), "") {}
    int storedSize() { return int(Settings::load(config.path()).intFromKey("LogFixedFontSize")); }

    fixtures::TempDir config;
    testing::FakePlatform platform;
    AppDelegate delegate;
};

TEST_F(LogViewerTest, PendingTextAndFontSizeRules) {
    std::vector<QString> applied;
    LogViewerState state(delegate, [&](const QString& t) { applied.push_back(t); });
    state.setContents("first");
    state.setContents("second");  // the last text before loading wins
    EXPECT_TRUE(applied.empty());
    EXPECT_TRUE(state.windowDidLoad());
    EXPECT_FALSE(state.windowDidLoad());  // the set-up runs once
    EXPECT_FALSE(state.pendingContent());
    state.setContents("third");
    EXPECT_EQ(applied, (std::vector<QString>{"second", "third"}));
    EXPECT_FALSE(state.pendingContent());

    // Smaller stops at 9 (a size already below stays), Bigger has no limit.
    EXPECT_EQ(state.fontSize(), 12);  // the shipped default
    delegate.storeInteger("LogFixedFontSize", 10);
    EXPECT_EQ(state.smaller(), 9);
    EXPECT_EQ(state.smaller(), 9);
    EXPECT_EQ(storedSize(), 9);
    EXPECT_EQ(state.bigger(), 10);
    EXPECT_EQ(storedSize(), 10);
    delegate.storeInteger("LogFixedFontSize", 5);
    EXPECT_EQ(state.smaller(), 5);
    delegate.storeInteger("LogFixedFontSize", 400);
    EXPECT_EQ(state.bigger(), 401);
}

TEST_F(LogViewerTest, WindowShowsTheLogFromItsStartAndDropsItOnClose) {
    LogViewer viewer(delegate);
    QString text;
    for (int i = 0; i < 500; ++i) text += QString("    %1  Tag: line\n").arg(i, 12, 10, QChar('0'));
    viewer.setContents(text);
    EXPECT_TRUE(viewer.textView()->toPlainText().isEmpty());  // not loaded yet
    viewer.showWindow();
    EXPECT_TRUE(delegate.logViewerRunning());
    EXPECT_EQ(viewer.textView()->toPlainText().toStdString(), text.toStdString());
    EXPECT_TRUE(viewer.textView()->isReadOnly());
    EXPECT_TRUE(viewer.textView()->font().fixedPitch() ||
                viewer.textView()->font().styleHint() == QFont::TypeWriter ||
                QFontInfo(viewer.textView()->font()).fixedPitch());
    EXPECT_EQ(viewer.textView()->font().pointSize(), 12);
    EXPECT_EQ(viewer.textView()->verticalScrollBar()->value(), 0);

    // A heading wider than the window still shows its file name, wrapped.
    const QString heading = QString("/folder").repeated(40) + "/Long file name.flac";
    viewer.setContents(heading + "\n    1  Tag: line\n");
    QCoreApplication::processEvents();
    QTextCursor end(viewer.textView()->document());
    end.setPosition(int(heading.size()));
    EXPECT_LE(viewer.textView()->cursorRect(end).right(), viewer.textView()->viewport()->width());
    EXPECT_EQ(viewer.textView()->horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(viewer.textView()->toPlainText(), heading + "\n    1  Tag: line\n");

    viewer.bigger();
    EXPECT_EQ(viewer.textView()->font().pointSize(), 13);
    viewer.closeWindow();
    EXPECT_FALSE(delegate.logViewerRunning());
    EXPECT_TRUE(viewer.textView()->toPlainText().isEmpty());
    EXPECT_FALSE(Settings::load(config.path()).stringFromKey(LogViewer::kFrameKey).empty());
}

}  // namespace
}  // namespace sondrel::app
