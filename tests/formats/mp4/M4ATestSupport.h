#pragma once
// Runs the MPEG-4 checker over bytes in memory and keeps the record, so tests
// can compare the whole log text and look at the stored items.
#include <cinttypes>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "core/FieldTable.h"
#include "core/LogWriter.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "formats/mp4/M4ATag.h"
#include "tests/fixtures/AtomBuilder.h"
#include "tests/fixtures/CheckHelpers.h"

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
    if (c.tag->errors())
        for (const auto& e : *c.tag->errors()) c.log += formatProblemLine(e) + "\n";
    return c;
}

// One log line as the log prints it.
inline std::string line(uint64_t offset, std::string_view category, std::string_view message) {
    char head[64];
    std::snprintf(head, sizeof head, "    %012" PRIu64 "  ", offset);
    return std::string(head) + std::string(category) + ": " + std::string(message) + "\n";
}

// One row of a table: a file and the whole log text it must give.
struct LogCase {
    const char* name;
    Bytes file;
    std::string expected;
};
inline void expectLogs(const std::vector<LogCase>& cases) {
    for (const LogCase& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(check(c.file).log, c.expected);
    }
}

}  // namespace sondrel::fixtures::mp4
