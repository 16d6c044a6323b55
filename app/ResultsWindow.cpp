#include "app/ResultsWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QSplitter>
#include <QTextBrowser>
#include <QTreeView>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <numeric>

#include "app/AppPlatform.h"
#include "app/ResultsModel.h"

namespace sondrel::app {

namespace {

// One colour per severity, from note to damage.
const QColor kSeverityColours[4] = {QColor(0x8a, 0x9b, 0xa8), QColor(0xe0, 0xa8, 0x2e),
                                    QColor(0xd9, 0x6a, 0x2b), QColor(0xb0, 0x1e, 0x2d)};

struct Bar {
    QString label;
    uint64_t value;
    QColor colour;
};

// Draws a titled group of horizontal bars into `area` and returns the height used.
int drawBars(QPainter& p, const QRect& area, const QString& title, const std::vector<Bar>& bars) {
    const QFontMetrics fm = p.fontMetrics();
    const int line = fm.height() + 4;
    QFont bold = p.font();
    bold.setBold(true);
    p.save();
    p.setFont(bold);
    p.drawText(area.left(), area.top() + fm.ascent(), title);
    p.restore();
    uint64_t most = 1;
    for (const auto& b : bars) most = std::max(most, b.value);
    int labelWidth = 0;
    for (const auto& b : bars) labelWidth = std::max(labelWidth, fm.horizontalAdvance(b.label) + 8);
    labelWidth = std::min(labelWidth, area.width() * 3 / 5);
    const int numberWidth = fm.horizontalAdvance("0000000") + 6;
    const int barSpace = std::max(10, area.width() - labelWidth - numberWidth);
    int y = area.top() + line;
    for (const auto& b : bars) {
        p.drawText(QRect(area.left(), y, labelWidth - 6, line), Qt::AlignVCenter | Qt::AlignLeft,
                   fm.elidedText(b.label, Qt::ElideMiddle, labelWidth - 6));
        const int w = int(double(barSpace) * double(b.value) / double(most));
        p.fillRect(QRect(area.left() + labelWidth, y + 3, std::max(w, b.value ? 1 : 0), line - 6), b.colour);
        p.drawText(QRect(area.left() + labelWidth + w + 4, y, numberWidth, line), Qt::AlignVCenter,
                   QString::number(b.value));
        y += line;
    }
    return y - area.top() + line / 2;
}

}  // namespace

SummaryChart::SummaryChart(const ResultsModel& model, QWidget* parent) : QWidget(parent), model_(model) {
    setMinimumSize(260, 200);
    connect(&model, &ResultsModel::summaryChanged, this, qOverload<>(&QWidget::update));
}

void SummaryChart::paintEvent(QPaintEvent*) {
    QPainter p(this);
    p.fillRect(rect(), palette().base());
    p.setPen(palette().text().color());
    const auto& s = model_.summary();
    QRect area = rect().adjusted(8, 6, -8, -6);

    std::vector<Bar> worst;
    for (int i = 3; i >= 0; --i)
        worst.push_back(
            {codes::severityName(codes::Severity(i)), s.filesByWorst[size_t(i)], kSeverityColours[i]});
    area.setTop(area.top() + drawBars(p, area, QString("Files by worst severity (%1)").arg(s.files), worst));

    std::vector<Bar> formats;
    for (size_t i = 0; i < model_.formats().size() && i < s.problemsByFormat.size(); ++i)
        formats.push_back(
            {model_.formats()[i].empty() ? QString("(none)") : QString::fromStdString(model_.formats()[i]),
             s.problemsByFormat[i], QColor(0x3b, 0x6e, 0xa8)});
    std::sort(formats.begin(), formats.end(), [](const Bar& a, const Bar& b) { return a.value > b.value; });
    area.setTop(area.top() + drawBars(p, area, QString("Problems by format (%1)").arg(s.problems), formats));

    std::vector<size_t> rows(s.problemsByCode.size());
    std::iota(rows.begin(), rows.end(), size_t(0));
    std::stable_sort(rows.begin(), rows.end(),
                     [&](size_t a, size_t b) { return s.problemsByCode[a] > s.problemsByCode[b]; });
    std::vector<Bar> codeBars;
    for (size_t i = 0; i < rows.size() && i < size_t(kTopCodes) && s.problemsByCode[rows[i]]; ++i) {
        const auto& c = codes::codeAt(uint16_t(rows[i]));
        codeBars.push_back({c.code, s.problemsByCode[rows[i]], kSeverityColours[int(c.severity)]});
    }
    drawBars(p, area, "Most frequent codes", codeBars);
}

ResultsWindow::ResultsWindow(ResultsModel& model, AppPlatform& platform, QWidget* parent)
    : QWidget(parent, Qt::Window), model_(model), platform_(platform) {
    setWindowTitle("Scan Results");
    filter_ = new ResultsFilter(model, this);
    tree_ = new QTreeView(this);
    tree_->setModel(filter_);
    tree_->setSortingEnabled(true);
    tree_->sortByColumn(-1, Qt::AscendingOrder);  // scan order until a heading is clicked
    tree_->setUniformRowHeights(true);
    tree_->setAlternatingRowColors(true);
    tree_->setContextMenuPolicy(Qt::CustomContextMenu);
    tree_->header()->setStretchLastSection(true);
    tree_->setColumnWidth(ResultsModel::kName, 210);
    tree_->setColumnWidth(ResultsModel::kFolder, 170);
    tree_->setColumnWidth(ResultsModel::kFormat, 60);
    tree_->setColumnWidth(ResultsModel::kSeverity, 70);
    tree_->setColumnWidth(ResultsModel::kCount, 70);
    tree_->setColumnWidth(ResultsModel::kCode, 170);
    tree_->setTextElideMode(Qt::ElideMiddle);

    search_ = new QLineEdit(this);
    search_->setPlaceholderText("Search paths and messages");
    search_->setClearButtonEnabled(true);
    severity_ = new QComboBox(this);
    for (int i = 0; i < 4; ++i)
        severity_->addItem(i ? QString("%1 and graver").arg(codes::severityName(codes::Severity(i)))
                             : QString("Every severity"),
                           i);
    code_ = new QComboBox(this);
    code_->addItem("Every code", -1);
    const auto table = codes::problemCodes();
    for (size_t i = 0; i < table.size(); ++i) code_->addItem(table[i].code, int(i));
    format_ = new QComboBox(this);
    format_->addItem("Every format", -1);

    explanation_ = new QTextBrowser(this);
    explanation_->setMinimumHeight(70);
    explanation_->setMaximumHeight(130);
    explanation_->setPlaceholderText("Select a problem to see what its code means and how to fix it.");
    showInFolder_ = new QPushButton("Show in Folder", this);
    copyPath_ = new QPushButton("Copy Path", this);
    chart_ = new SummaryChart(model, this);

    auto* filters = new QHBoxLayout;
    filters->addWidget(search_, 2);
    filters->addWidget(severity_);
    filters->addWidget(code_);
    filters->addWidget(format_);
    auto* actions = new QHBoxLayout;
    actions->addWidget(showInFolder_);
    actions->addWidget(copyPath_);
    actions->addStretch(1);

    auto* left = new QWidget(this);
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addLayout(filters);
    leftLayout->addWidget(tree_, 1);
    leftLayout->addLayout(actions);
    leftLayout->addWidget(explanation_);
    auto* split = new QSplitter(this);
    split->addWidget(left);
    split->addWidget(chart_);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 1);
    split->setSizes({720, 320});
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(split);

