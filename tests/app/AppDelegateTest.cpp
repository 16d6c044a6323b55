// The controller driven as the window would drive it, on a desktop that
// only records what it was asked to show.
#include "app/AppDelegate.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/app/FakePlatform.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::app {
namespace {

using fixtures::TempDir;
using testing::spinUntil;
using testing::turn;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class AppDelegateTest : public ::testing::Test {
  protected:
    AppDelegateTest() : logPath(data.path() + "/log.txt") {
        delegate = std::make_unique<AppDelegate>(platform, config.path(), "/help/here");
        delegate->applicationDidFinishLaunching();
    }
    ~AppDelegateTest() override { delegate.reset(); }

    // A folder with two audio files (any content) and a text file.
    std::string musicFolder() {
        data.write("music/a.mp3", std::string(300, 'x'));
        data.write("music/B.flac", std::string("not a flac file"));
        data.write("music/notes.txt", std::string("hello"));
        return data.path() + "/music";
    }
    bool storedBool(const std::string& key) { return Settings::load(config.path()).boolFromKey(key); }
    void chooseLogPath() {
        platform.savePanelAnswer = logPath;
        delegate->promptForPath();
    }
    void drop(const std::vector<std::string>& paths) {
        ASSERT_TRUE(delegate->dropPaths(paths));
        turn();
    }
    void waitForScan() {
        ASSERT_TRUE(spinUntil([&] { return !delegate->running(); }));
    }

    TempDir config, data;
    std::string logPath;
    testing::FakePlatform platform;
    std::unique_ptr<AppDelegate> delegate;
};

TEST(AppDelegateStatic, PluralTexts) {
    EXPECT_EQ(AppDelegate::selectionStatus(0, 0), "Drag Files or Folders to the Target");
    EXPECT_EQ(AppDelegate::selectionStatus(1, 0), "1 folder selected");
    EXPECT_EQ(AppDelegate::selectionStatus(1, 2), "1 folder and 2 files selected");
    EXPECT_EQ(AppDelegate::selectionStatus(2, 1), "2 folders and 1 file selected");
    EXPECT_EQ(AppDelegate::doneStatus(1, 1), "1 file scanned. 1 error logged.");
    EXPECT_EQ(AppDelegate::doneStatus(0, 0), "0 files scanned. 0 errors logged.");
    // The bar counts files logged and names the files begun, which the
    // status line counts, when analysis runs ahead.
    EXPECT_EQ(AppDelegate::progressText({349, 972, 14745, 12.4, 1150, ""}),
              "349 of 14745 files logged \u00b7 972 begun \u00b7 12 files/s \u00b7 19:10 left");
    EXPECT_EQ(AppDelegate::progressText({5, 5, 9, 0, -1, ""}), "5 of 9 files logged");
}

TEST_F(AppDelegateTest, DropKeepsFoldersAndAudioFilesOnly) {
    // Launching stores the default log path and leaves the controller idle.
    EXPECT_EQ(Settings::load(config.path()).stringFromKey("LogPath"), "~/Documents/Sondrel.txt");
    EXPECT_EQ(delegate->startTitle(), "Start");
    EXPECT_FALSE(delegate->okToStart() || delegate->okToReset() || delegate->running());

    const std::string text = data.write("notes.txt", std::string("x"));
    EXPECT_FALSE(delegate->dropPaths({text}));
    EXPECT_FALSE(
        delegate->dropPaths({data.path() + "/missing.mp3", data.write(".hidden.mp3", std::string("x"))}));
    data.write("Player.app/inner.mp3", std::string("x"));
    EXPECT_FALSE(delegate->dropPaths({data.path() + "/Player.app"}));
    turn();
    EXPECT_EQ(platform.beeps, 3);
    EXPECT_EQ(delegate->statusText(), "Drag Files or Folders to the Target");
    EXPECT_TRUE(delegate->selection().folders.empty() && delegate->selection().files.empty());
    EXPECT_FALSE(delegate->okToReset());

    const std::string song = data.write("one/Song.MP3", std::string("x"));
    drop({musicFolder(), song, data.write("two/other.opus", std::string("x")), text});
    EXPECT_EQ(platform.beeps, 3);
    EXPECT_EQ(delegate->statusText(), "1 folder and 2 files selected");
    EXPECT_TRUE(delegate->okToReset() && delegate->okToStart());

    // Drops accumulate, and a path dropped twice counts once.
    drop({data.path() + "/one/../one", song});
    EXPECT_EQ(delegate->statusText(), "2 folders and 2 files selected");

    // Without a log path there is nothing to start.
    delegate->setLogPathText("");
    EXPECT_FALSE(delegate->okToStart());
    delegate->startCancelHit();
    EXPECT_TRUE(platform.alerts.empty());
    EXPECT_FALSE(delegate->running());

    delegate->resetSels();
    EXPECT_EQ(delegate->statusText(), "Drag Files or Folders to the Target");
    EXPECT_FALSE(delegate->okToReset() || delegate->okToStart());
}

TEST_F(AppDelegateTest, OverwriteQuestionAndItsSuppression) {
    delegate->setLogPathText(logPath);  // typed, not chosen: the question is asked
    drop({musicFolder()});
    delegate->startCancelHit();
    ASSERT_EQ(platform.alerts.size(), 1u);
    const AlertRequest& r = platform.alerts[0].request;
    EXPECT_EQ(r.title, "File Exists");
    EXPECT_EQ(r.text, "The log file exists.  If you continue the file will be overwritten.");
    EXPECT_EQ(r.buttons, (std::vector<std::string>{"Continue", "Cancel"}));
    EXPECT_EQ(r.suppressionTitle, "Do not ask again");
    EXPECT_EQ(r.style, AlertRequest::Style::Warning);
    EXPECT_EQ(platform.beeps, 1);
    // Asking changes nothing.
    EXPECT_EQ(delegate->startTitle(), "Start");
    EXPECT_TRUE(delegate->okToStart());

    // Cancel ignores a ticked box.
    platform.answer(kAlertFirstButtonReturn + 1, true);
    turn();
    EXPECT_FALSE(delegate->running());
    EXPECT_TRUE(storedBool("LogPrompt"));

    delegate->startCancelHit();
    ASSERT_EQ(platform.alerts.size(), 1u);
    platform.answer(kAlertFirstButtonReturn, true);
    EXPECT_FALSE(storedBool("LogPrompt"));
    EXPECT_TRUE(delegate->logPathChosen());
    turn();
    EXPECT_TRUE(delegate->running());
    waitForScan();

    // Never asked again, although the confirmation ended with the scan.
    EXPECT_FALSE(delegate->logPathChosen());
    drop({musicFolder()});
    delegate->startCancelHit();
    EXPECT_TRUE(platform.alerts.empty());
    EXPECT_TRUE(delegate->running());
    waitForScan();
}

TEST_F(AppDelegateTest, ScanRunsToDoneAndClearsTheSelection) {
    chooseLogPath();
    EXPECT_EQ(platform.savePanelTitles, std::vector<std::string>{"Log File Destination"});
    EXPECT_EQ(delegate->logPathSetting(), logPath);
    EXPECT_FALSE(delegate->okToViewLog());  // no log file yet
    const std::string folder = musicFolder();
    drop({folder});
    delegate->storeBool("Cache", true);
    delegate->storeString("CacheFile", data.path() + "/cache.sqlite");
    delegate->startCancelHit();  // a chosen path is not questioned

    // Running: Cancel enabled, View Log and Reset disabled, quitting refused.
    EXPECT_TRUE(platform.alerts.empty());
    EXPECT_TRUE(delegate->running());
    EXPECT_EQ(delegate->startTitle(), "Cancel");
    EXPECT_TRUE(delegate->okToStart());
    EXPECT_FALSE(delegate->okToViewLog() || delegate->okToReset());
    EXPECT_FALSE(delegate->applicationShouldTerminate());
    EXPECT_FALSE(delegate->menuItemEnabled(AppDelegate::kViewLogMenuTag));
    EXPECT_EQ(platform.activitiesBegun, 0);  // a scan holds no activity
    delegate->resetSels();                   // ignored while running
    EXPECT_EQ(delegate->selection().folders.size(), 1u);

    std::vector<std::string> statuses;
    QObject::connect(delegate.get(), &AppDelegate::stateChanged,
                     [&] { statuses.push_back(delegate->statusText()); });
    waitForScan();

    const std::string log = readFile(logPath);
    ASSERT_EQ(log.rfind("Sondrel Version ", 0), 0u) << log;
    uint64_t problems = 0;  // problem lines start with four spaces
    for (auto at = log.find("\n    "); at != std::string::npos; at = log.find("\n    ", at + 1)) ++problems;
    EXPECT_EQ(delegate->statusText(), AppDelegate::doneStatus(2, problems));
    EXPECT_NE(std::find(statuses.begin(), statuses.end(), "Examining folder " + folder), statuses.end());

    // Idle after the scan.
    EXPECT_EQ(delegate->startTitle(), "Start");
    EXPECT_FALSE(delegate->okToStart() || delegate->okToReset());
    EXPECT_TRUE(delegate->okToViewLog());
    EXPECT_TRUE(delegate->selection().folders.empty() && delegate->selection().files.empty());
    EXPECT_TRUE(delegate->applicationShouldTerminate());
    turn();  // the scan is reaped and its result cache written
    EXPECT_GT(readFile(data.path() + "/cache.sqlite").size(), 0u);

    delegate->viewLog();
    ASSERT_EQ(platform.logs.size(), 1u);
    EXPECT_EQ(platform.logs[0], log);

    // Choosing confirmed the path for one scan only: the next one asks.
    drop({folder});
    delegate->startCancelHit();
    EXPECT_EQ(platform.alerts.size(), 1u);
    EXPECT_FALSE(delegate->running());
}

TEST_F(AppDelegateTest, CancelDisablesTheButtonUntilTheScanStops) {
    chooseLogPath();
    drop({musicFolder()});
    delegate->startCancelHit();
    // The scan waits for its first "Examining folder" status, which the event
    // loop has not shown yet, so it cannot have ended.
    delegate->startCancelHit();
    EXPECT_TRUE(delegate->running());
    EXPECT_FALSE(delegate->okToStart());
    EXPECT_EQ(delegate->startTitle(), "Cancel");
    delegate->startCancelHit();  // a disabled button does nothing
    EXPECT_FALSE(delegate->okToStart());
    EXPECT_FALSE(delegate->applicationShouldTerminate());
    waitForScan();
    EXPECT_EQ(delegate->statusText(), "Cancelled");
    EXPECT_EQ(delegate->startTitle(), "Start");
    // Nothing was analysed: the log holds its first line only.
    const std::string log = readFile(logPath);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
}

TEST_F(AppDelegateTest, TheLogNeverReplacesFoldersAudioOrForeignFiles) {
    const std::string folder = musicFolder();
    platform.savePanelAnswer = folder + "/a.mp3";
    delegate->promptForPath();
    ASSERT_EQ(platform.alerts.size(), 1u);
    EXPECT_EQ(platform.alerts[0].request.title, "Invalid Log File");
    EXPECT_NE(delegate->logPathSetting(), folder + "/a.mp3") << "the choice is not taken";
    // Paths typed in the field are checked at Start; the controller stays idle.
    delegate->storeBool("LogPrompt", false);
    drop({folder});
    delegate->setLogPathText(folder);
    EXPECT_FALSE(delegate->okToViewLog());
    delegate->startCancelHit();
    ASSERT_EQ(platform.alerts.size(), 2u);
    EXPECT_EQ(platform.alerts[1].request.text, "The specified log file is a folder");
    delegate->setLogPathText(folder + "/notes.txt");
    delegate->startCancelHit();
    ASSERT_EQ(platform.alerts.size(), 3u);
    EXPECT_EQ(platform.alerts[2].request.text,
              "The log file exists and is not a log written by this program: " + folder + "/notes.txt");
    EXPECT_EQ(platform.beeps, 3);
    EXPECT_FALSE(delegate->running());
    EXPECT_EQ(delegate->startTitle(), "Start");
    EXPECT_TRUE(delegate->okToStart());
    EXPECT_EQ(readFile(folder + "/notes.txt"), "hello");
}

TEST_F(AppDelegateTest, ViewLogMenuAndEncodings) {
    chooseLogPath();
    const int other = 0;
    EXPECT_FALSE(delegate->menuItemEnabled(AppDelegate::kViewLogMenuTag));    // no log yet
    std::ofstream(logPath, std::ios::binary) << "Sondrel Version caf\xe9\n";  // a log, but not UTF-8
    delegate->promptForPath();
    EXPECT_TRUE(delegate->menuItemEnabled(AppDelegate::kViewLogMenuTag));
    EXPECT_FALSE(delegate->menuItemEnabled(other));
    delegate->viewLog();
    std::ofstream(logPath, std::ios::binary) << "caf\xc3\xa9\n";
    delegate->viewLog();
    EXPECT_EQ(platform.logs, (std::vector<std::string>{"Sondrel Version caf\xc3\xa9\n", "caf\xc3\xa9\n"}));
    delegate->setLogViewerRunning(true);
    EXPECT_FALSE(delegate->menuItemEnabled(AppDelegate::kViewLogMenuTag));
    EXPECT_TRUE(delegate->menuItemEnabled(other));
}

TEST_F(AppDelegateTest, FirstTimeUsageAndResetWarnings) {
    delegate->windowDidBecomeMain();
    ASSERT_EQ(platform.alerts.size(), 1u);
    const AlertRequest& r = platform.alerts[0].request;
    EXPECT_EQ(r.title, "First Time Usage");
    EXPECT_EQ(r.text.substr(0, 46), "Choose a name and location for the log file.\n\n");
    EXPECT_EQ(r.suppressionTitle, "Do not show this again");
    EXPECT_EQ(r.style, AlertRequest::Style::Informational);
    platform.answer(kAlertFirstButtonReturn, true);
    EXPECT_FALSE(storedBool("FirstTimeUsage"));
    delegate->windowDidBecomeMain();  // once per run
    EXPECT_TRUE(platform.alerts.empty());

    delegate->storeBool("LogPrompt", false);
    delegate->resetWarnings();
    EXPECT_TRUE(storedBool("FirstTimeUsage"));
    EXPECT_TRUE(storedBool("LogPrompt"));
}

}  // namespace
}  // namespace sondrel::app
