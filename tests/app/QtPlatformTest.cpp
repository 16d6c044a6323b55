// The widget side: alerts as window-modal message boxes with their check box.
#include "app/QtPlatform.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QMessageBox>
#include <QPushButton>

#include "app/AppDelegate.h"
#include "tests/app/FakePlatform.h"

namespace sondrel::app {
namespace {

QMessageBox* openMessageBox() {
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* box = qobject_cast<QMessageBox*>(w); box && box->isVisible()) return box;
    return nullptr;
}

TEST(QtPlatform, AlertIsAWindowModalSheetWithItsCheckBox) {
    QWidget window;
    window.show();
    QtPlatform platform;
    platform.setWindow(&window);
    int code = 0;
    bool suppressed = false;
    platform.showAlert(
        {"File Exists", "The text", {"Continue", "Cancel"}, AlertRequest::Style::Warning, "Do not ask again"},
        [&](int c, bool s) { code = c, suppressed = s; });
    QMessageBox* box = openMessageBox();
    ASSERT_NE(box, nullptr);
    EXPECT_TRUE(box->windowModality() == Qt::WindowModal && box->parentWidget() == &window);
    EXPECT_TRUE(box->informativeText() == "The text" && box->icon() == QMessageBox::Warning);
    ASSERT_NE(box->checkBox(), nullptr);
    EXPECT_EQ(box->checkBox()->text(), "Do not ask again");
    EXPECT_EQ(box->defaultButton()->text(), "Continue");
    box->checkBox()->setChecked(true);
    testing::button(*box, "Cancel")->click();
    testing::turn();
    EXPECT_EQ(code, kAlertFirstButtonReturn + 1);
    EXPECT_TRUE(suppressed);
}

}  // namespace
}  // namespace sondrel::app
