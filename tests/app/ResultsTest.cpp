// The results window: the model filled by hand for filtering and sorting
// (a real scan fills it in AppDelegateTest); drops and the add-folder panel
// reach the selection through the main window.
#include <gtest/gtest.h>

#include <QComboBox>
#include <QDropEvent>
#include <QLineEdit>
#include <QMimeData>
#include <QTextBrowser>
#include <QTreeView>
#include <QUrl>

#include "app/ImageView.h"
#include "tests/app/FakePlatform.h"

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

QStringList column(const QAbstractItemModel& m, int col) {
    QStringList out;
    for (int r = 0; r < m.rowCount(); ++r) out << m.index(r, col).data().toString();
    return out;
}

struct Filled {
    ResultsModel model;
    testing::FakePlatform platform;
    ResultsWindow window{model, platform};
    ResultsFilter& filter = window.filter();
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
    ResultsWindow& w = f.window;
    EXPECT_EQ(column(f.filter, ResultsModel::kFolder), QStringList({"/lib/a", "/lib/b", "/lib/b"}));
    EXPECT_EQ(column(f.filter, ResultsModel::kFormat), QStringList({"MP3", "FLAC", "MP3"}));
    // A box and its choice, the search text (case-insensitive, in messages and
    // in paths); the files kept, and how many problems the first one shows.
    using Row = std::tuple<QComboBox*, int, QString, QStringList, int>;
    for (const auto& [box, index, search, names, shown] :
         std::vector<Row>{{w.severityBox(), int(Severity::Error), "", {"two.flac", "Three.MP3"}, 1},
                          {w.codeBox(),
                           w.codeBox()->findData(int(codeOf(Severity::Note))),
                           "",
                           {"one.mp3", "Three.MP3"},
                           1},
                          {w.formatBox(), w.formatBox()->findText("FLAC"), "", {"two.flac"}, 2},
                          {w.formatBox(), 0, "ANOTHER", {"Three.MP3"}, 1},
                          {w.formatBox(), 0, "tHREE", {"Three.MP3"}, 3},
                          {w.formatBox(), 0, "lib/a/", {"one.mp3"}, 1},
                          {w.formatBox(), 0, "", {"one.mp3", "two.flac", "Three.MP3"}, 1}}) {
        box->setCurrentIndex(index);
        w.search()->setText(search);
        EXPECT_EQ(column(f.filter, ResultsModel::kName), names) << index << search.toStdString();
        EXPECT_EQ(f.filter.rowCount(f.filter.index(0, 0)), shown) << index << search.toStdString();
        box->setCurrentIndex(0);
    }

    // An expanded file stays expanded through filter changes, even when
    // filtered out and back.
    w.tree()->expand(f.filter.index(1, 0));
    w.formatBox()->setCurrentIndex(w.formatBox()->findText("MP3"));
    w.formatBox()->setCurrentIndex(0);
    EXPECT_TRUE(w.tree()->isExpanded(f.filter.index(1, 0)));
    EXPECT_FALSE(w.tree()->isExpanded(f.filter.index(0, 0)));
}

TEST(Results, SortsByAnyColumnAndExplainsTheSelectedCode) {
    Filled f;
    f.filter.sort(ResultsModel::kCount, Qt::DescendingOrder);
    EXPECT_EQ(column(f.filter, ResultsModel::kName), QStringList({"Three.MP3", "two.flac", "one.mp3"}));
    f.filter.sort(ResultsModel::kSeverity, Qt::DescendingOrder);
    EXPECT_EQ(column(f.filter, ResultsModel::kName), QStringList({"two.flac", "Three.MP3", "one.mp3"}));
    // Offsets sort as numbers within a file.
    f.filter.sort(ResultsModel::kName, Qt::DescendingOrder);
    const QModelIndex two = f.filter.index(0, 0);
    ASSERT_EQ(two.data().toString(), "two.flac");
    EXPECT_EQ(f.filter.index(0, 0, two).data().toString(), "99");

    f.window.tree()->setCurrentIndex(f.filter.index(1, 0, two));
    const auto& code = codes::codeAt(codeOf(Severity::Damage));
    EXPECT_TRUE(f.window.explanation()->toPlainText().contains(code.code));
    EXPECT_EQ(f.window.selectedPath(), "/lib/b/two.flac");
    f.window.showInFolder();
    EXPECT_EQ(f.platform.urls, std::vector<std::string>{"file:///lib/b"});

    // Names sort without regard to case, by keys ranked once enough files
    // came (here 1,500) and compared directly for files arriving after.
    const auto sortedNoCase = [&] {
        const QStringList names = column(f.filter, ResultsModel::kName);
        return std::is_sorted(names.begin(), names.end(), [](const QString& a, const QString& b) {
            return a.compare(b, Qt::CaseInsensitive) < 0;
        });
    };
    f.filter.sort(ResultsModel::kName, Qt::AscendingOrder);
    for (int i = 0; i < 1500; ++i)
        f.model.append(
            {QString("/m/%1 song %2.ogg").arg(i % 2 ? "Ab" : "aB").arg(i * 7919 % 1500).toStdString(),
             {{1, codeOf(Severity::Note), "x"}}});
    EXPECT_TRUE(sortedNoCase());
    f.filter.sort(ResultsModel::kName, Qt::AscendingOrder);
    f.model.append({"/m/AB song 750.ogg", {{1, codeOf(Severity::Note), "x"}}});
    EXPECT_TRUE(sortedNoCase());
    EXPECT_EQ(f.filter.rowCount(), 1504);
}

TEST(Results, DropEventAndAddFolderReachTheSelection) {
    testing::Desktop d;
    d.data.write("one/a.flac", std::string("x"));
    d.data.write("two/b.mp3", std::string("x"));
    d.data.write("notes.txt", std::string("x"));

    QMimeData mime;
    // A web address and a file that is not audio are left out.
    mime.setUrls({QUrl::fromLocalFile(QString::fromStdString(d.data.path() + "/one")),
                  QUrl::fromLocalFile(QString::fromStdString(d.data.path() + "/notes.txt")),
                  QUrl("https://example.org/b.mp3")});
    // As the desktop delivers a drag: it enters the target, then drops there.
    const auto actions = Qt::CopyAction | Qt::MoveAction;
    QDragEnterEvent enter(QPoint(20, 20), actions, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(d.window.target(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(QPointF(20, 20), actions, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(d.window.target(), &drop);
    EXPECT_TRUE(drop.isAccepted() && drop.dropAction() == Qt::CopyAction);
    EXPECT_EQ(d.delegate.selection().folders, std::set<std::string>{d.data.path() + "/one"});
    EXPECT_TRUE(d.delegate.selection().files.empty());

    d.platform.openPanelAnswer = {d.data.path() + "/two"};
    testing::button(d.window, "Add Folder\u2026")->click();
    testing::turn();
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
