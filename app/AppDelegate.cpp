#include "app/AppDelegate.h"

#include <sys/stat.h>

#include <QCoreApplication>
#include <QFile>
#include <QStringDecoder>
#include <QTimer>
#include <QUrl>

#include <fmt/format.h>
#include <cerrno>
#include <cstring>
#include <future>

#include "core/BuildInfo.h"
#include "core/LogTarget.h"
#include "core/PathPredicates.h"
#include "core/Text.h"
#include "printers/TextPrinter.h"
#include "store/ResultStore.h"
#include "verify/Verify.h"

namespace sondrel::app {

namespace {

// Every option bit of the low 24: the activity asks for no idle sleep, no
// throttling and no sudden termination alike.
constexpr uint64_t kActivityOptions = 0xFFFFFF;
// Process activities exist from this toolkit version on.
constexpr int kActivityToolkitVersion = 1187;

enum class Kind { Missing, Folder, Other };

Kind kindOf(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) return Kind::Missing;  // follows symbolic links
    return S_ISDIR(st.st_mode) ? Kind::Folder : Kind::Other;
}

}  // namespace

AppDelegate::AppDelegate(AppPlatform& platform, const std::string& configFolder,
                         const std::string& helpFolder, QObject* parent)
    : QObject(parent), platform_(platform), settings_(Settings::load(configFolder)), helpFolder_(helpFolder) {
    if (settings_.stringFromKey("LogPath").empty()) {
        settings_.ensureDefaultLogPath();
        settings_.save();
    }
}

AppDelegate::~AppDelegate() {
    // The window refuses to close while scanning, but should the controller go
    // away during a scan anyway, the scan must end first: it calls back into
    // this object.
    if (scan_) scan_->cancel();
    while (running_) QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    reapScan();
    if (activityObject_) platform_.endActivity(*activityObject_);
}

std::string AppDelegate::plural(uint64_t n) {
    return n == 1 ? "" : "s";
}

std::string AppDelegate::selectionStatus(uint64_t folders, uint64_t files) {
    if (folders && files)
        return fmt::format("{} folder{} and {} file{} selected", folders, plural(folders), files,
                           plural(files));
    if (folders) return fmt::format("{} folder{} selected", folders, plural(folders));
    if (files) return fmt::format("{} file{} selected", files, plural(files));
    return kDragStatus;
}

std::string AppDelegate::doneStatus(uint64_t files, uint64_t errors, uint64_t unreadable) {
    std::string status =
        fmt::format("{} file{} scanned. {} error{} logged.", files, plural(files), errors, plural(errors));
    if (unreadable) status += fmt::format(" {} could not be read.", unreadable);
    return status;
}

bool AppDelegate::isArm64() {
#if defined(__aarch64__)
    return true;
#else
    return false;
#endif
}

std::string AppDelegate::versionString() {
    return fmt::format("Version {} ({}) [{}]", build::kVersion, build::kBuild, isArm64() ? "ARM64" : "x64");
}

void AppDelegate::storeBool(const std::string& key, bool value) {
    settings_.setBool(key, value);
    settings_.save();
    if (key == "LogAllFiles") getOKToStartStatus();
}

void AppDelegate::storeInteger(const std::string& key, int64_t value) {
    settings_.setInteger(key, value);
    settings_.save();
}

void AppDelegate::storeString(const std::string& key, const std::string& value) {
    settings_.setString(key, value);
    settings_.save();
}

void AppDelegate::applicationDidFinishLaunching() {
    cancelled();
}

void AppDelegate::windowDidBecomeMain() {
    if (startupDone_) return;
    startupDone_ = true;
    if (!settings_.boolFromKey("FirstTimeUsage")) return;
    AlertRequest r{kFirstTimeTitle, kFirstTimeText, {}, AlertRequest::Style::Informational, kDoNotShowAgain};
    platform_.showAlert(r, [this](int, bool suppressed) {
        if (suppressed) storeBool("FirstTimeUsage", false);
    });
}

bool AppDelegate::dropPaths(const std::vector<std::string>& paths) {
    std::vector<std::string> folders, files;
    for (const auto& p : paths) {
        if (p.empty()) continue;
        std::string full = fullPath(p);
        Kind kind = kindOf(full);
        if (kind == Kind::Missing || !isPathClean(full)) continue;
        if (kind == Kind::Folder)
            folders.push_back(full);
        else if (isAudioFile(lastComponent(full)))
            files.push_back(full);
    }
    if (folders.empty() && files.empty()) {
        platform_.beep();
        return false;
    }
    setDragSourceFolders(folders, files);
    return true;
}

