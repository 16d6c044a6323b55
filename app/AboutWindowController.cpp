#include "app/AboutWindowController.h"

#include <QEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QScreen>
#include <QVBoxLayout>

#include "app/AppDelegate.h"
#include "app/RoundedView.h"
#include "app/WindowWithNoTitlebar.h"
#include "core/BuildInfo.h"

namespace sondrel::app {

AboutWindowController::AboutWindowController(QObject* parent)
    : QObject(parent),
      window_(new WindowWithNoTitlebar),
      title_(new QLabel),
      version_(new QLabel),
      copyright_(new QLabel) {
    window_->setWindowFlag(Qt::Tool);
    window_->setUseWindowColour(true);
    window_->setWindowTitle("About");
    window_->resize(340, 170);
    QFont big = title_->font();
    big.setPointSize(big.pointSize() + 8);
    big.setBold(true);
    title_->setFont(big);
    auto* layout = new QVBoxLayout(window_->contentView());
    layout->setContentsMargins(24, 20, 24, 20);
    for (QLabel* l : {title_, version_, copyright_}) {
        l->setAlignment(Qt::AlignCenter);
        layout->addWidget(l);
    }
    copyright_->setWordWrap(true);
    window_->installEventFilter(this);
    buildAbout();
}

AboutWindowController::~AboutWindowController() {
    delete window_;
}

std::string AboutWindowController::allocVersionString() {
    return AppDelegate::versionString();
}

std::string AboutWindowController::shortCopyright(const std::string& notice) {
    const auto dot = notice.find('.');
    return dot == std::string::npos ? notice : notice.substr(0, dot);
}

void AboutWindowController::buildAbout() {
    title_->setText(build::kName);
    version_->setText(QString::fromStdString(allocVersionString()));
    copyright_->setText(QString::fromStdString(shortCopyright(kCopyright)));
}

void AboutWindowController::showWindow() {
    if (QScreen* s = QGuiApplication::primaryScreen()) {
        QRect frame(QPoint(), window_->size());
        frame.moveCenter(s->availableGeometry().center());
        window_->setFrame(frame);
    }
    window_->show();
    window_->raise();
    window_->activateWindow();
}

void AboutWindowController::closeWindow() {
    window_->close();
}

// Losing focus or Escape puts the window away.
bool AboutWindowController::eventFilter(QObject* watched, QEvent* event) {
    if (watched == window_) {
        if (event->type() == QEvent::WindowDeactivate) window_->hide();
        if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(event)->key() == Qt::Key_Escape)
            window_->hide();
    }
    return QObject::eventFilter(watched, event);
}

}  // namespace sondrel::app
