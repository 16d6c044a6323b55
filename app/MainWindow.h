#pragma once
// The main window: the drop target, the log-path field with its Choose
// button, Start/Cancel, View Log and Reset, the status line and the menus,
// on a borderless rounded panel. It shows the controller's state and passes
// every action to it.
#include "app/WindowWithNoTitlebar.h"

class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;

namespace sondrel::app {

class AboutWindowController;
class AppDelegate;
class ImageView;
class LogViewer;
class OptionsSheet;

class MainWindow : public WindowWithNoTitlebar {
    Q_OBJECT

  public:
    MainWindow(AppDelegate& delegate, LogViewer& viewer, AboutWindowController& about);

    // Whether the first showing may present the first-use note (automated
    // runs turn it off).
    void setFirstUseNoteAllowed(bool on) { firstUseNoteAllowed_ = on; }
    // Quits unless a scan runs.
    void quit();

    QPushButton* startCancelButton() const { return startCancel_; }

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
    QMenu* logViewerMenu_ = nullptr;
    bool firstUseNoteAllowed_ = true;
    bool shown_ = false;
};

}  // namespace sondrel::app