    connect(search_, &QLineEdit::textChanged, filter_, &ResultsFilter::setText);
    connect(severity_, &QComboBox::currentIndexChanged, this,
            [this](int i) { filter_->setMinSeverity(severity_->itemData(i).toInt()); });
    connect(code_, &QComboBox::currentIndexChanged, this,
            [this](int i) { filter_->setCode(code_->itemData(i).toInt()); });
    connect(format_, &QComboBox::currentIndexChanged, this,
            [this](int i) { filter_->setFormat(format_->itemData(i).toInt()); });
    connect(&model, &ResultsModel::summaryChanged, this, &ResultsWindow::refreshChoices);
    // The model's file rows only grow until it is cleared, so they name a
    // file for as long as the results last.
    connect(tree_, &QTreeView::expanded, this, [this](const QModelIndex& i) {
        if (!i.parent().isValid()) expanded_.insert(model_.fileOf(filter_->mapToSource(i)));
    });
    connect(tree_, &QTreeView::collapsed, this, [this](const QModelIndex& i) {
        if (!i.parent().isValid()) expanded_.erase(model_.fileOf(filter_->mapToSource(i)));
    });
    connect(&model, &QAbstractItemModel::modelAboutToBeReset, this, [this] { expanded_.clear(); });
    connect(filter_, &QAbstractItemModel::layoutChanged, this, &ResultsWindow::reexpand);
    connect(filter_, &QAbstractItemModel::modelReset, this, &ResultsWindow::reexpand);
    connect(tree_->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &ResultsWindow::selectionChanged);
    connect(showInFolder_, &QPushButton::clicked, this, &ResultsWindow::showInFolder);
    connect(copyPath_, &QPushButton::clicked, this, &ResultsWindow::copyPath);
    connect(tree_, &QTreeView::customContextMenuRequested, this, [this](const QPoint& at) {
        if (selectedPath().isEmpty()) return;
        QMenu menu(this);
        menu.addAction("Show in Folder", this, &ResultsWindow::showInFolder);
        menu.addAction("Copy Path", this, &ResultsWindow::copyPath);
        menu.exec(tree_->viewport()->mapToGlobal(at));
    });
    resize(1040, 620);
    selectionChanged();
}