void AppDelegate::addFolder() {
    if (running_) return;
    auto chosen = platform_.openPanel(kAddFolderTitle, true);
    if (!chosen.empty()) dropPaths(chosen);
}

void AppDelegate::addFiles() {
    if (running_) return;
    auto chosen = platform_.openPanel(kAddFilesTitle, false);
    if (!chosen.empty()) dropPaths(chosen);
}

void AppDelegate::setDragSourceFolders(const std::vector<std::string>& folders,
                                       const std::vector<std::string>& files) {
    selection_.folders.insert(folders.begin(), folders.end());
    selection_.files.insert(files.begin(), files.end());
    // The drop completes before the status changes.
    QTimer::singleShot(0, this, &AppDelegate::displayDragStatus);
}

void AppDelegate::displayDragStatus() {
    const uint64_t folders = selection_.folders.size(), files = selection_.files.size();
    okToReset_ = (folders || files) && !running_;
    setStatus(selectionStatus(folders, files));
    getOKToStartStatus();
}

void AppDelegate::getOKToStartStatus() {
    logPath_ = settings_.expandedLogPath();
    if (!running_)
        okToStart_ = !logPath_.empty() && (!selection_.folders.empty() || !selection_.files.empty());
    changed();
}

void AppDelegate::validatePath() {
    logPath_ = settings_.expandedLogPath();
    okToViewLog_ = !running_ && !logPath_.empty() && kindOf(logPath_) == Kind::Other;
    changed();
}

void AppDelegate::promptForPath() {
    auto chosen = platform_.savePanel(kSavePanelTitle, {"txt", "log"}, settings_.expandedLogPath());
    if (chosen) logPathSelected(*chosen);
}

bool AppDelegate::acceptLogTarget(const std::string& path) {
    auto full = fullPathIfResolvable(path);
    if (!full) {
        const int err = errno;
        displayAlert(kInvalidLogTitle,
                     fmt::format("The log file's folder cannot be found out {}: {}", text::escapePath(path),
                                 std::strerror(err)),
                     true);
        return false;
    }
    if (auto refusal = refuseLogTarget(*full, selection_, false)) {
        displayAlert(kInvalidLogTitle, fmt::format("{}: {}", refusal->text, text::escapePath(*full)), true);
        return false;
    }
    return true;
}

void AppDelegate::logPathSelected(const std::string& path) {
    if (!acceptLogTarget(path)) return;
    storeString("LogPath", path);
    logPathChosen_ = true;
    getOKToStartStatus();
    validatePath();
}

void AppDelegate::setLogPathText(const std::string& path) {
    if (path == settings_.stringFromKey("LogPath")) return;
    storeString("LogPath", path);
    getOKToStartStatus();
    validatePath();
}

void AppDelegate::startCancelHit() {
    if (!okToStart_) return;
    if (running_) {
        if (scan_) scan_->cancel();
        okToStart_ = false;  // until done() arrives
        changed();
        return;
    }
    if (!logPathChosen_ && settings_.boolFromKey("LogPrompt")) {
        platform_.beep();
        AlertRequest r{kFileExistsTitle,
                       kFileExistsText,
                       {kContinueButton, kCancelButton},
                       AlertRequest::Style::Warning,
                       kDoNotAskAgain};
        platform_.showAlert(r, [this](int button, bool suppressed) {
            if (button != kAlertFirstButtonReturn) return;
            if (suppressed) storeBool("LogPrompt", false);
            logPathChosen_ = true;
            QTimer::singleShot(0, this, &AppDelegate::startCancelHit);
        });
        return;
    }
    startScan();
}

