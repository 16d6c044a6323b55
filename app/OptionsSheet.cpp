#include "app/OptionsSheet.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include "app/AppDelegate.h"
#include "app/LogViewerState.h"
#include "codes/ProblemCodes.h"
#include "store/ResultStore.h"

namespace sondrel::app {

const std::vector<OptionsSheet::Option>& OptionsSheet::booleanOptions() {
    static const std::vector<Option> options = {
        {"LogAllFiles", "Log every file, even one without problems"},
        {"LogPriv", "Report owner and identification data (privacy)"},
        {"LogDups", "Report duplicated items"},
        {"SuppressTimeErrors", "Do not report malformed time stamps"},
        {"MPEG4_MulAtoms", "MPEG-4: do not report repeated atoms"},
        {"MPEG4_MulData", "MPEG-4: accept several data items in one atom"},
        {"LogID3v1", "Report ID3v1 and APE tags in MP3 files"},
        {"LogPrompt", "Ask before overwriting the log file"},
        {"FirstTimeUsage", "Show the first-time usage note"},
    };
    return options;
}

OptionsSheet::OptionsSheet(AppDelegate& delegate, QWidget* parent) : QDialog(parent), delegate_(delegate) {
    setWindowTitle("Options");
    setWindowModality(Qt::WindowModal);
    auto* layout = new QVBoxLayout(this);
    for (const auto& o : booleanOptions()) {
        auto* box = new QCheckBox(o.label, this);
        box->setObjectName(o.key);
        box->setToolTip(o.key);
        connect(box, &QCheckBox::toggled, this,
                [this, key = std::string(o.key)](bool on) { delegate_.storeBool(key, on); });
        layout->addWidget(box);
    }
    // How far the audio itself is verified; the stored values are the
    // command line's --verify words.
    auto* verify = new QComboBox(this);
    verify->setObjectName(kVerifyKey);
    verify->setToolTip(kVerifyKey);
    verify->addItem("Off", "off");
    verify->addItem("Quick: checksums and counts the formats carry", "quick");
    verify->addItem("Full: also decode every frame", "full");
    connect(verify, &QComboBox::currentIndexChanged, this, [this, verify](int i) {
        delegate_.storeString(kVerifyKey, verify->itemData(i).toString().toStdString());
    });
    // The least severity logged, stored as the command line's --min-severity
    // word ("" logs every problem).
    auto* minSeverity = new QComboBox(this);
    minSeverity->setObjectName(kMinSeverityKey);
    minSeverity->setToolTip(kMinSeverityKey);
    minSeverity->addItem("Every problem", "");
    for (int i = 1; i < 4; ++i) {
        const char* name = codes::severityName(codes::Severity(i));
        minSeverity->addItem(QString("%1 and graver").arg(name), name);
    }
    connect(minSeverity, &QComboBox::currentIndexChanged, this, [this, minSeverity](int i) {
        delegate_.storeString(kMinSeverityKey, minSeverity->itemData(i).toString().toStdString());
    });
    // Codes left out of the log, comma-separated ("id3.*, flac.padding").
    // A list naming an unknown code is not stored, so a scan never starts
    // with a filter it cannot read.
    auto* ignore = new QLineEdit(this);
    ignore->setObjectName(kIgnoreCodesKey);
    ignore->setToolTip(kIgnoreCodesKey);
    ignore->setPlaceholderText("id3.*, flac.padding");
    connect(ignore, &QLineEdit::textChanged, this, [this, ignore](const QString& text) {
        std::string reason;
        const bool ok = codes::Filter::make({}, {}, text.toStdString(), &reason).has_value();
        ignore->setStyleSheet(ok ? QString() : QString("color: #b01e2d"));
        ignore->setToolTip(ok ? QString(kIgnoreCodesKey) : QString::fromStdString(reason));
        if (ok) delegate_.storeString(kIgnoreCodesKey, text.toStdString());
    });
    // The result cache: a file analysed before and unchanged since is not
    // read again, its earlier result is logged. The command line's --cache
    // reads the same switch; the file's place is the desktop's own.
    auto* cache = new QCheckBox("Keep results of unchanged files (result cache)", this);
    cache->setObjectName(AppDelegate::kCacheKey);
    cache->setToolTip(AppDelegate::kCacheKey);
    auto* cacheFile = new QLineEdit(this);
    cacheFile->setObjectName(AppDelegate::kCacheFileKey);
    cacheFile->setToolTip(AppDelegate::kCacheFileKey);
    cacheFile->setPlaceholderText(QString::fromStdString(ResultStore::defaultPath()));
    connect(cache, &QCheckBox::toggled, this, [this, cacheFile](bool on) {
        delegate_.storeBool(AppDelegate::kCacheKey, on);
        cacheFile->setEnabled(on);
    });
    connect(cacheFile, &QLineEdit::textChanged, this, [this](const QString& text) {
        delegate_.storeString(AppDelegate::kCacheFileKey, text.trimmed().toStdString());
    });
    auto* size = new QSpinBox(this);
    size->setObjectName(LogViewerState::kFontSizeKey);
    size->setRange(LogViewerState::kSmallestFontSize, 72);
    connect(size, &QSpinBox::valueChanged, this,
            [this](int v) { delegate_.storeInteger(LogViewerState::kFontSizeKey, v); });
    auto* form = new QFormLayout;
    form->addRow("Verify the audio:", verify);
    form->addRow("Log problems:", minSeverity);
    form->addRow("Ignore codes:", ignore);
    form->addRow(cache);
    form->addRow("Cache file:", cacheFile);
    form->addRow("Log viewer font size:", size);
    layout->addLayout(form);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Help | QDialogButtonBox::Ok, this);
    buttons->button(QDialogButtonBox::Ok)->setText("Done");
    connect(buttons, &QDialogButtonBox::accepted, this, &OptionsSheet::prefsDone);
    connect(buttons, &QDialogButtonBox::helpRequested, this, [this] { delegate_.showOptionsHelp(); });
    layout->addWidget(buttons);
}

