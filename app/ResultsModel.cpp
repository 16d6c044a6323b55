#include "app/ResultsModel.h"

#include <QMetaObject>

#include <algorithm>
#include <limits>

#include "core/Text.h"

namespace sondrel::app {

namespace {

const char* const kHeadings[ResultsModel::kColumns] = {"File / Offset", "Folder", "Format", "Severity",
                                                       "Problems",      "Code",   "Message"};

QString fromUtf8(std::string_view s) {
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c;
}

}  // namespace

ResultsModel::ResultsModel(QObject* parent) : QAbstractItemModel(parent) {
    summary_.problemsByCode.assign(codes::problemCodes().size(), 0);
}

void ResultsModel::post(PostedFile file) {
    if (file.problems.empty()) return;
    {
        std::lock_guard lock(pendingMutex_);
        pending_.push_back(std::move(file));
    }
    if (flushPosted_.exchange(true)) return;
    QMetaObject::invokeMethod(this, &ResultsModel::flush, Qt::QueuedConnection);
}

void ResultsModel::flush() {
    flushPosted_ = false;
    std::vector<PostedFile> batch;
    {
        std::lock_guard lock(pendingMutex_);
        batch.swap(pending_);
    }
    if (batch.empty()) return;
    const int first = int(files_.size());
    beginInsertRows({}, first, first + int(batch.size()) - 1);
    for (const auto& f : batch) take(f);
    endInsertRows();
    emit summaryChanged();
}

void ResultsModel::append(const PostedFile& f) {
    if (f.problems.empty()) return;
    const int row = int(files_.size());
    beginInsertRows({}, row, row);
    take(f);
    endInsertRows();
    emit summaryChanged();
}

void ResultsModel::clear() {
    {
        std::lock_guard lock(pendingMutex_);
        pending_.clear();
    }
    beginResetModel();
    files_ = {};
    problems_ = {};
    text_ = {};
    keys_ = {};
    formats_.clear();
    summary_ = {};
    summary_.problemsByCode.assign(codes::problemCodes().size(), 0);
    endResetModel();
    emit summaryChanged();
}

uint32_t ResultsModel::store(std::string_view s) {
    // Offsets are 32-bit; a buffer that would outgrow them stores nothing more.
    if (s.size() > std::numeric_limits<uint32_t>::max() - text_.size()) return uint32_t(text_.size());
    const auto at = uint32_t(text_.size());
    text_.append(s);
    return at;
}

uint8_t ResultsModel::formatIndex(std::string_view path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    std::string ext;
    if (dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash))
        for (char c : path.substr(dot + 1)) ext += (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
    auto it = std::find(formats_.begin(), formats_.end(), ext);
    if (it != formats_.end()) return uint8_t(it - formats_.begin());
    if (formats_.size() >= 255) return 254;  // the rest share the last slot
    formats_.push_back(ext);
    summary_.problemsByFormat.push_back(0);
    return uint8_t(formats_.size() - 1);
}

void ResultsModel::take(const PostedFile& f) {
    FileRow row;
    row.pathAt = store(f.path);
    row.pathLen = uint32_t(text_.size() - row.pathAt);
    const size_t slash = f.path.rfind('/');
    row.nameAt =
        row.pathAt + uint32_t(slash == std::string::npos ? 0 : std::min(slash + 1, size_t(row.pathLen)));
    row.format = formatIndex(f.path);
    // Folded apart, so that the name's key starts where the folder's ends
    // even when folding changes a length.
    const std::string_view p = path(row);
    const std::string folder = text::foldCase(p.substr(0, row.nameAt - row.pathAt));
    const std::string name = text::foldCase(p.substr(row.nameAt - row.pathAt));
    if (folder.size() + name.size() <= std::numeric_limits<uint32_t>::max() - keys_.size()) {
        row.keyAt = uint32_t(keys_.size());
        row.keyNameAt = row.keyAt + uint32_t(folder.size());
        row.keyLen = uint32_t(folder.size() + name.size());
        keys_ += folder;
        keys_ += name;
    } else {
        row.keyAt = row.keyNameAt = uint32_t(keys_.size());
    }
    row.firstProblem = uint32_t(problems_.size());
    row.problemCount = uint32_t(f.problems.size());
    for (const auto& p : f.problems) {
        ProblemRow pr;
        pr.offset = p.offset;
        pr.code = p.code < summary_.problemsByCode.size() ? p.code : codes::kUnclassified;
        pr.messageAt = store(p.message);
        pr.messageLen = uint32_t(text_.size() - pr.messageAt);
        const auto sev = uint8_t(severityOf(pr.code));
        row.worst = std::max(row.worst, sev);
        ++summary_.problemsBySeverity[sev];
        ++summary_.problemsByCode[pr.code];
        ++summary_.problemsByFormat[row.format];
        problems_.push_back(pr);
    }
    summary_.problems += f.problems.size();
    ++summary_.files;
    ++summary_.filesByWorst[row.worst];
    files_.push_back(row);
}

int ResultsModel::fileOf(const QModelIndex& index) const {
    if (!index.isValid()) return -1;
    return index.internalId() ? int(index.internalId() - 1) : index.row();
}

int ResultsModel::codeOf(const QModelIndex& index) const {
    if (!index.isValid() || !index.internalId()) return -1;
    const FileRow& f = files_[index.internalId() - 1];
    return problems_[f.firstProblem + uint32_t(index.row())].code;
}

size_t ResultsModel::bytesHeld() const {
    return files_.capacity() * sizeof(FileRow) + problems_.capacity() * sizeof(ProblemRow) +
           text_.capacity() + keys_.capacity();
}

QModelIndex ResultsModel::index(int row, int column, const QModelIndex& parent) const {
    if (row < 0 || column < 0 || column >= kColumns) return {};
    if (!parent.isValid())
        return row < int(files_.size()) ? createIndex(row, column, quintptr(0)) : QModelIndex();
    if (parent.internalId() || parent.row() >= int(files_.size())) return {};
    if (uint32_t(row) >= files_[size_t(parent.row())].problemCount) return {};
    return createIndex(row, column, quintptr(parent.row()) + 1);
}

QModelIndex ResultsModel::parent(const QModelIndex& child) const {
    if (!child.isValid() || !child.internalId()) return {};
    return createIndex(int(child.internalId() - 1), 0, quintptr(0));
}

int ResultsModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid()) return int(files_.size());
    if (parent.internalId() || parent.column() != 0) return 0;
    return int(files_[size_t(parent.row())].problemCount);
}

