#include "app/LogViewer.h"

#include <QCloseEvent>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QVBoxLayout>

#include <sstream>

#include "app/AppDelegate.h"

namespace sondrel::app {

LogViewer::LogViewer(AppDelegate& delegate, QWidget* parent)
    : QWidget(parent, Qt::Window),
      delegate_(delegate),
      textView_(new QPlainTextEdit(this)),
      findField_(new QLineEdit(this)),
      state_(delegate, [this](const QString& text) { textView_->setPlainText(text); }) {
    setWindowTitle(kWindowTitle);
    resize(960, 560);
    textView_->setReadOnly(true);
    // Long lines wrap rather than being cut or elided. A heading is a full
    // path and the file name comes last, so an unwrapped heading hides the
    // name past the right edge; eliding the middle would show the name but
    // hide folders from view while Find and copying still see them, and the
    // viewer is meant to show the log's own text. Wrapping keeps every byte
    // on screen; a path without spaces breaks anywhere.
    textView_->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    textView_->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    textView_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setFixedFont();

    findField_->setPlaceholderText("Find");
    findField_->setClearButtonEnabled(true);
    findField_->setMaximumWidth(260);
    auto* previous = new QPushButton("<", this);
    auto* next = new QPushButton(">", this);
    previous->setToolTip("Find previous");
    next->setToolTip("Find next");
    auto* smallerButton = new QPushButton("Smaller", this);
    auto* biggerButton = new QPushButton("Bigger", this);
    for (auto* b : {previous, next, smallerButton, biggerButton}) b->setAutoDefault(false);

    auto* bar = new QHBoxLayout;
    bar->addWidget(findField_);
    bar->addWidget(previous);
    bar->addWidget(next);
    bar->addStretch(1);
    bar->addWidget(smallerButton);
    bar->addWidget(biggerButton);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    layout->addLayout(bar);
    layout->addWidget(textView_, 1);

    connect(next, &QPushButton::clicked, this, [this] { findNext(false); });
    connect(previous, &QPushButton::clicked, this, [this] { findNext(true); });
    connect(findField_, &QLineEdit::returnPressed, this, [this] { findNext(false); });
    // Incremental: each edit searches again from the start of the current match.
    connect(findField_, &QLineEdit::textEdited, this, [this] {
        QTextCursor c = textView_->textCursor();
        c.setPosition(c.selectionStart());
        textView_->setTextCursor(c);
        findNext(false);
    });
    connect(smallerButton, &QPushButton::clicked, this, &LogViewer::smaller);
    connect(biggerButton, &QPushButton::clicked, this, &LogViewer::bigger);
    new QShortcut(QKeySequence::Find, this, [this] {
        findField_->setFocus();
        findField_->selectAll();
    });
    new QShortcut(QKeySequence::FindNext, this, [this] { findNext(false); });
    new QShortcut(QKeySequence::FindPrevious, this, [this] { findNext(true); });
    new QShortcut(QKeySequence::ZoomIn, this, [this] { bigger(); });
    new QShortcut(QKeySequence::ZoomOut, this, [this] { smaller(); });
    new QShortcut(QKeySequence::Close, this, [this] { closeWindow(); });
}

void LogViewer::setFontSize(int size) {
    if (size <= 0) return;
    QFont font = textView_->font();
    font.setPointSize(size);
    textView_->setFont(font);
}

void LogViewer::setFixedFont() {
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    const int size = state_.fontSize();
    if (size > 0) font.setPointSize(size);
    textView_->setFont(font);
}

void LogViewer::showWindow() {
    delegate_.setLogViewerRunning(true);
    if (state_.windowDidLoad()) {
        setFontSize(state_.fontSize());
        restoreFrame();
    }
    textView_->moveCursor(QTextCursor::Start);
    textView_->ensureCursorVisible();
    show();
    raise();
    activateWindow();
}

bool LogViewer::findNext(bool backwards) {
    const QString needle = findField_->text();
    if (needle.isEmpty()) return false;
    const QTextDocument::FindFlags flags =
        backwards ? QTextDocument::FindBackward : QTextDocument::FindFlags();
    if (textView_->find(needle, flags)) return true;
    // Wrap around once.
    const QTextCursor keep = textView_->textCursor();
    textView_->moveCursor(backwards ? QTextCursor::End : QTextCursor::Start);
    if (textView_->find(needle, flags)) return true;
    textView_->setTextCursor(keep);
    return false;
}

void LogViewer::closeEvent(QCloseEvent* event) {
    windowWillClose();
    QWidget::closeEvent(event);
}

void LogViewer::windowWillClose() {
    saveFrame();
    textView_->clear();
    delegate_.setLogViewerRunning(false);
}

void LogViewer::saveFrame() {
    const QRect g = geometry();
    std::ostringstream out;
    out << g.x() << ' ' << g.y() << ' ' << g.width() << ' ' << g.height();
    delegate_.storeString(kFrameKey, out.str());
}

void LogViewer::restoreFrame() {
    std::istringstream in(delegate_.settings().stringFromKey(kFrameKey));
    int x, y, w, h;
    if (in >> x >> y >> w >> h && w > 100 && h > 100) setGeometry(x, y, w, h);
}

}  // namespace sondrel::app
