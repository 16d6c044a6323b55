#pragma once
// The options sheet: one check box per scan or prompt option and the log
// viewer's font size, each change stored at once in the options store that
// the command line reads too.
#include <QDialog>

#include <string>
#include <vector>

namespace sondrel::app {

class AppDelegate;

class OptionsSheet : public QDialog {
    Q_OBJECT

  public:
    struct Option {
        const char* key;
        const char* label;
    };
    static const std::vector<Option>& booleanOptions();
    static constexpr const char* kVerifyKey = "Verify";
    static constexpr const char* kMinSeverityKey = "MinSeverity";
    static constexpr const char* kIgnoreCodesKey = "IgnoreCodes";

    OptionsSheet(AppDelegate& delegate, QWidget* parent);
    // Shows the sheet with the stored values.
    void showPrefs();
    void prefsDone() { accept(); }

  private:
    void load();
    AppDelegate& delegate_;
};

}  // namespace sondrel::app