int ResultsModel::columnCount(const QModelIndex&) const {
    return kColumns;
}

bool ResultsModel::hasChildren(const QModelIndex& parent) const {
    if (!parent.isValid()) return !files_.empty();
    return !parent.internalId() && parent.column() == 0;
}

QVariant ResultsModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || (role != Qt::DisplayRole && role != kSortRole && role != Qt::ToolTipRole))
        return {};
    const bool sort = role == kSortRole;
    if (!index.internalId()) {
        const FileRow& f = files_[size_t(index.row())];
        const std::string_view p = path(f);
        const size_t nameOff = f.nameAt - f.pathAt;
        if (role == Qt::ToolTipRole) return fromUtf8(p);
        switch (index.column()) {
            case kName:
                return fromUtf8(p.substr(nameOff));
            case kFolder:
                return fromUtf8(p.substr(0, nameOff ? nameOff - 1 : 0));
            case kFormat:
                return QString::fromStdString(formats_[f.format]);
            case kSeverity:
                return sort ? QVariant(int(f.worst))
                            : QVariant(codes::severityName(codes::Severity(f.worst)));
            case kCount:
                return sort ? QVariant(qulonglong(f.problemCount))
                            : QVariant(QString::number(f.problemCount));
            default:
                return {};
        }
    }
    const FileRow& f = files_[index.internalId() - 1];
    const ProblemRow& pr = problems_[f.firstProblem + uint32_t(index.row())];
    const auto& code = codes::codeAt(pr.code);
    if (role == Qt::ToolTipRole) return fromUtf8(message(pr));
    switch (index.column()) {
        case kName:
            return sort ? QVariant(qulonglong(pr.offset)) : QVariant(QString::number(pr.offset));
        case kSeverity:
            return sort ? QVariant(int(code.severity)) : QVariant(codes::severityName(code.severity));
        case kCode:
            return QString::fromLatin1(code.code);
        case kMessage:
            return fromUtf8(message(pr));
        default:
            return {};
    }
}

