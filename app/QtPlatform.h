#pragma once
// The desktop services of AppPlatform on Qt Widgets: alerts are window-modal
// message boxes on the main window (a check box for "do not show again"),
// the save panel is a file dialog, URLs open in the browser, and the log text
// goes to the log viewer. Process activities have no counterpart here: the
// calls are accepted and do nothing, while the controller keeps its gating.
#include <QPointer>
#include <QWidget>

#include "app/AppPlatform.h"

namespace sondrel::app {

class LogViewer;

class QtPlatform : public AppPlatform {
  public:
    // Above every toolkit version the controller gates on: Qt 6 offers all of it.
    static constexpr int kToolkitVersion = 2500;

    void setWindow(QWidget* window) { window_ = window; }
    void setLogViewer(LogViewer* viewer) { viewer_ = viewer; }

    void beep() override;
    void showAlert(const AlertRequest& request, AlertDone done) override;
    std::optional<std::string> savePanel(const std::string& title, const std::vector<std::string>& types,
                                         const std::string& startPath) override;
    void openUrl(const std::string& url) override;
    std::vector<std::string> openPanel(const std::string& title, bool folders) override;
    void showLog(const std::string& text) override;
    int toolkitVersion() const override { return kToolkitVersion; }
    uint64_t beginActivity(uint64_t options, const std::string& reason) override;
    void endActivity(uint64_t token) override;

  private:
    QPointer<QWidget> window_;
    LogViewer* viewer_ = nullptr;
    uint64_t nextActivity_ = 1;
};

}  // namespace sondrel::app
