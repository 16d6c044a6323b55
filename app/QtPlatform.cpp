#include "app/QtPlatform.h"

#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QUrl>

#include "app/LogViewer.h"

namespace sondrel::app {

void QtPlatform::beep() {
    QApplication::beep();
}

void QtPlatform::showAlert(const AlertRequest& request, AlertDone done) {
    auto* box = new QMessageBox(window_);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(request.style == AlertRequest::Style::Warning ? QMessageBox::Warning
                                                               : QMessageBox::Information);
    box->setWindowTitle(QString::fromStdString(request.title));
    box->setText("<b>" + QString::fromStdString(request.title).toHtmlEscaped() + "</b>");
    box->setInformativeText(QString::fromStdString(request.text));
    std::vector<std::string> titles = request.buttons;
    if (titles.empty()) titles.push_back("OK");
    std::vector<QAbstractButton*> buttons;
    for (size_t i = 0; i < titles.size(); ++i) {
        auto role = i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
        buttons.push_back(box->addButton(QString::fromStdString(titles[i]), role));
    }
    box->setDefaultButton(static_cast<QPushButton*>(buttons.front()));
    box->setEscapeButton(buttons.back());
    if (!request.suppressionTitle.empty())
        box->setCheckBox(new QCheckBox(QString::fromStdString(request.suppressionTitle), box));
    QObject::connect(box, &QMessageBox::finished, box, [box, buttons, done = std::move(done)](int) {
        int code = kAlertFirstButtonReturn + int(buttons.size()) - 1;  // closed otherwise: the last button
        for (size_t i = 0; i < buttons.size(); ++i)
            if (box->clickedButton() == buttons[i]) code = kAlertFirstButtonReturn + int(i);
        const bool suppressed = box->checkBox() && box->checkBox()->isChecked();
        if (done) done(code, suppressed);
    });
    box->setWindowModality(window_ ? Qt::WindowModal : Qt::ApplicationModal);
    box->open();
}

std::optional<std::string> QtPlatform::savePanel(const std::string& title,
                                                 const std::vector<std::string>& types,
                                                 const std::string& startPath) {
    QStringList patterns;
    for (const auto& t : types) patterns << "*." + QString::fromStdString(t);
    QFileDialog dialog(window_, QString::fromStdString(title));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setNameFilter("Log files (" + patterns.join(' ') + ")");
    if (!types.empty()) dialog.setDefaultSuffix(QString::fromStdString(types.front()));
    if (!startPath.empty()) dialog.selectFile(QString::fromStdString(startPath));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) return std::nullopt;
    return dialog.selectedFiles().first().toStdString();
}

std::vector<std::string> QtPlatform::openPanel(const std::string& title, bool folders) {
    QFileDialog dialog(window_, QString::fromStdString(title));
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    // Files that are not audio are left out afterwards, as with a drop.
    dialog.setFileMode(folders ? QFileDialog::Directory : QFileDialog::ExistingFiles);
    if (folders) dialog.setOption(QFileDialog::ShowDirsOnly);
    std::vector<std::string> chosen;
    if (dialog.exec() != QDialog::Accepted) return chosen;
    for (const QString& f : dialog.selectedFiles()) chosen.push_back(f.toStdString());
    return chosen;
}

void QtPlatform::openUrl(const std::string& url) {
    QDesktopServices::openUrl(QUrl(QString::fromStdString(url)));
}

void QtPlatform::showLog(const std::string& text) {
    if (!viewer_) return;
    viewer_->setContents(QString::fromStdString(text));
    viewer_->showWindow();
}

uint64_t QtPlatform::beginActivity(uint64_t, const std::string&) {
    return nextActivity_++;
}

void QtPlatform::endActivity(uint64_t) {}

}  // namespace sondrel::app
