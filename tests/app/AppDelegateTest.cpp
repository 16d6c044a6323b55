// The controller driven through the window, on a desktop that only records
// what it was asked to show.
#include "app/AppDelegate.h"

#include <gtest/gtest.h>

#include <QLabel>

#include <fstream>
#include <numeric>
#include <sstream>

#include "tests/app/FakePlatform.h"

namespace sondrel::app {
namespace {

using fixtures::readFile;
using testing::button;
using testing::turn;

class AppDelegateTest : public ::testing::Test {
  protected:
    bool shown(const std::string& status) {
        for (auto* l : d.window.findChildren<QLabel*>())
            if (l->text().toStdString() == status) return true;
        return false;
    }
    testing::Desktop d;
    AppDelegate& delegate = d.delegate;
};

TEST(AppDelegateStatic, PluralTexts) {
    EXPECT_EQ(AppDelegate::selectionStatus(2, 1), "2 folders and 1 file selected");
    EXPECT_EQ(AppDelegate::doneStatus(1, 0), "1 file scanned. 0 errors logged.");
    // The bar counts files logged, and names the files begun when analysis runs ahead.
    EXPECT_EQ(AppDelegate::progressText({349, 972, 14745, 12.4, 1150, ""}),
              "349 of 14745 files logged \u00b7 972 begun \u00b7 12 files/s \u00b7 19:10 left");
    EXPECT_EQ(AppDelegate::progressText({5, 5, 9, 0, -1, ""}), "5 of 9 files logged");
}

TEST_F(AppDelegateTest, DropKeepsFoldersAndAudioFilesOnly) {
    EXPECT_FALSE(delegate.okToStart() || delegate.okToReset() || delegate.running());
    const std::string text = d.data.write("notes.txt", std::string("x"));
    d.data.write("Player.app/inner.mp3", std::string("x"));
    for (const std::vector<std::string>& refused :
         {std::vector<std::string>{text},
          {d.data.path() + "/Player.app"},
          {d.data.path() + "/missing.mp3", d.data.write(".hidden.mp3", std::string("x"))}})
        EXPECT_FALSE(delegate.dropPaths(refused)) << refused[0];
    turn();
    EXPECT_EQ(d.platform.beeps, 3);
    EXPECT_TRUE(shown("Drag Files or Folders to the Target"));
    EXPECT_TRUE(delegate.selection().folders.empty() && delegate.selection().files.empty() &&
                !delegate.okToReset());

    const std::string song = d.data.write("one/Song.MP3", std::string("x"));
    d.drop({d.music(), song, d.data.write("two/other.opus", std::string("x")), text});
    EXPECT_EQ(delegate.statusText(), "1 folder and 2 files selected");
    EXPECT_TRUE(d.platform.beeps == 3 && delegate.okToReset() && delegate.okToStart());  // no new beep
    // Drops accumulate, and a path dropped twice counts once.
    d.drop({d.data.path() + "/one/../one", song});
    EXPECT_TRUE(shown("2 folders and 2 files selected"));

    // Without a log path there is nothing to start.
    delegate.setLogPathText("");
    EXPECT_FALSE(delegate.okToStart());
    delegate.startCancelHit();
    EXPECT_TRUE(d.platform.alerts.empty() && !delegate.running());
    delegate.resetSels();
    EXPECT_EQ(delegate.statusText(), "Drag Files or Folders to the Target");
    EXPECT_FALSE(delegate.okToReset() || delegate.okToStart());
}

TEST_F(AppDelegateTest, OverwriteQuestionAndItsSuppression) {
    delegate.setLogPathText(d.logPath);  // typed, not chosen: the question is asked
    d.drop({d.music()});
    delegate.startCancelHit();
    ASSERT_EQ(d.platform.alerts.size(), 1u);
    EXPECT_EQ(d.platform.alerts[0].first.title, "File Exists");
    EXPECT_EQ(d.platform.beeps, 1);
    EXPECT_TRUE(delegate.okToStart() && !delegate.running());  // asking changes nothing

    // Cancel ignores a ticked box.
    d.platform.answer(kAlertFirstButtonReturn + 1, true);
    turn();
    EXPECT_TRUE(!delegate.running() && d.stored().boolFromKey("LogPrompt"));

    delegate.startCancelHit();
    ASSERT_EQ(d.platform.alerts.size(), 1u);
    d.platform.answer(kAlertFirstButtonReturn, true);
    EXPECT_TRUE(!d.stored().boolFromKey("LogPrompt") && delegate.logPathChosen());
    // The scan starts on the next turn of the loop and runs to its end.
    EXPECT_TRUE(testing::spinUntil([&] { return delegate.statusText().rfind("2 files scanned.", 0) == 0; }));

    // Never asked again, although the confirmation ended with the scan.
    EXPECT_FALSE(delegate.logPathChosen());
    d.drop({d.music()});
    delegate.startCancelHit();
    EXPECT_TRUE(d.platform.alerts.empty() && delegate.running());
    d.waitForScan();
}

// Start to done through the window: the controls follow the state, quitting
// is refused while scanning, and the results agree with the log.
TEST_F(AppDelegateTest, ScanRunsToDoneAndItsResultsAgreeWithTheLog) {
    d.platform.savePanelAnswer = d.logPath;
    delegate.promptForPath();
    EXPECT_EQ(delegate.logPathSetting(), d.logPath);
    EXPECT_FALSE(delegate.okToViewLog());  // no log file yet
    const std::string folder = d.music();
    d.data.write("music/sub/c.wav", std::string("RIFF\x10\0\0\0WAVE", 12));
    d.drop({folder});
    EXPECT_TRUE(shown("1 folder selected"));
    delegate.storeBool("Cache", true);
    delegate.storeString("CacheFile", d.data.path() + "/cache.sqlite");
    std::vector<std::string> statuses;
    QObject::connect(&delegate, &AppDelegate::stateChanged,
                     [&] { statuses.push_back(delegate.statusText()); });
    button(d.window, "Start")->click();  // a chosen path is not questioned

    EXPECT_TRUE(d.platform.alerts.empty() && d.results.isVisible());
    ASSERT_TRUE(delegate.running() && button(d.window, "Cancel") && button(d.window, "Cancel")->isEnabled());
    EXPECT_FALSE(button(d.window, "View Log")->isEnabled() || button(d.window, "Reset")->isEnabled());
    EXPECT_FALSE(d.window.close() || delegate.applicationShouldTerminate());
    EXPECT_EQ(d.platform.activitiesBegun, 0);               // a scan holds no activity
    delegate.resetSels();                                   // ignored while running
    delegate.displayDragStatus();                           // a drop's status shown now,
    delegate.setLogPathText(d.data.path() + "/./log.txt");  // or a path typed, enables nothing
    EXPECT_TRUE(delegate.selection().folders.size() == 1 && !delegate.okToReset() && !delegate.okToViewLog());
    d.waitForScan();

    const std::string log = readFile(d.logPath);
    std::istringstream in(log);
    std::string line, text;
    uint64_t files = 0, problems = 0;  // problem lines start with four spaces
    for (std::getline(in, line); std::getline(in, line); text += line + "\n")
        if (!line.empty()) line.rfind("    ", 0) == 0 ? ++problems : ++files;
    ASSERT_GT(problems, 0u);
    EXPECT_EQ(delegate.statusText(), AppDelegate::doneStatus(3, problems));
    EXPECT_TRUE(shown(delegate.statusText()));
    EXPECT_NE(std::find(statuses.begin(), statuses.end(), "Examining folder " + folder), statuses.end());

    const auto& s = delegate.results().summary();
    const auto sum = [](const auto& c) { return std::accumulate(c.begin(), c.end(), uint64_t(0)); };
    EXPECT_EQ((std::vector{s.files, sum(s.filesByWorst)}), std::vector<uint64_t>(2, files));
    EXPECT_EQ(
        (std::vector{s.problems, sum(s.problemsBySeverity), sum(s.problemsByFormat), sum(s.problemsByCode)}),
        std::vector<uint64_t>(4, problems));
    const ResultsModel& m = delegate.results();  // every problem shown is the log's own line
    for (size_t i = 0; i < m.fileCount(); ++i)
        for (uint32_t k = 0; k < m.file(i).problemCount; ++k)
            EXPECT_NE(text.find(std::string(m.message(m.problem(m.file(i).firstProblem + k)))),
                      std::string::npos);

    // Idle after the scan.
    EXPECT_FALSE(delegate.okToStart() || delegate.okToReset() || button(d.window, "Start")->isEnabled());
    EXPECT_TRUE(delegate.okToViewLog() && button(d.window, "View Log")->isEnabled());
    EXPECT_TRUE(delegate.selection().folders.empty() && delegate.selection().files.empty() &&
                delegate.applicationShouldTerminate());
    turn();  // the scan is reaped and its result cache written
    EXPECT_GT(readFile(d.data.path() + "/cache.sqlite").size(), 0u);
    delegate.viewLog();
    EXPECT_EQ(d.platform.logs, std::vector<std::string>{log});

    // Choosing confirmed the path for one scan only: the next one asks.
    d.drop({folder});
    delegate.startCancelHit();
    EXPECT_EQ(d.platform.alerts.size(), 1u);
    EXPECT_FALSE(delegate.running());
}

TEST_F(AppDelegateTest, CancelDisablesTheButtonUntilTheScanStops) {
    delegate.logPathSelected(d.logPath);
    d.drop({d.music()});
    delegate.startCancelHit();
    // The scan waits for its first "Examining folder" status, which the event
    // loop has not shown yet, so it cannot have ended.
    delegate.startCancelHit();
    EXPECT_TRUE(delegate.running() && !delegate.okToStart() && delegate.startTitle() == "Cancel");
    delegate.startCancelHit();  // a disabled button does nothing
    EXPECT_FALSE(delegate.okToStart() || delegate.applicationShouldTerminate());
    d.waitForScan();
    EXPECT_EQ(delegate.statusText() + delegate.startTitle(), "CancelledStart");
    // Nothing was analysed: the log holds its first line only.
    const std::string log = readFile(d.logPath);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(AppDelegateTest, TheLogNeverReplacesFoldersAudioOrForeignFiles) {
    const std::string folder = d.music();
    d.platform.savePanelAnswer = folder + "/a.mp3";
    delegate.promptForPath();
    ASSERT_EQ(d.platform.alerts.size(), 1u);
    EXPECT_EQ(d.platform.alerts[0].first.title, "Invalid Log File");
    EXPECT_NE(delegate.logPathSetting(), folder + "/a.mp3") << "the choice is not taken";
    // Paths typed in the field are checked at Start; the controller stays idle.
    delegate.storeBool("LogPrompt", false);
    d.drop({folder});
    for (const std::string& typed : {folder, folder + "/notes.txt"}) {
        delegate.setLogPathText(typed);
        delegate.startCancelHit();
    }
    ASSERT_EQ(d.platform.alerts.size(), 3u);
    EXPECT_EQ(d.platform.alerts[1].first.text, "The specified log file is a folder");
    EXPECT_EQ(d.platform.alerts[2].first.text,
              "The log file exists and is not a log written by this program: " + folder + "/notes.txt");
    EXPECT_TRUE(d.platform.beeps == 3 && delegate.okToStart() && !delegate.running());
    EXPECT_EQ(readFile(folder + "/notes.txt"), "hello");
}

TEST_F(AppDelegateTest, ViewLogMenuAndEncodings) {
    delegate.logPathSelected(d.logPath);
    const int other = 0;
    EXPECT_FALSE(delegate.menuItemEnabled(AppDelegate::kViewLogMenuTag));       // no log yet
    std::ofstream(d.logPath, std::ios::binary) << "Sondrel Version caf\xe9\n";  // a log, but not UTF-8
    delegate.logPathSelected(d.logPath);
    EXPECT_TRUE(delegate.menuItemEnabled(AppDelegate::kViewLogMenuTag) && !delegate.menuItemEnabled(other));
    delegate.viewLog();
    std::ofstream(d.logPath, std::ios::binary) << "caf\xc3\xa9\n";
    delegate.viewLog();
    EXPECT_EQ(d.platform.logs, (std::vector<std::string>{"Sondrel Version caf\xc3\xa9\n", "caf\xc3\xa9\n"}));
    delegate.setLogViewerRunning(true);
    EXPECT_TRUE(!delegate.menuItemEnabled(AppDelegate::kViewLogMenuTag) && delegate.menuItemEnabled(other));
}

TEST_F(AppDelegateTest, FirstTimeUsageAndResetWarnings) {
    delegate.windowDidBecomeMain();
    ASSERT_EQ(d.platform.alerts.size(), 1u);
    EXPECT_EQ(d.platform.alerts[0].first.title, "First Time Usage");
    d.platform.answer(kAlertFirstButtonReturn, true);
    EXPECT_FALSE(d.stored().boolFromKey("FirstTimeUsage"));
    delegate.windowDidBecomeMain();  // once per run
    EXPECT_TRUE(d.platform.alerts.empty());

    delegate.storeBool("LogPrompt", false);
    delegate.resetWarnings();
    EXPECT_TRUE(d.stored().boolFromKey("FirstTimeUsage") && d.stored().boolFromKey("LogPrompt"));
}

}  // namespace
}  // namespace sondrel::app
