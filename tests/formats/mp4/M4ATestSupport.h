#pragma once
// Runs the MPEG-4 checker over bytes in memory and keeps the record, so tests
// can compare the whole log text and look at the stored items.
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "core/FieldTable.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "formats/mp4/M4ATag.h"
#include "tests/fixtures/AtomBuilder.h"
#include "tests/fixtures/LogCases.h"

namespace sondrel::fixtures::mp4 {

struct Checked {
    std::unique_ptr<Settings> settings;
    std::unique_ptr<Tag> tag;
    std::string log;
    const M4ATag& checker() const { return dynamic_cast<const M4ATag&>(*tag->lowLevelRep()); }
};

inline Checked check(const Bytes& file, const std::map<std::string, std::string>& overrides = {},
                     const std::string& name = "a.m4a") {
    Checked c;
    c.settings = std::make_unique<Settings>(settingsWith(overrides));
    c.tag = std::make_unique<Tag>("/memory/" + name, *c.settings, file);
    c.log = problemLines(*c.tag);
    return c;
}

}  // namespace sondrel::fixtures::mp4
