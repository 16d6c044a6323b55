// The results window: the model filled by hand for filtering and sorting,
// then by a real scan whose counts it must agree with; drops and the
// add-folder panel reach the selection through the main window.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QDropEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QTextBrowser>
#include <QTreeView>
#include <QUrl>

#include <fstream>
#include <numeric>

#include "app/AboutWindowController.h"
#include "app/AppDelegate.h"
#include "app/ImageView.h"
#include "app/LogViewer.h"
#include "app/MainWindow.h"
#include "app/ResultsModel.h"
#include "app/ResultsWindow.h"
#include "core/LogWriter.h"
#include "tests/app/FakePlatform.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::app {
namespace {

using codes::Severity;

// The first code row of each severity.
uint16_t codeOf(Severity s) {
    const auto table = codes::problemCodes();
    for (size_t i = 1; i < table.size(); ++i)
        if (table[i].severity == s) return uint16_t(i);
    return 0;
}

QPushButton* button(QWidget& w, const QString& text) {
    for (auto* b : w.findChildren<QPushButton*>())
        if (b->text() == text) return b;
    return nullptr;
}

QStringList column(const QAbstractItemModel& m, int col) {
    QStringList out;
    for (int r = 0; r < m.rowCount(); ++r) out << m.index(r, col).data().toString();
    return out;
}

struct Filled {
    ResultsModel model;
    testing::FakePlatform platform;
    ResultsWindow window{model, platform};
    Filled() {
        model.append({"/lib/a/one.mp3", {{10, codeOf(Severity::Note), "a note"}}});
        model.append(
            {"/lib/b/two.flac",
             {{4, codeOf(Severity::Damage), "broken block"}, {99, codeOf(Severity::Warning), "odd pad"}}});
        model.append({"/lib/b/Three.MP3",
                      {{0, codeOf(Severity::Error), "bad frame"},
                       {5, codeOf(Severity::Note), "a note"},
                       {7, codeOf(Severity::Note), "another note"}}});
    }
};

TEST(Results, FiltersBySeverityCodeFormatAndTextAsYouType) {
    Filled f;
    ResultsFilter& filter = f.window.filter();
    EXPECT_EQ(column(filter, ResultsModel::kName), QStringList({"one.mp3", "two.flac", "Three.MP3"}));
    EXPECT_EQ(column(filter, ResultsModel::kFolder), QStringList({"/lib/a", "/lib/b", "/lib/b"}));
    EXPECT_EQ(column(filter, ResultsModel::kFormat), QStringList({"MP3", "FLAC", "MP3"}));

    f.window.severityBox()->setCurrentIndex(int(Severity::Error));
    EXPECT_EQ(column(filter, ResultsModel::kName), QStringList({"two.flac", "Three.MP3"}));
    // A kept file shows only the problems that pass.
    const QModelIndex two = filter.index(0, 0);
    ASSERT_EQ(filter.rowCount(two), 1);
    EXPECT_EQ(filter.index(0, ResultsModel::kMessage, two).data().toString(), "broken block");
    f.window.severityBox()->setCurrentIndex(0);

    f.window.codeBox()->setCurrentIndex(f.window.codeBox()->findData(int(codeOf(Severity::Note))));
    EXPECT_EQ(column(filter, ResultsModel::kName), QStringList({"one.mp3", "Three.MP3"}));
    f.window.codeBox()->setCurrentIndex(0);

    f.window.formatBox()->setCurrentIndex(f.window.formatBox()->findText("FLAC"));
    EXPECT_EQ(column(filter, ResultsModel::kName), QStringList({"two.flac"}));
    f.window.formatBox()->setCurrentIndex(0);

    // Case-insensitive, in messages and in paths.
    f.window.search()->setText("ANOTHER");
    EXPECT_EQ(column(filter, ResultsModel::kName), QStringList({"Three.MP3"}));
    EXPECT_EQ(filter.rowCount(filter.index(0, 0)), 1);
    f.window.search()->setText("lib/a/");
    EXPECT_EQ(column(filter, ResultsModel::kName), QStringList({"one.mp3"}));
    f.window.search()->clear();
    EXPECT_EQ(filter.rowCount(), 3);

    // An expanded file stays expanded through filter changes, even when
    // filtered out and back.
    f.window.tree()->expand(filter.index(1, 0));
    f.window.formatBox()->setCurrentIndex(f.window.formatBox()->findText("MP3"));
    f.window.formatBox()->setCurrentIndex(0);
    EXPECT_TRUE(f.window.tree()->isExpanded(filter.index(1, 0)));
    EXPECT_FALSE(f.window.tree()->isExpanded(filter.index(0, 0)));
}

TEST(Results, SortsByAnyColumnAndExplainsTheSelectedCode) {
    Filled f;
    ResultsFilter& filter = f.window.filter();
    filter.sort(ResultsModel::kCount, Qt::DescendingOrder);
    EXPECT_EQ(column(filter, ResultsModel::kName), QStringList({"Three.MP3", "two.flac", "one.mp3"}));
    filter.sort(ResultsModel::kSeverity, Qt::DescendingOrder);
    EXPECT_EQ(column(filter, ResultsModel::kSeverity),
              QStringList({codes::severityName(Severity::Damage), codes::severityName(Severity::Error),
                           codes::severityName(Severity::Note)}));
    // Offsets sort as numbers within a file.
    filter.sort(ResultsModel::kName, Qt::DescendingOrder);
    const QModelIndex two = filter.index(0, 0);
    ASSERT_EQ(two.data().toString(), "two.flac");
    EXPECT_EQ(filter.index(0, 0, two).data().toString(), "99");

    f.window.tree()->setCurrentIndex(filter.index(1, 0, two));
    const auto& code = codes::codeAt(codeOf(Severity::Damage));
    EXPECT_TRUE(f.window.explanation()->toPlainText().contains(code.code));
    EXPECT_TRUE(f.window.explanation()->toPlainText().contains(QString(code.meaning).left(20)));
    EXPECT_EQ(f.window.selectedPath(), "/lib/b/two.flac");
    f.window.showInFolder();
    EXPECT_EQ(f.platform.urls, std::vector<std::string>{"file:///lib/b"});

    // Names sort without regard to case, by keys ranked once enough files
    // came (here 1,500) and compared directly for files arriving after.
    const auto sortedNoCase = [&] {
        const QStringList names = column(filter, ResultsModel::kName);
        return std::is_sorted(names.begin(), names.end(), [](const QString& a, const QString& b) {
            return a.compare(b, Qt::CaseInsensitive) < 0;
        });
    };
    filter.sort(ResultsModel::kName, Qt::AscendingOrder);
    for (int i = 0; i < 1500; ++i)
        f.model.append(
            {QString("/m/%1 song %2.ogg").arg(i % 2 ? "Ab" : "aB").arg(i * 7919 % 1500).toStdString(),
             {{1, codeOf(Severity::Note), "x"}}});
    EXPECT_TRUE(sortedNoCase());
    filter.sort(ResultsModel::kName, Qt::AscendingOrder);
    f.model.append({"/m/AB song 750.ogg", {{1, codeOf(Severity::Note), "x"}}});
    EXPECT_TRUE(sortedNoCase());
    EXPECT_EQ(filter.rowCount(), 1504);
}

// A window with its controller, on a desktop that records.
struct Desktop {
    fixtures::TempDir config, data;
    testing::FakePlatform platform;
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
};

// The main window follows the controller's state and refuses to close while
// scanning; the results of its scan agree with the log.
TEST(Results, SummaryAgreesWithTheScansOwnCounts) {
    Desktop d;
    const auto shown = [&](const std::string& status) {
        for (auto* l : d.window.findChildren<QLabel*>())
            if (l->text().toStdString() == status) return true;
        return false;
    };
    EXPECT_TRUE(shown("Drag Files or Folders to the Target"));
    EXPECT_FALSE(button(d.window, "Start")->isEnabled() || button(d.window, "Reset")->isEnabled());
    d.data.write("music/a.mp3", std::string(300, 'x'));
    d.data.write("music/B.flac", std::string("not a flac file"));
    d.data.write("music/sub/c.wav", std::string("RIFF\x10\0\0\0WAVE", 12));
    const std::string logPath = d.data.path() + "/log.txt";
    d.delegate.logPathSelected(logPath);
    ASSERT_TRUE(d.delegate.dropPaths({d.data.path() + "/music"}));
    testing::turn();
    EXPECT_TRUE(shown("1 folder selected"));
    EXPECT_TRUE(button(d.window, "Reset")->isEnabled());
    button(d.window, "Start")->click();
    EXPECT_TRUE(d.results.isVisible());
    ASSERT_NE(button(d.window, "Cancel"), nullptr);
    EXPECT_FALSE(button(d.window, "View Log")->isEnabled());
    EXPECT_FALSE(d.window.close());
    ASSERT_TRUE(testing::spinUntil([&] { return !d.delegate.running(); }));
    EXPECT_TRUE(shown(d.delegate.statusText()));
    EXPECT_TRUE(button(d.window, "View Log")->isEnabled());

    std::ifstream in(logPath);
    std::string line, text;
    uint64_t files = 0, problems = 0;
    std::getline(in, line);  // the first line names the program
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        line.rfind("    ", 0) == 0 ? ++problems : ++files;
        text += line + "\n";
    }
    const auto& s = d.delegate.results().summary();
    ASSERT_GT(problems, 0u);
    EXPECT_EQ(d.delegate.statusText(), AppDelegate::doneStatus(3, s.problems));
    EXPECT_EQ(s.problems, problems);
    EXPECT_EQ(s.files, files);
    const auto sum = [](const auto& counts) {
        return std::accumulate(counts.begin(), counts.end(), uint64_t(0));
    };
    EXPECT_EQ(sum(s.filesByWorst), files);
    EXPECT_EQ(sum(s.problemsBySeverity), problems);
    EXPECT_EQ(sum(s.problemsByFormat), problems);
    EXPECT_EQ(sum(s.problemsByCode), problems);
    // Every problem shown is the log's own line.
    const ResultsModel& m = d.delegate.results();
    for (size_t i = 0; i < m.fileCount(); ++i)
        for (uint32_t k = 0; k < m.file(i).problemCount; ++k) {
            const auto& p = m.problem(m.file(i).firstProblem + k);
            LogError e{0, p.offset, std::string(m.message(p)), p.code};
            EXPECT_NE(text.find(std::string(m.message(p))), std::string::npos) << formatProblemLine(e);
        }
}

