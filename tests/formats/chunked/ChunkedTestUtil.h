// Helpers shared by the tests of the chunked formats (WAV/RF64, AIFF, DSF,
// DSDIFF): the exact log line, table-driven log checks and sparse files.
#pragma once

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/CheckHelpers.h"

namespace sondrel::fixtures::chunkedtest {

// One problem line exactly as the log prints it.
inline std::string line(uint64_t offset, const char* category, const std::string& message) {
    char head[32];
    std::snprintf(head, sizeof head, "    %012" PRIu64 "  ", offset);
    return head + std::string(category) + ": " + message + "\n";
}

// A built file and the whole log text it must draw.
struct Case {
    const char* name;
    Bytes input;
    std::string expected;
};

inline void expectLogs(const char* fileName, const std::vector<Case>& cases) {
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(problemsFor(fileName, c.input), c.expected);
    }
}

// Writes `head` at 0 and `tail` at `tailAt`, leaving a hole: a file beyond
// 4 GiB that costs no disk space and whose middle is never read.
inline void writeSparse(const std::string& path, const Bytes& head, uint64_t tailAt, const Bytes& tail) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(head.data()), std::streamsize(head.size()));
    out.seekp(std::streamoff(tailAt));
    out.write(reinterpret_cast<const char*>(tail.data()), std::streamsize(tail.size()));
    ASSERT_TRUE(out.good()) << path;
}

}  // namespace sondrel::fixtures::chunkedtest
