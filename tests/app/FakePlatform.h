#pragma once
// A desktop without a desktop: records beeps, alerts, opened URLs and the
// log text given to the viewer; alerts wait until the test answers them.
#include <QCoreApplication>
#include <QElapsedTimer>

#include <functional>
#include <string>
#include <vector>

#include "app/AppPlatform.h"

namespace sondrel::app::testing {

class FakePlatform : public AppPlatform {
  public:
    struct ShownAlert {
        AlertRequest request;
        AlertDone done;
    };

    int beeps = 0;
    std::vector<ShownAlert> alerts;
    std::vector<std::string> urls;
    std::vector<std::string> logs;
    std::optional<std::string> savePanelAnswer;
    std::vector<std::string> savePanelTitles;
    int version = 2500;
    int activitiesBegun = 0, activitiesEnded = 0;

    void beep() override { ++beeps; }
    void showAlert(const AlertRequest& request, AlertDone done) override {
        alerts.push_back({request, std::move(done)});
    }
    std::optional<std::string> savePanel(const std::string& title, const std::vector<std::string>&,
                                         const std::string&) override {
        savePanelTitles.push_back(title);
        return savePanelAnswer;
    }
    void openUrl(const std::string& url) override { urls.push_back(url); }
    std::vector<std::string> openPanelAnswer;
    std::vector<std::string> openPanel(const std::string&, bool) override { return openPanelAnswer; }
    void showLog(const std::string& text) override { logs.push_back(text); }
    int toolkitVersion() const override { return version; }
    uint64_t beginActivity(uint64_t, const std::string&) override { return ++activitiesBegun; }
    void endActivity(uint64_t) override { ++activitiesEnded; }

    // Closes the oldest open alert with a button code and check-box state.
    void answer(int button, bool suppressed) {
        auto a = std::move(alerts.front());
        alerts.erase(alerts.begin());
        a.done(button, suppressed);
    }
};

// Runs the event loop until `condition` holds or `ms` have passed.
inline bool spinUntil(const std::function<bool()>& condition, int ms = 10000) {
    QElapsedTimer t;
    t.start();
    while (!condition()) {
        if (t.elapsed() > ms) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

// One turn of the main loop (what a zero-delay timer waits for).
inline void turn() {
    for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
}

}  // namespace sondrel::app::testing