TEST(Results, DropEventAndAddFolderReachTheSelection) {
    Desktop d;
    d.data.write("one/a.flac", std::string("x"));
    d.data.write("two/b.mp3", std::string("x"));
    d.data.write("notes.txt", std::string("x"));

    QMimeData mime;
    // A web address and a file that is not audio are left out.
    mime.setUrls({QUrl::fromLocalFile(QString::fromStdString(d.data.path() + "/one")),
                  QUrl::fromLocalFile(QString::fromStdString(d.data.path() + "/notes.txt")),
                  QUrl("https://example.org/b.mp3")});
    // As the desktop delivers a drag: it enters the target, then drops there.
    QDragEnterEvent enter(QPoint(20, 20), Qt::CopyAction | Qt::MoveAction, &mime, Qt::LeftButton,
                          Qt::NoModifier);
    QCoreApplication::sendEvent(d.window.target(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(20, 20), Qt::CopyAction | Qt::MoveAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(d.window.target(), &drop);
    EXPECT_TRUE(drop.isAccepted());
    EXPECT_EQ(drop.dropAction(), Qt::CopyAction);
    EXPECT_EQ(d.delegate.selection().folders, std::set<std::string>{d.data.path() + "/one"});
    EXPECT_TRUE(d.delegate.selection().files.empty());

    d.platform.openPanelAnswer = {d.data.path() + "/two"};
    ASSERT_NE(button(d.window, "Add Folder\u2026"), nullptr);
    button(d.window, "Add Folder\u2026")->click();
    testing::turn();
    EXPECT_EQ(d.delegate.selection().folders.size(), 2u);
    EXPECT_EQ(d.delegate.statusText(), "2 folders selected");

    // Files that are not audio are refused as a drop would refuse them.
    d.platform.openPanelAnswer = {d.data.path() + "/notes.txt"};
    const int beeps = d.platform.beeps;
    d.delegate.addFiles();
    EXPECT_EQ(d.platform.beeps, beeps + 1);
    EXPECT_TRUE(d.delegate.selection().files.empty());
}

}  // namespace
}  // namespace sondrel::app
