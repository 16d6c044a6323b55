// The log viewer's pending text and font-size rules, on their own and in the window.
#include "app/LogViewer.h"

#include <gtest/gtest.h>

#include <QPlainTextEdit>
#include <QScrollBar>

#include "tests/app/FakePlatform.h"

namespace sondrel::app {
namespace {

TEST(LogViewer, PendingTextAndFontSizeRules) {
    testing::Desktop d;
    std::vector<QString> applied;
    LogViewerState state(d.delegate, [&](const QString& t) { applied.push_back(t); });
    state.setContents("first");
    state.setContents("second");  // the last text before loading wins
    EXPECT_TRUE(applied.empty());
    EXPECT_TRUE(state.windowDidLoad());
    EXPECT_FALSE(state.windowDidLoad());  // the set-up runs once
    state.setContents("third");
    EXPECT_EQ(applied, (std::vector<QString>{"second", "third"}));
    EXPECT_FALSE(state.pendingContent());

    // Smaller stops at 9 (a size already below stays), Bigger has no limit.
    const struct {
        int stored;
        int (LogViewerState::*step)();
        int expected;
    } rows[] = {{10, &LogViewerState::smaller, 9},
                {9, &LogViewerState::smaller, 9},
                {9, &LogViewerState::bigger, 10},
                {5, &LogViewerState::smaller, 5},
                {400, &LogViewerState::bigger, 401}};
    for (const auto& r : rows) {
        d.delegate.storeInteger("LogFixedFontSize", r.stored);
        EXPECT_EQ((state.*r.step)(), r.expected) << r.stored;
        EXPECT_EQ(d.stored().intFromKey("LogFixedFontSize"), r.expected) << r.stored;
    }
}

TEST(LogViewer, WindowShowsTheLogFromItsStartAndDropsItOnClose) {
    testing::Desktop d;
    LogViewer& viewer = d.viewer;
    QPlainTextEdit* view = viewer.textView();
    QString text;
    for (int i = 0; i < 500; ++i) text += QString("    %1  Tag: line\n").arg(i, 12, 10, QChar('0'));
    viewer.setContents(text);
    EXPECT_TRUE(view->toPlainText().isEmpty());  // not loaded yet
    viewer.showWindow();
    EXPECT_TRUE(d.delegate.logViewerRunning());
    EXPECT_EQ(view->toPlainText().toStdString(), text.toStdString());
    EXPECT_TRUE(view->isReadOnly() && QFontInfo(view->font()).fixedPitch());
    EXPECT_EQ(view->verticalScrollBar()->value(), 0);

    // A heading wider than the window still shows its file name, wrapped.
    const QString heading = QString("/folder").repeated(40) + "/Long file name.flac";
    viewer.setContents(heading + "\n    1  Tag: line\n");
    QCoreApplication::processEvents();
    QTextCursor end(view->document());
    end.setPosition(int(heading.size()));
    EXPECT_LE(view->cursorRect(end).right(), view->viewport()->width());
    EXPECT_EQ(view->horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(view->toPlainText(), heading + "\n    1  Tag: line\n");

    const int size = view->font().pointSize();
    viewer.bigger();
    EXPECT_EQ(view->font().pointSize(), size + 1);
    viewer.closeWindow();
    EXPECT_FALSE(d.delegate.logViewerRunning());
    EXPECT_TRUE(view->toPlainText().isEmpty());
    EXPECT_FALSE(d.stored().stringFromKey(LogViewer::kFrameKey).empty());
}

}  // namespace
}  // namespace sondrel::app
