// The smaller windows: the log viewer's pending text and font sizes, the
// options sheet's keys, alerts as message boxes, and the borderless window
// kept inside the screen.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QScreen>
#include <QScrollBar>
#include <QSpinBox>

#include <set>
#include <sstream>

#include "app/OptionsSheet.h"
#include "app/QtPlatform.h"
#include "app/ScreenClamp.h"
#include "core/BuildInfo.h"
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
    EXPECT_TRUE(state.windowDidLoad());  // the set-up runs once, and takes the text
    EXPECT_FALSE(state.windowDidLoad() || state.pendingContent());
    state.setContents("third");
    EXPECT_EQ(applied, (std::vector<QString>{"second", "third"}));

    // Smaller stops at 9 (a size already below stays), Bigger has no limit.
    const auto smaller = &LogViewerState::smaller, bigger = &LogViewerState::bigger;
    for (const auto& [stored, step, expected] : std::vector<std::tuple<int, decltype(smaller), int>>{
             {10, smaller, 9}, {9, smaller, 9}, {9, bigger, 10}, {5, smaller, 5}, {400, bigger, 401}}) {
        d.delegate.storeInteger("LogFixedFontSize", stored);
        EXPECT_EQ((state.*step)(), expected) << stored;
        EXPECT_EQ(d.stored().intFromKey("LogFixedFontSize"), expected) << stored;
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
    EXPECT_TRUE(!d.delegate.logViewerRunning() && view->toPlainText().isEmpty());
    EXPECT_FALSE(d.stored().stringFromKey(LogViewer::kFrameKey).empty());
}

// Every switch of the shipped defaults is editable, and each change is
// stored where the command line reads it.
TEST(OptionsSheet, EveryShippedSwitchIsEditableAndStored) {
    testing::Desktop d;
    OptionsSheet sheet(d.delegate, &d.window);
    const auto stored = [&](const char* key) { return d.stored().stringFromKey(key); };
    std::set<std::string> shipped, offered;  // every true/false value of the defaults resource
    std::istringstream in(build::kUserDefaults);
    for (std::string line; std::getline(in, line);) {
        auto eq = line.find('=');
        if (line.empty() || line[0] == '#' || eq == std::string::npos) continue;
        const std::string value = line.substr(eq + 1);
        if (value == "true" || value == "false") shipped.insert(line.substr(0, eq));
    }
    for (const auto& o : OptionsSheet::booleanOptions()) offered.insert(o.key);
    EXPECT_EQ(shipped, offered);

    sheet.showPrefs();
    for (const auto& o : OptionsSheet::booleanOptions()) {
        auto* box = sheet.findChild<QCheckBox*>(o.key);
        ASSERT_NE(box, nullptr) << o.key;
        const bool before = d.stored().boolFromKey(o.key);
        EXPECT_EQ(box->isChecked(), before) << o.key;
        box->click();
        EXPECT_EQ(d.stored().boolFromKey(o.key), !before) << o.key;
    }
    auto* verify = sheet.findChild<QComboBox*>("Verify");
    auto* size = sheet.findChild<QSpinBox*>("LogFixedFontSize");
    auto* minSeverity = sheet.findChild<QComboBox*>("MinSeverity");
    auto* ignore = sheet.findChild<QLineEdit*>("IgnoreCodes");
    auto* cache = sheet.findChild<QCheckBox*>("Cache");
    auto* cacheFile = sheet.findChild<QLineEdit*>("CacheFile");
    ASSERT_TRUE(verify && size && minSeverity && ignore && cache && cacheFile);
    verify->setCurrentIndex(2);
    size->setValue(15);
    minSeverity->setCurrentIndex(minSeverity->findData("error"));
    ignore->setText("id3.*");
    ignore->setText("id3.*,no-such-code");  // a code list is stored only when every entry names something
    EXPECT_EQ(stored("Verify") + stored("LogFixedFontSize") + stored("MinSeverity") + stored("IgnoreCodes"),
              "full15errorid3.*");
    // The result cache: a switch the command line shares, and its file.
    EXPECT_FALSE(cache->isChecked() || cacheFile->isEnabled());
    cache->click();
    cacheFile->setText("~/results.sqlite");
    EXPECT_TRUE(cacheFile->isEnabled() && d.stored().boolFromKey("Cache"));
    EXPECT_EQ(stored("CacheFile"), "~/results.sqlite");
}

TEST(QtPlatform, AlertIsAWindowModalSheetWithItsCheckBox) {
    QWidget window;
    window.show();
    QtPlatform platform;
    platform.setWindow(&window);
    int code = 0;
    bool suppressed = false;
    platform.showAlert(
        {"File Exists", "The text", {"Continue", "Cancel"}, AlertRequest::Style::Warning, "Do not ask again"},
        [&](int c, bool s) { code = c, suppressed = s; });
    auto* box = window.findChild<QMessageBox*>();
    ASSERT_TRUE(box && box->isVisible() && box->checkBox());
    EXPECT_TRUE(box->windowModality() == Qt::WindowModal && box->icon() == QMessageBox::Warning);
    EXPECT_EQ(box->informativeText() + box->checkBox()->text() + box->defaultButton()->text(),
              "The textDo not ask againContinue");
    box->checkBox()->setChecked(true);
    testing::button(*box, "Cancel")->click();
    testing::turn();
    EXPECT_TRUE(code == kAlertFirstButtonReturn + 1 && suppressed);
}

TEST(ScreenClamp, EdgesStopAtTheAvailableAreaAndDragFollowsTheMouse) {
    const QRect area(0, 30, 1000, 700);  // a panel takes the top 30 pixels
    const QSize size(400, 200);
    EXPECT_EQ(ScreenClamp::clampOrigin({100, 100}, size, area), QPoint(100, 100));
    EXPECT_EQ(ScreenClamp::clampOrigin({-50, 600}, size, area), QPoint(0, 530));
    EXPECT_EQ(ScreenClamp::clampOrigin({2000, -2000}, size, area), QPoint(600, 30));
    EXPECT_EQ(ScreenClamp::clampOrigin({600, 530}, size, area), QPoint(600, 530));  // at the edges is inside
    // Larger than the area: the left and top edges stay visible.
    EXPECT_EQ(ScreenClamp::clampOrigin({300, 300}, QSize(1200, 900), area), QPoint(0, 30));
    // A second screen to the left of the first (negative coordinates).
    EXPECT_EQ(ScreenClamp::clampOrigin({-100, 0}, size, QRect(-1280, 0, 1280, 1024)), QPoint(-400, 0));
    // Pressed at (10, 5) in a window at (100, 100); the mouse is now at (250, 80).
    EXPECT_EQ(ScreenClamp::dragOrigin({100, 100}, {10, 5}, {250, 80}), QPoint(240, 75));

    // A window placed off the screen comes back inside it.
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    WindowWithNoTitlebar window;
    window.setFrame(QRect(screen.right() + 500, screen.bottom() + 500, 300, 200));
    EXPECT_EQ(window.geometry(),
              QRect(screen.x() + screen.width() - 300, screen.y() + screen.height() - 200, 300, 200));
}

}  // namespace
}  // namespace sondrel::app
