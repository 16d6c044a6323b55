#pragma once
// The log viewer: the log's text, read-only, in the user's fixed-pitch font
// at the stored size, with Bigger/Smaller and a find bar. The text is dropped
// when the window closes (a log can be large), and the window's place is
// remembered in the options store.
#include <QWidget>

#include "app/LogViewerState.h"

class QLineEdit;
class QPlainTextEdit;

namespace sondrel::app {

class AppDelegate;

class LogViewer : public QWidget {
    Q_OBJECT

  public:
    static constexpr const char* kWindowTitle = "Log Viewer";
    // Where the window's frame is kept.
    static constexpr const char* kFrameKey = "LogViewerWindow";

    explicit LogViewer(AppDelegate& delegate, QWidget* parent = nullptr);

    void setContents(const QString& text) { state_.setContents(text); }
    void showWindow();
    void closeWindow() { close(); }
    void bigger() { setFontSize(state_.bigger()); }
    void smaller() { setFontSize(state_.smaller()); }
    // Applies a size to the view's font; a size the font cannot take leaves it as it is.
    void setFontSize(int size);
    void setFixedFont();

    QPlainTextEdit* textView() const { return textView_; }
    const LogViewerState& state() const { return state_; }
    // Finds the find bar's text after (or before) the selection, wrapping around.
    bool findNext(bool backwards);

  protected:
    void closeEvent(QCloseEvent* event) override;

  private:
    void windowWillClose();
    void saveFrame();
    void restoreFrame();

    AppDelegate& delegate_;
    QPlainTextEdit* textView_;
    QLineEdit* findField_;
    LogViewerState state_;
};

}  // namespace sondrel::app
