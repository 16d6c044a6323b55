#pragma once
// What the log viewer remembers apart from its widgets: text handed over
// before the window was first shown (pending until then, a later text
// replacing an earlier one), whether the one-time set-up has run, and the
// font size kept in the options store under `LogFixedFontSize`, which Smaller
// never takes below 9 and Bigger raises without limit.
#include <QString>

#include <functional>
#include <optional>

namespace sondrel::app {

class AppDelegate;

class LogViewerState {
  public:
    static constexpr int kSmallestFontSize = 9;
    static constexpr const char* kFontSizeKey = "LogFixedFontSize";

    // `apply` puts a text into the text view; `delegate` owns the options store.
    LogViewerState(AppDelegate& delegate, std::function<void(const QString&)> apply);

    // Shows the text now when the window has been loaded, else keeps it for then.
    void setContents(const QString& text);
    // The window's first showing: runs once, and hands over the pending text.
    // Returns true the first time (the caller then does its one-time set-up).
    bool windowDidLoad();
    bool windowLoaded() const { return windowLoaded_; }
    const std::optional<QString>& pendingContent() const { return pendingContent_; }

    int fontSize() const;
    // Each returns the size now stored.
    int bigger();
    int smaller();

  private:
    AppDelegate& delegate_;
    std::function<void(const QString&)> apply_;
    std::optional<QString> pendingContent_;
    bool windowLoaded_ = false;
};

}  // namespace sondrel::app