void OptionsSheet::load() {
    for (const auto& o : booleanOptions()) {
        auto* box = findChild<QCheckBox*>(o.key);
        QSignalBlocker block(box);
        box->setChecked(delegate_.settings().boolFromKey(o.key));
    }
    auto* verify = findChild<QComboBox*>(kVerifyKey);
    QSignalBlocker blockVerify(verify);
    const int index =
        verify->findData(QString::fromStdString(delegate_.settings().stringFromKey(kVerifyKey)));
    verify->setCurrentIndex(index < 0 ? 0 : index);
    auto* minSeverity = findChild<QComboBox*>(kMinSeverityKey);
    QSignalBlocker blockMin(minSeverity);
    const int minIndex =
        minSeverity->findData(QString::fromStdString(delegate_.settings().stringFromKey(kMinSeverityKey)));
    minSeverity->setCurrentIndex(minIndex < 0 ? 0 : minIndex);
    auto* ignore = findChild<QLineEdit*>(kIgnoreCodesKey);
    QSignalBlocker blockIgnore(ignore);
    ignore->setText(QString::fromStdString(delegate_.settings().stringFromKey(kIgnoreCodesKey)));
    auto* cache = findChild<QCheckBox*>(AppDelegate::kCacheKey);
    auto* cacheFile = findChild<QLineEdit*>(AppDelegate::kCacheFileKey);
    QSignalBlocker blockCache(cache), blockCacheFile(cacheFile);
    cache->setChecked(delegate_.settings().boolFromKey(AppDelegate::kCacheKey));
    cacheFile->setEnabled(cache->isChecked());
    cacheFile->setText(
        QString::fromStdString(delegate_.settings().stringFromKey(AppDelegate::kCacheFileKey)));
    auto* size = findChild<QSpinBox*>(LogViewerState::kFontSizeKey);
    QSignalBlocker block(size);
    size->setValue(int(delegate_.settings().intFromKey(LogViewerState::kFontSizeKey)));
}

void OptionsSheet::showPrefs() {
    load();
    open();
}

}  // namespace sondrel::app
