#pragma once
// The application controller: the single object behind the main window. It
// holds the selection (dropped folders and files), the log path and the
// options, decides when Start, View Log and Reset are allowed, opens the log,
// runs the scan on a worker thread and shows its progress and end in the
// status line. It uses no widget: the desktop is reached through AppPlatform,
// and the window redraws itself from the state whenever stateChanged fires.
#include <QElapsedTimer>
#include <QObject>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "app/AppPlatform.h"
#include "app/ResultsModel.h"
#include "core/LogWriter.h"
#include "core/Settings.h"
#include "core/WorkThread.h"

namespace sondrel {
class ResultCache;
}

namespace sondrel::app {

class AppDelegate : public QObject {
    Q_OBJECT

  public:
    // Texts shown by the controller.
    static constexpr const char* kDragStatus = "Drag Files or Folders to the Target";
    static constexpr const char* kCancelledStatus = "Cancelled";
    static constexpr const char* kStartTitle = "Start";
    static constexpr const char* kCancelTitle = "Cancel";
    static constexpr const char* kSavePanelTitle = "Log File Destination";
    static constexpr const char* kFileExistsTitle = "File Exists";
    static constexpr const char* kFileExistsText =
        "The log file exists.  If you continue the file will be overwritten.";
    static constexpr const char* kContinueButton = "Continue";
    static constexpr const char* kCancelButton = "Cancel";
    static constexpr const char* kDoNotAskAgain = "Do not ask again";
    static constexpr const char* kFirstTimeTitle = "First Time Usage";
    static constexpr const char* kFirstTimeText =
        "Choose a name and location for the log file.\n\nDrag over files and/or folders to the target "
        "(one or more times) and then hit Start.\n\nA deep scan is made in all folders so it is possible "
        "to analyze your entire collection at once.";
    static constexpr const char* kDoNotShowAgain = "Do not show this again";
    static constexpr const char* kInvalidLogTitle = "Invalid Log File";
    static constexpr const char* kReadErrorTitle = "Read Eror";  // spelled so
    static constexpr const char* kReadErrorText = "Error reading the log file";
    static constexpr const char* kActivityReason = "Lengthy process";
    static constexpr const char* kCacheAlertTitle = "Result Cache";
    // The result cache (shared with the command line's --cache) and its
    // file, the desktop's own ("" for the default place).
    static constexpr const char* kCacheKey = "Cache";
    static constexpr const char* kCacheFileKey = "CacheFile";

    // Help pages shipped beside the program.
    static constexpr const char* kMainHelpPage = "SondrelHelp";
    static constexpr const char* kOptionsHelpPage = "Options";
    static constexpr const char* kReleaseNotesPage = "ReleaseNotes";

    // The "Log Viewer" menu item that opens the viewer.
    static constexpr int kViewLogMenuTag = 1;

    // `configFolder` holds the settings file (empty: the user's default);
    // `helpFolder` holds the help pages.
    AppDelegate(AppPlatform& platform, const std::string& configFolder, const std::string& helpFolder,
                QObject* parent = nullptr);
    ~AppDelegate() override;

    // "" for a count of 1, "s" otherwise.
    static std::string plural(uint64_t n);
    static std::string selectionStatus(uint64_t folders, uint64_t files);
    // Inputs that could not be read are mentioned only when there were any,
    // so the status of an ordinary scan reads as it always has.
    static std::string doneStatus(uint64_t files, uint64_t errors, uint64_t unreadable = 0);
    // "Version %@ (%@) [%@]": short version, build, "ARM64" or "x64".
    static std::string versionString();
    static bool isArm64();

    // State read by the window.
    bool okToStart() const { return okToStart_; }
    bool okToViewLog() const { return okToViewLog_; }
    bool okToReset() const { return okToReset_; }
    bool running() const { return running_; }
    bool logPathChosen() const { return logPathChosen_; }
    bool logViewerRunning() const { return logViewerRunning_; }
    const std::string& statusText() const { return status_; }
    const std::string& startTitle() const { return startTitle_; }
    const Selection& selection() const { return selection_; }
    uint64_t activityMask() const { return activityMask_; }
    // The log path as stored (a leading "~" not expanded), shown in the path field.
    std::string logPathSetting() const { return settings_.stringFromKey("LogPath"); }

    // The files with problems of the current (or last) scan, fed as it runs.
    ResultsModel& results() { return results_; }