QVariant ResultsModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole || section < 0 || section >= kColumns)
        return {};
    return QString::fromLatin1(kHeadings[section]);
}

ResultsFilter::ResultsFilter(ResultsModel& model, QObject* parent)
    : QSortFilterProxyModel(parent), model_(model) {
    setSourceModel(&model);
    setSortRole(ResultsModel::kSortRole);
    setDynamicSortFilter(true);
    connect(&model, &QAbstractItemModel::modelReset, this, [this] {
        nameRank_.clear();
        folderRank_.clear();
    });
}

// Rebuilt from scratch: updating the old mapping row by row costs seconds
// when a filter change brings back most of 200,000 files.
void ResultsFilter::changed() {
    invalidate();
}

void ResultsFilter::setMinSeverity(int severity) {
    minSeverity_ = severity;
    changed();
}

void ResultsFilter::setCode(int row) {
    code_ = row;
    changed();
}

void ResultsFilter::setFormat(int index) {
    format_ = index;
    changed();
}

void ResultsFilter::setText(const QString& text) {
    std::string t = text.trimmed().toStdString();
    for (char& c : t) c = lower(c);
    text_ = std::move(t);
    changed();
}

bool ResultsFilter::textIn(std::string_view s) const {
    if (text_.empty()) return true;
    return std::search(s.begin(), s.end(), text_.begin(), text_.end(),
                       [](char a, char b) { return lower(a) == b; }) != s.end();
}

bool ResultsFilter::problemPasses(const ResultsModel::ProblemRow& p, bool pathMatches) const {
    if (int(ResultsModel::severityOf(p.code)) < minSeverity_) return false;
    if (code_ >= 0 && p.code != code_) return false;
    return pathMatches || textIn(model_.message(p));
}

bool ResultsFilter::filterAcceptsRow(int row, const QModelIndex& parent) const {
    if (parent.isValid()) {
        const auto& f = model_.file(size_t(parent.row()));
        return problemPasses(model_.problem(f.firstProblem + uint32_t(row)), textIn(model_.path(f)));
    }
    const auto& f = model_.file(size_t(row));
    if (format_ >= 0 && f.format != format_) return false;
    if (f.worst < minSeverity_) return false;
    const bool pathMatches = textIn(model_.path(f));
    for (uint32_t i = 0; i < f.problemCount; ++i)
        if (problemPasses(model_.problem(f.firstProblem + i), pathMatches)) return true;
    return false;
}

namespace {

// Case-insensitive for ASCII letters, byte order otherwise.
bool lessNoCase(std::string_view a, std::string_view b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return lower(x) < lower(y); });
}

}  // namespace

namespace {

struct Keyed {
    uint64_t prefix;  // 8 bytes of the key from the current depth, big-endian
    uint32_t file;
    bool more;  // the key goes on past those 8 bytes
};

// Sorts files by key, 8 bytes at a time: the entries are sorted by the
// bytes at `depth`, and each run that ties is sorted again by the next 8.
// A key is read once per level rather than once per comparison, which keeps
// a sort of 200,000 scattered keys from waiting on memory.
template <class KeyOf>
void sortByKey(std::vector<Keyed>& v, size_t lo, size_t hi, size_t depth, const KeyOf& keyOf) {
    for (size_t i = lo; i < hi; ++i) {
        const std::string_view k = keyOf(v[i].file);
        uint64_t prefix = 0;
        for (size_t j = 0; j < 8; ++j)
            prefix = prefix << 8 | (depth + j < k.size() ? static_cast<unsigned char>(k[depth + j]) : 0u);
        v[i].prefix = prefix;
        v[i].more = k.size() > depth + 8;
    }
    std::sort(v.begin() + ptrdiff_t(lo), v.begin() + ptrdiff_t(hi), [](const Keyed& a, const Keyed& b) {
        return a.prefix != b.prefix ? a.prefix < b.prefix : a.file < b.file;
    });
    for (size_t run = lo; run < hi;) {
        size_t end = run + 1;
        bool more = v[run].more;
        for (; end < hi && v[end].prefix == v[run].prefix; ++end) more = more || v[end].more;
        if (end - run > 1 && more) sortByKey(v, run, end, depth + 8, keyOf);
        run = end;
    }
}

}  // namespace

