#pragma once
// The results window: the scan's files with problems in a sortable tree,
// filtered as you type (severity, code, format, text), the explanation of the
// selected problem's code, "Show in Folder" and "Copy Path", and a summary
// picture of the library's health, all updated while the scan runs.
#include <QWidget>

#include <unordered_set>

class QComboBox;
class QLineEdit;
class QPushButton;
class QTextBrowser;
class QTreeView;

namespace sondrel::app {

class AppPlatform;
class ResultsFilter;
class ResultsModel;

// Files by worst severity, and problems by format and by code (the most
// frequent codes), as bars painted from the model's running counts.
class SummaryChart : public QWidget {
    Q_OBJECT

  public:
    explicit SummaryChart(const ResultsModel& model, QWidget* parent = nullptr);
    QSize sizeHint() const override { return {360, 300}; }
    // How many code bars are drawn at most.
    static constexpr int kTopCodes = 8;

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    const ResultsModel& model_;
};

class ResultsWindow : public QWidget {
    Q_OBJECT

  public:
    ResultsWindow(ResultsModel& model, AppPlatform& platform, QWidget* parent = nullptr);

    ResultsFilter& filter() { return *filter_; }
    QTreeView* tree() const { return tree_; }
    QLineEdit* search() const { return search_; }
    QComboBox* severityBox() const { return severity_; }
    QComboBox* codeBox() const { return code_; }
    QComboBox* formatBox() const { return format_; }
    QTextBrowser* explanation() const { return explanation_; }
    SummaryChart* chart() const { return chart_; }

    // The selected file's path ("" when nothing is selected).
    QString selectedPath() const;
    void showInFolder();
    void copyPath();

  private:
    void refreshChoices();
    void selectionChanged();
    // Expands again the files the user expanded: a filter change rebuilds
    // the rows, and a file filtered out and back would come back closed.
    void reexpand();

    ResultsModel& model_;
    AppPlatform& platform_;
    ResultsFilter* filter_;
    QTreeView* tree_;
    QLineEdit* search_;
    QComboBox* severity_;
    QComboBox* code_;
    QComboBox* format_;
    QTextBrowser* explanation_;
    QPushButton* showInFolder_;
    QPushButton* copyPath_;
    SummaryChart* chart_;
    std::unordered_set<int> expanded_;  // file rows of the model
};

}  // namespace sondrel::app
