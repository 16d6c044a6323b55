#pragma once
// A desktop without a desktop: records beeps, alerts, opened URLs and the
// log text given to the viewer; alerts wait until the test answers them.
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QPushButton>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "app/AboutWindowController.h"
#include "app/AppDelegate.h"
#include "app/AppPlatform.h"
#include "app/LogViewer.h"
#include "app/MainWindow.h"
#include "app/ResultsWindow.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::app::testing {

class FakePlatform : public AppPlatform {
  public:
    int beeps = 0, activitiesBegun = 0;
    std::vector<std::pair<AlertRequest, AlertDone>> alerts;  // the request, and how to answer it
    std::vector<std::string> urls, logs, openPanelAnswer;
    std::optional<std::string> savePanelAnswer;

    void beep() override { ++beeps; }
    void showAlert(const AlertRequest& request, AlertDone done) override {
        alerts.push_back({request, std::move(done)});
    }
    std::optional<std::string> savePanel(const std::string&, const std::vector<std::string>&,
                                         const std::string&) override {
        return savePanelAnswer;
    }
    void openUrl(const std::string& url) override { urls.push_back(url); }
    std::vector<std::string> openPanel(const std::string&, bool) override { return openPanelAnswer; }
    void showLog(const std::string& text) override { logs.push_back(text); }
    int toolkitVersion() const override { return 2500; }
    uint64_t beginActivity(uint64_t, const std::string&) override { return ++activitiesBegun; }
    void endActivity(uint64_t) override {}

    // Closes the oldest open alert with a button code and check-box state.
    void answer(int button, bool suppressed) {
        auto a = std::move(alerts.front());
        alerts.erase(alerts.begin());
        a.second(button, suppressed);
    }
};

// Runs the event loop until `condition` holds or `ms` have passed.
inline bool spinUntil(const std::function<bool()>& condition, int ms = 10000) {
    for (QDeadlineTimer t(ms); !condition(); QCoreApplication::processEvents(QEventLoop::AllEvents, 10))
        if (t.hasExpired()) return false;
    return true;
}

// One turn of the main loop (what a zero-delay timer waits for).
inline void turn() {
    for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
}

inline QPushButton* button(QWidget& w, const QString& text) {
    for (auto* b : w.findChildren<QPushButton*>())
        if (b->text() == text) return b;
    return nullptr;
}

// The windows with their controller, launched, on a desktop that records.
struct Desktop {
    fixtures::TempDir config, data;
    std::string logPath = data.path() + "/log.txt";
    FakePlatform platform;
    AppDelegate delegate{platform, config.path(), ""};
    LogViewer viewer{delegate};
    AboutWindowController about;
    MainWindow window{delegate, viewer, about};
    ResultsWindow results{delegate.results(), platform};
    Desktop() {
        window.setFirstUseNoteAllowed(false);
        window.setResultsWindow(&results);
        delegate.applicationDidFinishLaunching();
        window.show();
    }
    Settings stored() const { return Settings::load(config.path()); }
    // A folder with two audio files (any content) and a text file.
    std::string music() const {
        data.write("music/a.mp3", std::string(300, 'x'));
        data.write("music/B.flac", std::string("not a flac file"));
        data.write("music/notes.txt", std::string("hello"));
        return data.path() + "/music";
    }
    void drop(const std::vector<std::string>& paths) {
        ASSERT_TRUE(delegate.dropPaths(paths));
        turn();
    }
    void waitForScan() {
        ASSERT_TRUE(spinUntil([&] { return !delegate.running(); }));
    }
};

}  // namespace sondrel::app::testing
