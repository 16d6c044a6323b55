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

#include "core/BuildInfo.h"
#include "tests/app/FakePlatform.h"

namespace sondrel::app {
namespace {

TEST(OptionsSheet, EveryShippedSwitchIsEditableAndStored) {
    testing::Desktop d;
    OptionsSheet sheet(d.delegate, &d.window);
    const auto stored = [&](const char* key) { return d.stored().stringFromKey(key); };

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
        const bool before = d.stored().boolFromKey(o.key);
        EXPECT_EQ(box->isChecked(), before) << o.key;
        box->click();
        EXPECT_EQ(d.stored().boolFromKey(o.key), !before) << o.key;
    }
    auto* verify = sheet.findChild<QComboBox*>("Verify");
    auto* size = sheet.findChild<QSpinBox*>("LogFixedFontSize");
    auto* minSeverity = sheet.findChild<QComboBox*>("MinSeverity");
    auto* ignore = sheet.findChild<QLineEdit*>("IgnoreCodes");
    auto* cache = sheet.findChild<QCheckBox*>("Cache");
    auto* cacheFile = sheet.findChild<QLineEdit*>("CacheFile");
    ASSERT_TRUE(verify && size && minSeverity && ignore && cache && cacheFile);
    verify->setCurrentIndex(2);
    EXPECT_EQ(stored("Verify"), "full");
    size->setValue(15);
    EXPECT_EQ(stored("LogFixedFontSize"), "15");
    // The problem filter: a severity word, and a code list stored only when
    // every entry names something.
    minSeverity->setCurrentIndex(minSeverity->findData("error"));
    EXPECT_EQ(stored("MinSeverity"), "error");
    ignore->setText("id3.*");
    ignore->setText("id3.*,no-such-code");
    EXPECT_EQ(stored("IgnoreCodes"), "id3.*");
    // The result cache: a switch the command line shares, and its file.
    EXPECT_FALSE(cache->isChecked() || cacheFile->isEnabled());
    cache->click();
    cacheFile->setText("~/results.sqlite");
    EXPECT_TRUE(cacheFile->isEnabled() && d.stored().boolFromKey("Cache"));
    EXPECT_EQ(stored("CacheFile"), "~/results.sqlite");
    sheet.prefsDone();
    EXPECT_FALSE(sheet.isVisible());
}

}  // namespace
}  // namespace sondrel::app
