// sondrel-gui: the desktop program. Paths given on the command line count as
// a drop on the target. For unattended runs (demonstrations, screenshots):
//   --log FILE       use FILE as the log, as if chosen with Choose (no overwrite question)
//   --start          press Start; when the scan ends, open the log viewer
//   --grab-main PNG  save a picture of the main window, then quit
//   --grab-log PNG   save a picture of the log viewer, then quit
//   --grab-progress PNG   the main window while the scan runs
//   --grab-results PNG    the results window when the scan has ended
//   --grab-damage PNG     the results window filtered to damage
//   --grab-summary PNG    the summary picture alone, when the scan has ended
// Any of these also skips the first-use note.
#include <QApplication>
#include <QComboBox>
#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QPixmap>
#include <QScreen>
#include <QTimer>
#include <QTreeView>

#include <memory>

#include "app/AboutWindowController.h"
#include "app/AppDelegate.h"
#include "app/LogViewer.h"
#include "app/MainWindow.h"
#include "app/QtPlatform.h"
#include "app/ResultsWindow.h"
#include "core/BuildInfo.h"
#include "formats/Checkers.h"
#include "verify/Verify.h"

using namespace sondrel::app;

namespace {

// The help pages lie beside the program in a build, under share/ once installed.
QString helpFolder() {
    const QString here = QCoreApplication::applicationDirPath();
    for (const QString& candidate : {here + "/help", here + "/../share/sondrel/help"})
        if (QFileInfo(candidate + "/" + AppDelegate::kMainHelpPage + ".html").exists())
            return QDir(candidate).absolutePath();
    return here + "/help";
}

bool grab(QWidget* window, const QString& file) {
    QScreen* screen = window->screen();
    if (!screen || file.isEmpty()) return false;
    return screen->grabWindow(window->winId()).save(file, "PNG");
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    sondrel::installCheckers();
    QApplication::setApplicationName(sondrel::build::kName);
    QApplication::setApplicationVersion(sondrel::build::kVersion);
    // Ties the windows to the installed desktop entry (its name and icon).
    QGuiApplication::setDesktopFileName("org.sondrel.Sondrel");
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription("Checks audio files for structural damage and metadata problems.");
    parser.addHelpOption();
    parser.addVersionOption();
    QCommandLineOption logOption("log", "Use FILE as the log file, as if chosen with Choose.", "FILE");
    QCommandLineOption startOption("start", "Press Start; when the scan ends, open the log viewer.");
    QCommandLineOption grabMain("grab-main", "Save a picture of the main window to PNG, then quit.", "PNG");
    QCommandLineOption grabLog("grab-log", "Save a picture of the log viewer to PNG, then quit.", "PNG");
    QCommandLineOption grabProgress("grab-progress", "Save a picture of the main window during the scan.",
                                    "PNG");
    QCommandLineOption grabResults("grab-results", "Save a picture of the results window after the scan.",
                                   "PNG");
    QCommandLineOption grabDamage("grab-damage", "Save a picture of the results filtered to damage.", "PNG");
    QCommandLineOption grabSummary("grab-summary", "Save the summary picture after the scan.", "PNG");
    parser.addOptions(
        {logOption, startOption, grabMain, grabLog, grabProgress, grabResults, grabDamage, grabSummary});
    parser.addPositionalArgument("paths", "Folders and audio files, taken as a drop on the target.",
                                 "[PATH...]");
    parser.process(application);
    const bool automated = parser.isSet(logOption) || parser.isSet(startOption) || parser.isSet(grabMain) ||
                           parser.isSet(grabLog) || parser.isSet(grabResults) || parser.isSet(grabDamage) ||
                           parser.isSet(grabSummary);

    sondrel::verify::install();
    QtPlatform platform;
    AppDelegate delegate(platform, {}, helpFolder().toStdString());
    LogViewer viewer(delegate);
    AboutWindowController about;
    MainWindow window(delegate, viewer, about);
    ResultsWindow results(delegate.results(), platform);
    window.setResultsWindow(&results);
    // Beside the main window rather than over it, so that both can be seen.
    results.move(40, 420);
    platform.setWindow(&window);
    platform.setLogViewer(&viewer);
    window.setFirstUseNoteAllowed(!automated);

    delegate.applicationDidFinishLaunching();
    window.setFrame(QRect(QPoint(120, 100), window.size()));
    window.show();

    if (parser.isSet(logOption))
        delegate.logPathSelected(QFileInfo(parser.value(logOption)).absoluteFilePath().toStdString());
    std::vector<std::string> paths;
    for (const QString& p : parser.positionalArguments()) paths.push_back(p.toStdString());
    if (!paths.empty()) delegate.dropPaths(paths);

    // Without a window manager windows cannot be raised, so each picture is
    // taken before the next window opens: the main window, then the viewer.
    const QString mainPng = parser.value(grabMain), logPng = parser.value(grabLog);
    const bool grabbing = !mainPng.isEmpty() || !logPng.isEmpty();
    int failures = 0;
    auto afterDrawing = [&](auto step) { QTimer::singleShot(700, &application, step); };
    auto grabViewerAndQuit = [&] {
        if (!logPng.isEmpty() && !(viewer.isVisible() && grab(&viewer, logPng))) ++failures;
        if (grabbing) application.exit(failures ? 1 : 0);
    };
    // The results window is drawn into its picture, so nothing over it shows.
    auto grabResultsWindow = [&] {
        const QString all = parser.value(grabResults), damage = parser.value(grabDamage);
        const QString summary = parser.value(grabSummary);
        if (!all.isEmpty() && !results.grab().save(all, "PNG")) ++failures;
        if (!summary.isEmpty() && !results.chart()->grab().save(summary, "PNG")) ++failures;
        if (damage.isEmpty()) return;
        results.severityBox()->setCurrentIndex(int(sondrel::codes::Severity::Damage));
        results.tree()->expandAll();
        // The first problem selected, so that its code's explanation shows.
        const QAbstractItemModel* shown = results.tree()->model();
        results.tree()->setCurrentIndex(shown->index(0, 0, shown->index(0, 0)));
        if (!results.grab().save(damage, "PNG")) ++failures;
    };
    auto grabMainThenViewer = [&](bool openViewer) {
        afterDrawing([&, openViewer] {
            if (!mainPng.isEmpty() && !grab(&window, mainPng)) ++failures;
            grabResultsWindow();
            if (!openViewer) return grabViewerAndQuit();
            delegate.viewLog();
            afterDrawing(grabViewerAndQuit);
        });
    };

    if (parser.isSet(startOption)) {
        auto scanned = std::make_shared<bool>(false);
        QObject::connect(&delegate, &AppDelegate::stateChanged, &application, [&, scanned] {
            if (delegate.running()) *scanned = true;
            if (!*scanned || delegate.running()) return;
            *scanned = false;
            grabMainThenViewer(true);
        });
        QTimer::singleShot(0, &application, [&] { delegate.startCancelHit(); });
        // Mid-scan, once the files are counted and a quarter is logged; taken
        // as the status line changes, so that it and the bar show one moment.
        const QString progressPng = parser.value(grabProgress);
        if (!progressPng.isEmpty()) {
            auto taken = std::make_shared<bool>(false);
            QObject::connect(&delegate, &AppDelegate::stateChanged, &application, [&, taken, progressPng] {
                const auto p = delegate.progress();
                if (*taken || !delegate.running() || p.total == 0 || p.done * 4 < p.total) return;
                *taken = true;
                window.updateProgress();
                window.repaint();
                if (!grab(&window, progressPng)) ++failures;
            });
        }
    } else if (grabbing) {
        grabMainThenViewer(false);
    }
    return application.exec();
}