void ResultsWindow::refreshChoices() {
    const auto& formats = model_.formats();
    for (int i = format_->count() - 1; i < int(formats.size()); ++i)
        format_->addItem(
            formats[size_t(i)].empty() ? QString("(none)") : QString::fromStdString(formats[size_t(i)]), i);
}

void ResultsWindow::reexpand() {
    for (const int file : expanded_) {
        const QModelIndex i = filter_->mapFromSource(model_.index(file, 0));
        if (i.isValid() && !tree_->isExpanded(i)) tree_->expand(i);
    }
}

QString ResultsWindow::selectedPath() const {
    const int file = model_.fileOf(filter_->mapToSource(tree_->currentIndex()));
    if (file < 0 || size_t(file) >= model_.fileCount()) return {};
    const auto p = model_.path(model_.file(size_t(file)));
    return QString::fromUtf8(p.data(), qsizetype(p.size()));
}

void ResultsWindow::selectionChanged() {
    const bool any = !selectedPath().isEmpty();
    showInFolder_->setEnabled(any);
    copyPath_->setEnabled(any);
    const int code = model_.codeOf(filter_->mapToSource(tree_->currentIndex()));
    if (code < 0) {
        explanation_->clear();
        return;
    }
    const auto& c = codes::codeAt(uint16_t(code));
    explanation_->setHtml(QString("<b>%1</b> (%2)<p>%3</p><p><i>Fix:</i> %4</p>")
                              .arg(QString(c.code).toHtmlEscaped(), codes::severityName(c.severity),
                                   QString(c.meaning).toHtmlEscaped(), QString(c.fix).toHtmlEscaped()));
}

void ResultsWindow::showInFolder() {
    const QString path = selectedPath();
    if (path.isEmpty()) return;
    platform_.openUrl(QUrl::fromLocalFile(QFileInfo(path).absolutePath()).toString().toStdString());
}

void ResultsWindow::copyPath() {
    const QString path = selectedPath();
    if (!path.isEmpty()) QApplication::clipboard()->setText(path);
}

}  // namespace sondrel::app
