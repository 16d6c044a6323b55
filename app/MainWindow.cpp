#include "app/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "app/AboutWindowController.h"
#include "app/AppDelegate.h"
#include "app/ImageView.h"
#include "app/LogViewer.h"
#include "app/OptionsSheet.h"
#include "app/ResultsWindow.h"
#include "app/RoundedView.h"
#include "core/BuildInfo.h"

namespace sondrel::app {

MainWindow::MainWindow(AppDelegate& delegate, LogViewer& viewer, AboutWindowController& about)
    : delegate_(delegate), viewer_(viewer), about_(about) {
    setWindowTitle(build::kName);
    QWidget* panel = contentView();
    options_ = new OptionsSheet(delegate_, this);
    target_ = new ImageView(delegate_, panel);
    filePath_ = new QLineEdit(panel);
    choose_ = new QPushButton("Choose\u2026", panel);
    startCancel_ = new QPushButton(AppDelegate::kStartTitle, panel);
    viewLog_ = new QPushButton("View Log", panel);
    reset_ = new QPushButton("Reset", panel);
    statusBar_ = new QLabel(panel);
    addFolder_ = new QPushButton("Add Folder\u2026", panel);
    addFiles_ = new QPushButton("Add Files\u2026", panel);
    progress_ = new QProgressBar(panel);
    current_ = new QLabel(panel);
    progressTimer_ = new QTimer(this);
    progressTimer_->setInterval(250);
    addFolder_->setToolTip("Choose a folder to scan, as if dropped on the target");
    addFiles_->setToolTip("Choose audio files to scan, as if dropped on the target");
    progress_->setTextVisible(true);
    progress_->setVisible(false);
    current_->setVisible(false);
    current_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    current_->setTextInteractionFlags(Qt::NoTextInteraction);

    filePath_->setToolTip("The log file; every scan replaces its contents");
    choose_->setToolTip("Choose the log file");
    viewLog_->setToolTip("Show the log file");
    reset_->setToolTip("Clear the selection");
    startCancel_->setDefault(true);
    statusBar_->setTextInteractionFlags(Qt::NoTextInteraction);
    statusBar_->setMinimumWidth(100);
    statusBar_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);

    QFont titleFont = font();
    titleFont.setPointSize(titleFont.pointSize() + 6);
    titleFont.setBold(true);
    auto* title = new QLabel(build::kName, panel);
    title->setFont(titleFont);

    auto* right = new QGridLayout;
    right->addWidget(title, 0, 0, 1, 3);
    right->addWidget(new QLabel("Log file:", panel), 1, 0, 1, 3);
    auto* pathRow = new QHBoxLayout;
    pathRow->addWidget(filePath_, 1);
    pathRow->addWidget(choose_);
    right->addLayout(pathRow, 2, 0, 1, 3);
    right->addWidget(startCancel_, 3, 0);
    right->addWidget(viewLog_, 3, 1);
    right->addWidget(reset_, 3, 2);
    auto* addRow = new QHBoxLayout;
    addRow->addWidget(addFolder_);
    addRow->addWidget(addFiles_);
    addRow->addStretch(1);
    right->addLayout(addRow, 4, 0, 1, 3);
    right->setRowStretch(5, 1);

    auto* middle = new QHBoxLayout;
    middle->addWidget(target_);
    middle->addSpacing(12);
    middle->addLayout(right, 1);

    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(14, 6, 14, 10);
    buildMenus(panel);
    layout->addLayout(middle, 1);
    layout->addWidget(statusBar_);
    layout->addWidget(progress_);
    layout->addWidget(current_);

    connect(choose_, &QPushButton::clicked, this, [this] { delegate_.promptForPath(); });
    connect(filePath_, &QLineEdit::editingFinished, this,
            [this] { delegate_.setLogPathText(filePath_->text().toStdString()); });
    connect(startCancel_, &QPushButton::clicked, this, [this] { delegate_.startCancelHit(); });
    connect(viewLog_, &QPushButton::clicked, this, [this] { delegate_.viewLog(); });
    connect(reset_, &QPushButton::clicked, this, [this] { delegate_.resetSels(); });
    connect(addFolder_, &QPushButton::clicked, this, [this] { delegate_.addFolder(); });
    connect(addFiles_, &QPushButton::clicked, this, [this] { delegate_.addFiles(); });
    connect(progressTimer_, &QTimer::timeout, this, &MainWindow::updateProgress);
    connect(&delegate_, &AppDelegate::stateChanged, this, &MainWindow::refresh);

    resize(600, 250);
    refresh();
}

// The path field may still hold the focus: losing it while the window is
// torn down must not reach this (already destroyed) part of the object.
MainWindow::~MainWindow() {
    filePath_->disconnect(this);
}

