#pragma once
// The About window: the program's name, version (with build and processor
// architecture) and short copyright notice on a borderless rounded panel,
// centred on the screen; it hides when it loses focus or on Escape.
#include <QObject>

#include <string>

class QLabel;

namespace sondrel::app {

class WindowWithNoTitlebar;

class AboutWindowController : public QObject {
    Q_OBJECT

  public:
    static constexpr const char* kCopyright =
        "Copyright \u00a9 2026 The Sondrel authors. All rights reserved.";

    explicit AboutWindowController(QObject* parent = nullptr);
    ~AboutWindowController() override;

    // "Version %@ (%@) [%@]".
    static std::string allocVersionString();
    // The copyright notice up to its first full stop.
    static std::string shortCopyright(const std::string& notice);

    void showWindow();
    void closeWindow();
    WindowWithNoTitlebar* window() const { return window_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void buildAbout();
    WindowWithNoTitlebar* window_;
    QLabel* title_;
    QLabel* version_;
    QLabel* copyright_;
};

}  // namespace sondrel::app
