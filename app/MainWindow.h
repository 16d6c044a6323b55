#pragma once
// The main window: the drop target, the log-path field with its Choose
// button, Start/Cancel, View Log and Reset, the status line and the menus,
// on a borderless rounded panel. It shows the controller's state and passes
// every action to it.
#include <QElapsedTimer>

#include "app/WindowWithNoTitlebar.h"

class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QProgressBar;
class QPushButton;
class QTimer;

namespace sondrel::app {

class AboutWindowController;
class AppDelegate;
class ImageView;
class LogViewer;
class OptionsSheet;
class ResultsWindow;

class MainWindow : public WindowWithNoTitlebar {
    Q_OBJECT

  public:
    MainWindow(AppDelegate& delegate, LogViewer& viewer, AboutWindowController& about);
    ~MainWindow() override;

    // Whether the first showing may present the first-use note (automated
    // runs turn it off).
    void setFirstUseNoteAllowed(bool on) { firstUseNoteAllowed_ = on; }
    // Quits unless a scan runs.
    void quit();

    QPushButton* startCancelButton() const { return startCancel_; }
    ImageView* target() const { return target_; }
    QProgressBar* progressBar() const { return progress_; }
    QLabel* currentLabel() const { return current_; }
    // The results window opened by the "Results" menu and at each Start (not owned).
    void setResultsWindow(ResultsWindow* results) { results_ = results; }
    void showResults();
    // Shows the scan's progress now (a timer calls it while scanning).
    void updateProgress();

  protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;

  private:
    void buildMenus(QWidget* panel);
    void refresh();
    void updateLogViewerMenu();

    AppDelegate& delegate_;
    LogViewer& viewer_;
    AboutWindowController& about_;
    OptionsSheet* options_;
    ImageView* target_;
    QLineEdit* filePath_;
    QPushButton* choose_;
    QPushButton* startCancel_;
    QPushButton* viewLog_;
    QPushButton* reset_;
    QLabel* statusBar_;
    QPushButton* addFolder_;
    QPushButton* addFiles_;
    QProgressBar* progress_;
    QLabel* current_;
    QTimer* progressTimer_;
    QElapsedTimer progressShown_;
    ResultsWindow* results_ = nullptr;
    bool wasRunning_ = false;
    QMenu* logViewerMenu_ = nullptr;
    QAction* addFolderAction_ = nullptr;
    QAction* addFilesAction_ = nullptr;
    bool firstUseNoteAllowed_ = true;
    bool shown_ = false;
};

}  // namespace sondrel::app