void MainWindow::buildMenus(QWidget* panel) {
    auto* bar = new QMenuBar(panel);
    bar->setNativeMenuBar(false);
    bar->setStyleSheet("QMenuBar { background: transparent; }");
    panel->layout()->setMenuBar(bar);

    QMenu* app = bar->addMenu(build::kName);
    app->addAction("About Sondrel", this, [this] { about_.showWindow(); });
    app->addSeparator();
    app->addAction("Options\u2026", QKeySequence::Preferences, this, [this] { options_->showPrefs(); });
    app->addAction("Reset Warnings", this, [this] { delegate_.resetWarnings(); });
    app->addSeparator();
    app->addAction("Quit", QKeySequence::Quit, this, [this] { quit(); });

    QMenu* file = bar->addMenu("File");
    addFolderAction_ = file->addAction("Add Folder\u2026", QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O),
                                       this, [this] { delegate_.addFolder(); });
    addFilesAction_ =
        file->addAction("Add Files\u2026", QKeySequence::Open, this, [this] { delegate_.addFiles(); });
    file->addSeparator();
    file->addAction("Results", QKeySequence(Qt::CTRL | Qt::Key_R), this, [this] { showResults(); });

    logViewerMenu_ = bar->addMenu("Log Viewer");
    QAction* view = logViewerMenu_->addAction("View Log", QKeySequence(Qt::CTRL | Qt::Key_L), this,
                                              [this] { delegate_.viewLog(); });
    view->setData(AppDelegate::kViewLogMenuTag);
    logViewerMenu_->addSeparator();
    logViewerMenu_->addAction("Bigger", QKeySequence::ZoomIn, this, [this] { viewer_.bigger(); });
    logViewerMenu_->addAction("Smaller", QKeySequence::ZoomOut, this, [this] { viewer_.smaller(); });
    logViewerMenu_->addAction("Close Log Viewer", this, [this] { viewer_.closeWindow(); });
    connect(logViewerMenu_, &QMenu::aboutToShow, this, &MainWindow::updateLogViewerMenu);

    QMenu* help = bar->addMenu("Help");
    help->addAction("Sondrel Help", QKeySequence::HelpContents, this, [this] { delegate_.showMainHelp(); });
    help->addAction("Options Help", this, [this] { delegate_.showOptionsHelp(); });
    help->addAction("Release Notes", this, [this] { delegate_.releaseNotes(); });
}

void MainWindow::updateLogViewerMenu() {
    for (QAction* a : logViewerMenu_->actions()) {
        if (a->isSeparator()) continue;
        a->setEnabled(delegate_.menuItemEnabled(a->data().toInt()));
    }
}

void MainWindow::refresh() {
    startCancel_->setText(QString::fromStdString(delegate_.startTitle()));
    startCancel_->setEnabled(delegate_.okToStart());
    viewLog_->setEnabled(delegate_.okToViewLog());
    reset_->setEnabled(delegate_.okToReset());
    const QString status = QString::fromStdString(delegate_.statusText());
    statusBar_->setText(status);
    statusBar_->setToolTip({});
    const QString path = QString::fromStdString(delegate_.logPathSetting());
    if (!filePath_->hasFocus() && filePath_->text() != path) filePath_->setText(path);
    filePath_->setEnabled(!delegate_.running());
    choose_->setEnabled(!delegate_.running());
    addFolder_->setEnabled(!delegate_.running());
    addFiles_->setEnabled(!delegate_.running());
    addFolderAction_->setEnabled(!delegate_.running());
    addFilesAction_->setEnabled(!delegate_.running());
    if (delegate_.running() != wasRunning_) {
        wasRunning_ = delegate_.running();
        progress_->setVisible(wasRunning_);
        current_->setVisible(wasRunning_);
        if (wasRunning_) {
            progress_->setRange(0, 0);  // busy until the walk has counted the files
            current_->clear();
            progressTimer_->start();
            showResults();
        } else {
            progressTimer_->stop();
        }
    }
    // The bar follows the status line as it changes, not only on its timer:
    // a busy event loop can hold the timer back for seconds, and the two
    // would show counts far apart.
    if (wasRunning_ && (!progressShown_.isValid() || progressShown_.elapsed() >= 100)) updateProgress();
    // Shortcuts work with the menu closed, so its enabling follows the state too.
    if (logViewerMenu_) updateLogViewerMenu();
}

void MainWindow::showResults() {
    if (!results_) return;
    results_->show();
    results_->raise();
}

void MainWindow::updateProgress() {
    progressShown_.start();
    const auto p = delegate_.progress();
    // The bar counts in thousandths so that any total fits its int range.
    if (p.total) {
        progress_->setRange(0, 1000);
        progress_->setValue(int(std::min<uint64_t>(1000, p.done * 1000 / p.total)));
    }
    progress_->setFormat(QString::fromStdString(AppDelegate::progressText(p)));
    // Elided in the middle, the file name at the end stays visible.
    const QString current = QString::fromStdString(p.current);
    current_->setText(current_->fontMetrics().elidedText(current, Qt::ElideMiddle, current_->width()));
    current_->setToolTip(current);
}

void MainWindow::quit() {
    if (!delegate_.applicationShouldTerminate()) return;
    viewer_.close();
    about_.closeWindow();
    if (results_) results_->close();
    QApplication::quit();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (!delegate_.applicationShouldTerminate()) return event->ignore();
    event->accept();
    QTimer::singleShot(0, this, &MainWindow::quit);
}

void MainWindow::showEvent(QShowEvent* event) {
    WindowWithNoTitlebar::showEvent(event);
    if (shown_) return;
    shown_ = true;
    if (firstUseNoteAllowed_) QTimer::singleShot(0, this, [this] { delegate_.windowDidBecomeMain(); });
}

}  // namespace sondrel::app