    // Where a running scan stands: files logged of the total (0 until the
    // walk has counted them), files begun (the count the status line's
    // "Analyzing file N of TOTAL" shows: analysis runs ahead of the log),
    // the rate in files per second, the seconds left (negative while
    // unknown) and the folder or file at hand.
    struct Progress {
        uint64_t done = 0;
        uint64_t begun = 0;
        uint64_t total = 0;
        double rate = 0;
        double secondsLeft = -1;
        std::string current;
    };
    Progress progress() const;
    // "1234 of 14745 files logged · 1290 begun · 312 files/s · 0:42 left"
    static std::string progressText(const Progress& p);

    // The options store shared with the command line; every change is saved at once.
    const Settings& settings() const { return settings_; }
    void storeBool(const std::string& key, bool value);
    void storeInteger(const std::string& key, int64_t value);
    void storeString(const std::string& key, const std::string& value);

    // Launch: enters the idle state. The first time the main window becomes
    // main, the first-use explanation may be shown.
    void applicationDidFinishLaunching();
    void windowDidBecomeMain();

    // A drop on the target: keeps each path that exists and is clean (a
    // folder, or a file with an audio extension). Returns false (after a beep)
    // when nothing was kept.
    bool dropPaths(const std::vector<std::string>& paths);
    // "Add Folder…" and "Add Files…": an open panel whose choice is taken
    // as a drop would be.
    static constexpr const char* kAddFolderTitle = "Add Folder";
    static constexpr const char* kAddFilesTitle = "Add Files";
    void addFolder();
    void addFiles();
    void setDragSourceFolders(const std::vector<std::string>& folders, const std::vector<std::string>& files);
    void displayDragStatus();

    // Actions.
    void startCancelHit();
    void promptForPath();
    // The save panel's OK: stores the path and counts it as confirmed.
    void logPathSelected(const std::string& path);
    // The path typed into the path field.
    void setLogPathText(const std::string& path);
    void viewLog();
    void resetSels();
    void resetWarnings();
    void showHelp(const std::string& page);
    void showMainHelp() { showHelp(kMainHelpPage); }
    void showOptionsHelp() { showHelp(kOptionsHelpPage); }
    void releaseNotes() { showHelp(kReleaseNotesPage); }

    // Quitting is refused while a scan runs.
    bool applicationShouldTerminate() const { return !running_; }
    // The "Log Viewer" menu: the item with tag 1 opens the viewer and needs it
    // closed and the log viewable; every other item needs the viewer open.
    bool menuItemEnabled(int tag) const;
    void setLogViewerRunning(bool on);

    // Main-thread ends of the scan's calls.
    void setStatus(const std::string& text);
    void done(bool cancelled);
    void displayAlert(const std::string& title, const std::string& text, bool beep,
                      std::function<void()> dismissed = {});

    // Process activity: a non-zero mask holds one "Lengthy process" activity.
    void setActivityMask(uint64_t bits);
    void clrActivityMask(uint64_t bits);

  signals:
    void stateChanged();

  private:
    void changed() { emit stateChanged(); }
    void getOKToStartStatus();
    void validatePath();
    void cancelled();
    void startScan();
    // Shows the alert and returns false when the log may not go to `path`.
    bool acceptLogTarget(const std::string& path);
    void reapScan();
    void updateActivity();
    // Called on scan threads.
    void statusFromScan(const std::string& text, bool wait);
    void alertFromScan(const Alert& alert);

    AppPlatform& platform_;
    Settings settings_;
    std::string helpFolder_;

    bool okToStart_ = false;
    bool okToViewLog_ = false;
    bool okToReset_ = false;
    bool logPathChosen_ = false;
    bool startupDone_ = false;
    bool logViewerRunning_ = false;
    bool running_ = false;
    std::string status_;
    std::string startTitle_ = kStartTitle;
    std::string logPath_;  // expanded, refreshed before each start check
    Selection selection_;

    uint64_t activityMask_ = 0;
    std::optional<uint64_t> activityObject_;

    ResultsModel results_;
    ResultsTap* tap_ = nullptr;  // owned by log_
    QElapsedTimer scanClock_;
    std::atomic<uint64_t> total_{0};
    std::string currentFolder_;  // GUI thread

    std::unique_ptr<LogWriter> log_;
    std::unique_ptr<ResultCache> cache_;  // written out when the scan is reaped
    std::unique_ptr<WorkThread> scan_;
    std::thread scanThread_;

    // "Analyzing" texts are not waited for; only the latest is shown, with at
    // most one posted to the main thread at a time.
    std::mutex statusMutex_;
    std::string latestStatus_;
    std::atomic<bool> statusPosted_{false};
};

}  // namespace sondrel::app
