#pragma once
// The results of a scan as the desktop shows them: one row per file with
// kept problems (file name, folder, format, worst severity, count), each
// expandable to its problems (offset, severity, code, message). A library of
// 200,000 files with a million problems must stay small, so problems are
// stored packed (the messages in one shared buffer) and turned into text only
// when a view asks for a cell. The scan thread posts finished files through a
// printer that sits between the log writer and the log's own printer; they
// reach the model in batches on the GUI thread.
#include <QAbstractItemModel>
#include <QSortFilterProxyModel>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "codes/ProblemCodes.h"
#include "printers/Printer.h"

namespace sondrel::app {

// One problem as the scan hands it over.
struct PostedProblem {
    uint64_t offset = 0;
    uint16_t code = 0;
    std::string message;
};

// One file with its kept problems.
struct PostedFile {
    std::string path;
    std::vector<PostedProblem> problems;
};

class ResultsModel : public QAbstractItemModel {
    Q_OBJECT

  public:
    enum Column { kName, kFolder, kFormat, kSeverity, kCount, kCode, kMessage, kColumns };
    // The value a column sorts by (numbers for severity, counts and offsets).
    static constexpr int kSortRole = Qt::UserRole + 1;

    explicit ResultsModel(QObject* parent = nullptr);

    // Any thread: queues a file; the model takes queued files in on the GUI
    // thread, at most one hand-over pending at a time.
    void post(PostedFile file);
    // GUI thread: takes the queued files in now (tests, and the end of a scan).
    void flush();
    void clear();

    // GUI thread: adds one file at once (a file without problems adds nothing).
    void append(const PostedFile& file);

    // What the scan has shown so far.
    struct Summary {
        uint64_t files = 0;
        uint64_t problems = 0;
        std::array<uint64_t, 4> filesByWorst{};
        std::array<uint64_t, 4> problemsBySeverity{};
        std::vector<uint64_t> problemsByCode;    // indexed by code row
        std::vector<uint64_t> problemsByFormat;  // indexed by format index
    };
    const Summary& summary() const { return summary_; }
    const std::vector<std::string>& formats() const { return formats_; }

    // Facts of a row for the filter and the actions.
    struct FileRow {
        uint32_t pathAt = 0, pathLen = 0, nameAt = 0;  // in the text buffer
        // The path's sort key (text::foldCase, made once as the file arrives,
        // so a sort compares bytes only), its name part starting at keyNameAt:
        // the folder's key is the part before it.
        uint32_t keyAt = 0, keyLen = 0, keyNameAt = 0;
        uint32_t firstProblem = 0, problemCount = 0;
        uint8_t format = 0;
        uint8_t worst = 0;
    };
    struct ProblemRow {
        uint64_t offset = 0;
        uint32_t messageAt = 0, messageLen = 0;
        uint16_t code = 0;
    };
    size_t fileCount() const { return files_.size(); }
    const FileRow& file(size_t i) const { return files_[i]; }
    const ProblemRow& problem(size_t i) const { return problems_[i]; }
    std::string_view text(uint32_t at, uint32_t len) const { return {text_.data() + at, len}; }
    std::string_view path(const FileRow& f) const { return text(f.pathAt, f.pathLen); }
    std::string_view message(const ProblemRow& p) const { return text(p.messageAt, p.messageLen); }
    std::string_view nameKey(const FileRow& f) const {
        return {keys_.data() + f.keyNameAt, size_t(f.keyAt + f.keyLen - f.keyNameAt)};
    }
    std::string_view folderKey(const FileRow& f) const {
        return {keys_.data() + f.keyAt, size_t(f.keyNameAt - f.keyAt)};
    }
    static codes::Severity severityOf(uint16_t code) { return codes::codeAt(code).severity; }

    // The file row of an index (its own for a file, its parent's for a
    // problem) and the problem's code row (-1 for a file).
    int fileOf(const QModelIndex& index) const;
    int codeOf(const QModelIndex& index) const;
    // Bytes held, for the benchmark.
    size_t bytesHeld() const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

  signals:
    void summaryChanged();

  private:
    // A problem's index carries its file row + 1 in the internal id; a
    // file's carries 0.
    uint8_t formatIndex(std::string_view path);
    void take(const PostedFile& file);
    uint32_t store(std::string_view s);

    std::vector<FileRow> files_;
    std::vector<ProblemRow> problems_;
    std::string text_;
    std::string keys_;
    std::vector<std::string> formats_;
    Summary summary_;

    std::mutex pendingMutex_;
    std::vector<PostedFile> pending_;
    std::atomic<bool> flushPosted_{false};
};

// Filters and sorts the results: a minimum severity, one code, one format and
// a text (case-insensitive, matched against the path and the messages).
// A file stays when one of its problems passes; its problems are filtered
// the same way.
class ResultsFilter : public QSortFilterProxyModel {
    Q_OBJECT

  public:
    explicit ResultsFilter(ResultsModel& model, QObject* parent = nullptr);
    void setMinSeverity(int severity);
    void setCode(int row);      // -1: any
    void setFormat(int index);  // -1: any
    void setText(const QString& text);

  protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;
    // Compares the stored values directly: a sort over 200,000 rows must not
    // build two strings per comparison, and names compare by the keys made
    // as the files arrived, so files coming in while sorted by name are
    // placed without ranking the rest again.
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

  private:
    bool problemPasses(const ResultsModel::ProblemRow& p, bool pathMatches) const;
    bool textIn(std::string_view s) const;
    // The place of each file when sorted by name or folder key (ties in scan
    // order). Files that arrived since it was made compare by their keys;
    // it is made again only once they are a sixteenth of the files, so a
    // scan feeding files while sorted never ranks everything per batch.
    const std::vector<uint32_t>& rank(int column) const;
    mutable std::vector<uint32_t> nameRank_, folderRank_;
    void changed();
    ResultsModel& model_;
    int minSeverity_ = 0;
    int code_ = -1;
    int format_ = -1;
    std::string text_;  // lower case
};

// A printer that hands each file's kept problems to the model and passes
// every call on to the log's own printer unchanged.
class ResultsTap : public Printer {
  public:
    ResultsTap(std::unique_ptr<Printer> inner, ResultsModel& model);

    // The path of the file logged last (any thread).
    std::string lastPath() const;

    void begin(std::string& out, const std::string& startTime) override { inner_->begin(out, startTime); }
    bool recordsEveryFile() const override { return inner_->recordsEveryFile(); }
    void fileHeading(std::string& out, const std::string& path, const std::string& modDate) override;
    void problem(std::string& out, const LogError& e) override;
    void fileEnd(std::string& out, const std::string& path, const FileResult& result) override;
    std::string_view outOfMemoryTail() const override { return inner_->outOfMemoryTail(); }
    void summary(std::string& out, const RunSummary& s) override { inner_->summary(out, s); }

  private:
    std::unique_ptr<Printer> inner_;
    ResultsModel& model_;
    PostedFile current_;
    mutable std::mutex lastMutex_;
    std::string lastPath_;
};

}  // namespace sondrel::app
