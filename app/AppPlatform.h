#pragma once
// The desktop services the controller needs, behind a small interface so that
// the controller's logic runs (and is tested) without any widget: a beep,
// alerts shown as sheets on the main window, the save panel, opening a URL in
// the browser, handing the log text to the viewer, and the process-activity
// calls that keep a lengthy job from being throttled.
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sondrel::app {

// Button codes of an alert's completion: the first button is 1000, the
// second 1001, and so on.
constexpr int kAlertFirstButtonReturn = 1000;

struct AlertRequest {
    enum class Style { Warning, Informational };
    std::string title;
    std::string text;
    std::vector<std::string> buttons;  // first is the default; empty means a single "OK"
    Style style = Style::Warning;
    std::string suppressionTitle;  // empty: no check box
};

class AppPlatform {
  public:
    // Completion of an alert: the button code and whether the check box was ticked.
    using AlertDone = std::function<void(int button, bool suppressed)>;

    virtual ~AppPlatform() = default;

    virtual void beep() = 0;
    // Shows the alert window-modally and returns at once; `done` runs when it closes.
    virtual void showAlert(const AlertRequest& request, AlertDone done) = 0;
    // Modal save panel: the chosen path, or nullopt when cancelled.
    virtual std::optional<std::string> savePanel(const std::string& title,
                                                 const std::vector<std::string>& types,
                                                 const std::string& startPath) = 0;
    virtual void openUrl(const std::string& url) = 0;
    // Modal open panel for folders (`folders`) or audio files: the chosen
    // paths, empty when cancelled.
    virtual std::vector<std::string> openPanel(const std::string& title, bool folders) = 0;
    // Gives the log text to the log viewer and brings it to the front.
    virtual void showLog(const std::string& text) = 0;

    // The toolkit version number some behaviour is gated on.
    virtual int toolkitVersion() const = 0;
    // Begins a process activity (with the given option bits and reason) and
    // returns its token; endActivity ends it.
    virtual uint64_t beginActivity(uint64_t options, const std::string& reason) = 0;
    virtual void endActivity(uint64_t token) = 0;
};

}  // namespace sondrel::app