void AppDelegate::startScan() {
    reapScan();  // a finished scan whose thread has not been joined yet
    setStatus("");
    results_.clear();
    auto tapOwned = std::make_unique<ResultsTap>(std::make_unique<TextPrinter>(), results_);
    ResultsTap* tap = tapOwned.get();
    auto log = std::make_unique<LogWriter>(std::move(tapOwned), [this](const Alert& a) { alertFromScan(a); });
    logPath_ = settings_.expandedLogPath();
    if (!acceptLogTarget(logPath_)) return;
    if (auto alert = log->openLog(fullPath(logPath_))) {
        displayAlert(alert->title, alert->text, true);
        return;
    }
    log_ = std::move(log);
    tap_ = tap;
    total_ = 0;
    currentFolder_.clear();
    scanClock_.start();

    startTitle_ = kCancelTitle;
    okToStart_ = true;
    okToViewLog_ = false;
    okToReset_ = false;
    running_ = true;
    setActivityMask(0);
    changed();

    ScanCallbacks callbacks;
    callbacks.setStatus = [this](const std::string& text, bool wait) { statusFromScan(text, wait); };
    callbacks.done = [this](bool wasCancelled) {
        QMetaObject::invokeMethod(
            this, [this, wasCancelled] { done(wasCancelled); }, Qt::BlockingQueuedConnection);
    };
    // The log is the same for any number of jobs; use every processor.
    const unsigned jobs = std::max(1u, std::thread::hardware_concurrency());
    scan_ = std::make_unique<WorkThread>(selection_, settings_, *log_, std::move(callbacks), jobs);
    // The result cache, opened as the command line opens it. One that cannot
    // be used is named once and the scan goes on without it. The decoders'
    // versions shape only verified results, and asking loads the decoders.
    const bool verifies = settings_.stringFromKey("Verify") != "off" && settings_.boolFromKey(kCacheKey);
    std::string cacheFile = Settings::expandTilde(settings_.stringFromKey(kCacheFileKey));
    if (!cacheFile.empty()) cacheFile = fullPathIfResolvable(cacheFile).value_or(cacheFile);
    cache_ = ResultStore::forScan(
        settings_, cacheFile, -1, ResultStore::thisProgram(),
        verifies ? verify::libraryVersions() : std::string(),
        [this](const std::string& path, const std::string& reason) {
            const std::string text = fmt::format("{}: {}", text::escapePath(path), reason);
            QMetaObject::invokeMethod(
                this, [this, text] { displayAlert(kCacheAlertTitle, text, false); }, Qt::QueuedConnection);
        });
    scan_->setResultCache(cache_.get());
    scanThread_ = std::thread([scan = scan_.get()] { scan->main(); });
}

void AppDelegate::reapScan() {
    if (scanThread_.joinable()) scanThread_.join();
    tap_ = nullptr;
    scan_.reset();
    cache_.reset();
    log_.reset();
}

void AppDelegate::statusFromScan(const std::string& text, bool wait) {
    // The total is known once analysis begins: "Analyzing file N of TOTAL".
    if (!wait && total_ == 0) {
        const size_t of = text.rfind(" of ");
        if (of != std::string::npos) total_ = std::strtoull(text.c_str() + of + 4, nullptr, 10);
    }
    if (wait) {
        static constexpr std::string_view kExamining = "Examining folder ";
        QMetaObject::invokeMethod(
            this,
            [this, text] {
                if (text.rfind(kExamining, 0) == 0) currentFolder_ = text.substr(kExamining.size());
                setStatus(text);
            },
            Qt::BlockingQueuedConnection);
        return;
    }
    {
        std::lock_guard lock(statusMutex_);
        latestStatus_ = text;
    }
    if (statusPosted_.exchange(true)) return;
    QMetaObject::invokeMethod(
        this,
        [this] {
            statusPosted_ = false;
            std::string latest;
            {
                std::lock_guard lock(statusMutex_);
                latest = latestStatus_;
            }
            if (running_) setStatus(latest);
        },
        Qt::QueuedConnection);
}

void AppDelegate::alertFromScan(const Alert& alert) {
    // The writer waits until the user has dismissed the alert.
    std::promise<void> dismissed;
    auto wait = dismissed.get_future();
    QMetaObject::invokeMethod(
        this, [&] { displayAlert(alert.title, alert.text, true, [&dismissed] { dismissed.set_value(); }); },
        Qt::QueuedConnection);
    wait.wait();
}

AppDelegate::Progress AppDelegate::progress() const {
    Progress p;
    if (!scan_) return p;
    // The bar counts files logged; the status line counts files begun, so
    // both are shown, each named.
    p.begun = scan_->progress();
    p.done = log_ ? std::min(log_->filesHandled(), p.begun) : 0;
    p.total = total_.load();
    const double seconds = double(scanClock_.elapsed()) / 1000.0;
    if (seconds > 0.5 && p.done) {
        p.rate = double(p.done) / seconds;
        if (p.total >= p.done) p.secondsLeft = double(p.total - p.done) / p.rate;
    }
    p.current = tap_ ? tap_->lastPath() : std::string();
    if (p.current.empty()) p.current = currentFolder_;
    return p;
}

