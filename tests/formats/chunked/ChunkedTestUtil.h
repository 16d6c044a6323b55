// Helpers shared by the tests of the chunked formats (WAV/RF64, AIFF, DSF,
// DSDIFF): the exact log line, table-driven log checks and sparse files.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/LogCases.h"

namespace sondrel::fixtures::chunkedtest {

// The size finding of WAV ("RIFF"/"RF64" kind), AIFF and DSDIFF (no kind).
inline std::string sizeLine(uint64_t declared, uint64_t adjusted, const std::string& kind = "") {
    return line(0, "Container",
                fmt::format("The {}contained file size of {} does not represent the adjusted file size of {}",
                            kind.empty() ? "" : kind + " ", declared, adjusted));
}

// A copy of `b` with little-endian values of `width` bytes written over it.
struct Patch {
    size_t at;
    uint64_t value;
    int width = 8;
};
inline Bytes patched(Bytes b, std::initializer_list<Patch> patches) {
    for (const auto& p : patches)
        for (int i = 0; i < p.width; ++i) b.at(p.at + i) = uint8_t(p.value >> (8 * i));
    return b;
}

// A clean ID3v2.3 tag, and the same tag refused by the header reader.
inline Bytes cleanTag() {
    return id3Tag(3, concat({id3Frame("TIT2", id3Text("Title")), id3Frame("TPE1", id3Text("Artist"))}), 0, 6);
}
inline Bytes badVersionTag() {
    return patched(cleanTag(), {{3, 5, 1}});
}
// A 26-byte tag (even) that the reader announces by its experimental flag.
inline Bytes experimentalTag() {
    return id3Tag(3, id3TextFrame(3, "TIT2", "Title"), 0x20);
}
inline const std::string kExperimental = "Experimental bit is set in the tag header";

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