const std::vector<uint32_t>& ResultsFilter::rank(int column) const {
    auto& r = column == ResultsModel::kName ? nameRank_ : folderRank_;
    const size_t files = model_.fileCount();
    if (files - r.size() <= std::max<size_t>(r.size() / 16, 1024)) return r;
    auto keyOf = [&](uint32_t i) {
        const auto& f = model_.file(i);
        return column == ResultsModel::kName ? model_.nameKey(f) : model_.folderKey(f);
    };
    std::vector<Keyed> order(files);
    for (uint32_t i = 0; i < files; ++i) order[i].file = i;
    sortByKey(order, 0, files, 0, keyOf);
    r.assign(files, 0);
    for (uint32_t i = 0; i < files; ++i) r[order[i].file] = i;
    return r;
}

bool ResultsFilter::lessThan(const QModelIndex& left, const QModelIndex& right) const {
    const int column = left.column();
    if (left.internalId() != right.internalId()) return left.internalId() < right.internalId();
    if (!left.internalId()) {
        const auto& a = model_.file(size_t(left.row()));
        const auto& b = model_.file(size_t(right.row()));
        switch (column) {
            case ResultsModel::kName:
            case ResultsModel::kFolder: {
                const size_t l = size_t(left.row()), r = size_t(right.row());
                const auto& ranks = rank(column);
                if (l < ranks.size() && r < ranks.size()) return ranks[l] < ranks[r];
                // The same order for a file not ranked yet: key, then scan order.
                const bool name = column == ResultsModel::kName;
                const auto ka = name ? model_.nameKey(a) : model_.folderKey(a);
                const auto kb = name ? model_.nameKey(b) : model_.folderKey(b);
                return ka != kb ? ka < kb : l < r;
            }
            case ResultsModel::kFormat:
                return model_.formats()[a.format] < model_.formats()[b.format];
            case ResultsModel::kSeverity:
                return a.worst < b.worst;
            case ResultsModel::kCount:
                return a.problemCount < b.problemCount;
            default:
                return left.row() < right.row();
        }
    }
    const auto& f = model_.file(left.internalId() - 1);
    const auto& a = model_.problem(f.firstProblem + uint32_t(left.row()));
    const auto& b = model_.problem(f.firstProblem + uint32_t(right.row()));
    switch (column) {
        case ResultsModel::kName:
            return a.offset < b.offset;
        case ResultsModel::kSeverity:
            return ResultsModel::severityOf(a.code) < ResultsModel::severityOf(b.code);
        case ResultsModel::kCode:
            return std::string_view(codes::codeAt(a.code).code) <
                   std::string_view(codes::codeAt(b.code).code);
        case ResultsModel::kMessage:
            return lessNoCase(model_.message(a), model_.message(b));
        default:
            return left.row() < right.row();
    }
}

ResultsTap::ResultsTap(std::unique_ptr<Printer> inner, ResultsModel& model)
    : inner_(std::move(inner)), model_(model) {}

std::string ResultsTap::lastPath() const {
    std::lock_guard lock(lastMutex_);
    return lastPath_;
}

void ResultsTap::fileHeading(std::string& out, const std::string& path, const std::string& modDate) {
    inner_->fileHeading(out, path, modDate);
    current_ = {path, {}};  // a record cut short by a failed write is dropped
}

void ResultsTap::problem(std::string& out, const LogError& e) {
    inner_->problem(out, e);
    current_.problems.push_back({e.offset, e.code, e.reason});
}

void ResultsTap::fileEnd(std::string& out, const std::string& path, const FileResult& result) {
    inner_->fileEnd(out, path, result);
    {
        std::lock_guard lock(lastMutex_);
        lastPath_ = path;
    }
    PostedFile done{path, std::move(current_.problems)};
    current_ = {};
    if (!done.problems.empty()) model_.post(std::move(done));
}

}  // namespace sondrel::app
