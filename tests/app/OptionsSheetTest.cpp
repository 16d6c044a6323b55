// The options sheet edits every switch of the shipped defaults and stores each
// change where the command line reads it.
#include "app/OptionsSheet.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QSpinBox>

#include <set>
#include <sstream>

#include "app/AppDelegate.h"
#include "core/BuildInfo.h"
#include "tests/app/FakePlatform.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::app {
namespace {

TEST(OptionsSheet, EveryShippedSwitchIsEditableAndStored) {
    fixtures::TempDir config;
    testing::FakePlatform platform;
    AppDelegate delegate(platform, config.path(), "");
    QWidget window;
    OptionsSheet sheet(delegate, &window);

    // Every true/false value of the defaults resource has its check box.
    std::set<std::string> shipped, offered;
    std::istringstream in(build::kUserDefaults);
    for (std::string line; std::getline(in, line);) {
        auto eq = line.find('=');
        if (line.empty() || line[0] == '#' || eq == std::string::npos) continue;
        const std::string value = line.substr(eq + 1);
        if (value == "true" || value == "false") shipped.insert(line.substr(0, eq));
    }
    for (const auto& o : OptionsSheet::booleanOptions()) offered.insert(o.key);
    EXPECT_EQ(shipped, offered);

    sheet.showPrefs();
    for (const auto& o : OptionsSheet::booleanOptions()) {
        auto* box = sheet.findChild<QCheckBox*>(o.key);
        ASSERT_NE(box, nullptr) << o.key;
        const bool before = Settings::load(config.path()).boolFromKey(o.key);
        EXPECT_EQ(box->isChecked(), before) << o.key;
        box->click();
        EXPECT_EQ(Settings::load(config.path()).boolFromKey(o.key), !before) << o.key;
    }
    auto* verify = sheet.findChild<QComboBox*>("Verify");
    ASSERT_NE(verify, nullptr);
    EXPECT_EQ(verify->currentData().toString(), "off");
    verify->setCurrentIndex(2);
    EXPECT_EQ(Settings::load(config.path()).stringFromKey("Verify"), "full");
    auto* size = sheet.findChild<QSpinBox*>("LogFixedFontSize");
    ASSERT_NE(size, nullptr);
    EXPECT_EQ(size->value(), 12);
    size->setValue(15);
    EXPECT_EQ(Settings::load(config.path()).intFromKey("LogFixedFontSize"), 15);
    // The problem filter: a severity word, and a code list stored only when
    // every entry names something.
    auto* minSeverity = sheet.findChild<QComboBox*>("MinSeverity");
    ASSERT_NE(minSeverity, nullptr);
    minSeverity->setCurrentIndex(minSeverity->findData("error"));
    EXPECT_EQ(Settings::load(config.path()).stringFromKey("MinSeverity"), "error");
    auto* ignore = sheet.findChild<QLineEdit*>("IgnoreCodes");
    ASSERT_NE(ignore, nullptr);
    ignore->setText("id3.*");
    EXPECT_EQ(Settings::load(config.path()).stringFromKey("IgnoreCodes"), "id3.*");
    ignore->setText("id3.*,no-such-code");
    EXPECT_EQ(Settings::load(config.path()).stringFromKey("IgnoreCodes"), "id3.*");
    // The result cache: a switch the command line shares, and its file.
    auto* cache = sheet.findChild<QCheckBox*>("Cache");
    auto* cacheFile = sheet.findChild<QLineEdit*>("CacheFile");
    ASSERT_TRUE(cache && cacheFile);
    EXPECT_FALSE(cache->isChecked() || cacheFile->isEnabled());
    cache->click();
    cacheFile->setText("~/results.sqlite");
    EXPECT_TRUE(Settings::load(config.path()).boolFromKey("Cache"));
    EXPECT_EQ(Settings::load(config.path()).stringFromKey("CacheFile"), "~/results.sqlite");
    sheet.prefsDone();
    EXPECT_FALSE(sheet.isVisible());
}

}  // namespace
}  // namespace sondrel::app