std::string AppDelegate::progressText(const Progress& p) {
    if (p.total == 0) return "Counting files\u2026";
    std::string text = fmt::format("{} of {} files logged", p.done, p.total);
    if (p.begun > p.done) text += fmt::format(" \u00b7 {} begun", p.begun);
    if (p.rate > 0) text += fmt::format(" \u00b7 {:.0f} files/s", p.rate);
    if (p.secondsLeft >= 0) {
        const auto s = uint64_t(p.secondsLeft + 0.5);
        text += s >= 3600 ? fmt::format(" \u00b7 {}:{:02}:{:02} left", s / 3600, s / 60 % 60, s % 60)
                          : fmt::format(" \u00b7 {}:{:02} left", s / 60, s % 60);
    }
    return text;
}

void AppDelegate::done(bool wasCancelled) {
    results_.flush();
    const uint64_t files = scan_ ? scan_->progress() : 0;
    const uint64_t errors = log_ ? log_->errorTotal() : 0;
    const uint64_t unreadable = scan_ ? scan_->unreadable() : 0;
    if (log_) log_->closeLog();
    clrActivityMask(0);
    running_ = false;  // so that the idle state below is entered in full
    cancelled();
    setStatus(wasCancelled ? kCancelledStatus : doneStatus(files, errors, unreadable));
    validatePath();
    // The scan thread returns once this call is over; join it on the next turn.
    QTimer::singleShot(0, this, &AppDelegate::reapScan);
}

void AppDelegate::cancelled() {
    selection_ = {};
    okToReset_ = false;
    okToStart_ = true;
    startTitle_ = kStartTitle;
    getOKToStartStatus();
    validatePath();
    setStatus(kDragStatus);
    logPathChosen_ = false;
    changed();
}

void AppDelegate::viewLog() {
    logPath_ = settings_.expandedLogPath();
    if (running_ || logPath_.empty()) return;
    QFile file(QString::fromStdString(logPath_));
    if (kindOf(logPath_) != Kind::Other || !file.open(QIODevice::ReadOnly)) {
        displayAlert(kReadErrorTitle, kReadErrorText, true);
        return;
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        displayAlert(kReadErrorTitle, kReadErrorText, true);
        return;
    }
    // A byte-order mark names the encoding; otherwise UTF-8 when the bytes
    // are valid UTF-8, else ISO Latin-1.
    QString text;
    if (auto bom = QStringConverter::encodingForData(bytes)) {
        QStringDecoder decoder(*bom);
        text = decoder(bytes);
    } else {
        QStringDecoder decoder(QStringDecoder::Utf8);
        text = decoder(bytes);
        if (decoder.hasError()) text = QString::fromLatin1(bytes);
    }
    platform_.showLog(text.toStdString());
}

void AppDelegate::resetSels() {
    if (running_) return;
    selection_ = {};
    displayDragStatus();
}

void AppDelegate::resetWarnings() {
    storeBool("LogPrompt", true);
    storeBool("FirstTimeUsage", true);
}

void AppDelegate::showHelp(const std::string& page) {
    const QString file = QString::fromStdString(helpFolder_ + "/" + page + ".html");
    platform_.openUrl(QUrl::fromLocalFile(file).toString().toStdString());
}

bool AppDelegate::menuItemEnabled(int tag) const {
    if (tag == kViewLogMenuTag) return !logViewerRunning_ && okToViewLog_;
    return logViewerRunning_;
}

void AppDelegate::setLogViewerRunning(bool on) {
    if (logViewerRunning_ == on) return;
    logViewerRunning_ = on;
    changed();
}

void AppDelegate::setStatus(const std::string& text) {
    status_ = text;
    changed();
}

void AppDelegate::displayAlert(const std::string& title, const std::string& text, bool beep,
                               std::function<void()> dismissed) {
    if (beep) platform_.beep();
    AlertRequest r{title, text, {}, AlertRequest::Style::Warning, {}};
    platform_.showAlert(r, [dismissed = std::move(dismissed)](int, bool) {
        if (dismissed) dismissed();
    });
}

void AppDelegate::setActivityMask(uint64_t bits) {
    if (platform_.toolkitVersion() <= kActivityToolkitVersion) return;
    activityMask_ |= bits;
    updateActivity();
}

void AppDelegate::clrActivityMask(uint64_t bits) {
    if (platform_.toolkitVersion() <= kActivityToolkitVersion) return;
    activityMask_ &= ~bits;
    updateActivity();
}

// Start and done pass 0, so a scan holds no activity: the behaviour kept as
// it has always been, with the machinery ready for a reason to hold one.
void AppDelegate::updateActivity() {
    if (activityMask_ != 0 && !activityObject_) {
        activityObject_ = platform_.beginActivity(kActivityOptions, kActivityReason);
    } else if (activityMask_ == 0 && activityObject_) {
        platform_.endActivity(*activityObject_);
        activityObject_.reset();
    }
}

}  // namespace sondrel::app
