// Audio verification: the bounded findings sink, a damage matrix over files
// written by real encoders during the test run (every damage a format can
// reveal draws a line at error or above at its tier, clean files draw none,
// with verification off damaged audio draws no Audio line and what the
// damage adds is never only notes), and the line each kind of finding draws.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "codes/ProblemCodes.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/DsfBuilder.h"
#include "verify/Verify.h"

namespace sondrel {
namespace {

using namespace fixtures;
using Damage = std::function<void(Bytes&)>;

// The gravest severity among the log's lines; every Audio line must belong
// to a row of the code table.
codes::Severity gravest(const std::string& log) {
    codes::Severity worst = codes::Severity::Note;
    for (size_t at = 0, end; at < log.size(); at = end + 1) {
        end = std::min(log.find('\n', at), log.size());
        const std::string_view line(log.data() + at, end - at);
        const size_t colon = line.find(": ");
        if (colon == std::string_view::npos) continue;
        const uint16_t row = codes::classify(line.substr(colon + 2));
        if (line.find("  Audio: ") != std::string_view::npos) {
            EXPECT_NE(row, codes::kUnclassified) << line;
        }
        worst = std::max(worst, codes::codeAt(row).severity);
    }
    return worst;
}

size_t findFrom(const Bytes& b, std::string_view marker, size_t from) {
    const Bytes m(marker.begin(), marker.end());
    return size_t(std::search(b.begin() + long(from), b.end(), m.begin(), m.end()) - b.begin());
}

// Adds `delta` to the byte `offset` bytes after the first `id` in the file.
Damage bump(std::string_view id, size_t offset, uint8_t delta) {
    return [=](Bytes& b) {
        const size_t at = findFrom(b, id, 0);
        ASSERT_LT(offset, b.size() - at);
        b[at + offset] = uint8_t(b[at + offset] + delta);
    };
}
const auto zero = [](size_t eighths, size_t count) -> Damage {
    return [=](Bytes& b) {
        std::fill_n(b.begin() + long(b.size() * eighths / 8), std::min(count, b.size() / 2), 0);
    };
};
const auto cutBy = [](size_t count) -> Damage { return [=](Bytes& b) { b.resize(b.size() - count); }; };
const auto set = [](size_t at, uint8_t value) -> Damage { return [=](Bytes& b) { b[at] = value; }; };
const auto flip = [](size_t at) -> Damage { return [=](Bytes& b) { b[at] ^= 0x01; }; };

// A six-second tone written by a real encoder under the name `file`, made
// once per run; empty when the encoder is missing or `file` is crafted.
const Bytes& encoded(const std::string& file) {
    static const std::map<std::string, std::string> commands = {
        {"a.flac", "flac -s -f -T TITLE=T -o $out $in"},
        {"b.flac", "ffmpeg -v error -i $in -metadata title=T $out"},
        {"n.flac", "flac -s --no-md5-sum -o $out $in"},
        {"a.mp3", "lame --quiet -V 4 $in $out"},
        {"a.ogg", "oggenc -Q -o $out $in"},
        {"a.opus", "opusenc --quiet $in $out"},
        {"a.wv", "wavpack -q -y $in -o $out && wvtag -q -y -w Title=T $out"},
        {"m.wv", "wavpack -q -y -m $in -o $out"},
        {"a.m4a", "ffmpeg -v error -i $in -c:a aac -metadata title=T $out"},
        {"b.m4a", "ffmpeg -v error -i $in -c:a alac -metadata title=T $out"},
        {"f.m4a", "ffmpeg -v error -i $in -c:a aac -movflags +faststart $out"},
        {"a.wav", "sox $in $out"},
        {"b.wav", "ffmpeg -v error -i $in -metadata title=T $out"},
        {"a.aiff", "sox $in $out"},
        {"a.aifc", "sox $in $out"},
    };
    static const TempDir dir;
    static const std::string in = dir.path() + "/tone.wav",
                             lavfi = "-f lavfi -i sine=frequency=440:duration=6 -fflags +bitexact";
    static const bool tone = run("ffmpeg -v error " + lavfi + " -map_metadata -1 -ac 2 -ar 44100 " + in);
    static std::map<std::string, Bytes> made;
    const auto command = commands.find(file);
    if (!made.count(file) && tone && command != commands.end() &&
        haveTool(command->second.substr(0, command->second.find(' ')))) {
        const std::string& c = command->second;
        EXPECT_TRUE(run("in=" + in + " out=" + dir.path() + "/" + file + "; " + c + " 2>/dev/null")) << c;
        made[file] = readBytes(dir.path() + "/" + file);
    }
    return made[file];
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(Verify, TimeBoundedFindingsAndLibraryVersions) {
    EXPECT_EQ(verify::formatTime(192 * 44100 + 21168, 44100), "00:03:12.480");
    EXPECT_EQ(verify::formatTime(uint64_t(3) * 3600 * 48000 + 47999, 48000), "03:00:00.999");
    Settings settings;
    Tag tag("/memory/x.flac", settings, Tag::NoAnalysis{});
    {
        verify::Findings findings(tag);
        for (uint64_t i = 0; i < verify::Findings::kListed + 5; ++i) findings.add(100 + i, "damaged");
    }
    ASSERT_EQ(tag.errorCount(), verify::Findings::kListed + 1);
    EXPECT_EQ(tag.errors()->back().offset, 100 + verify::Findings::kListed);
    EXPECT_EQ(tag.errors()->back().reason, "5 more audio problems in this file are not listed");
    const std::string versions = verify::libraryVersions();
    for (const char* name :
         {"libFLAC ", "libmpg123 ", "libwavpack ", "libvorbisfile ", "libopusfile ", "FFmpeg "})
        EXPECT_TRUE(has(versions, name)) << versions;
}

// Descriptor, header, a one-entry seek table, the WAVE header, 1000 bytes
// of frames: Monkey's Audio as laid out, its frames not real audio.
Bytes craftedApe() {
    ByteBuilder b;
    b.str("MAC ").le16(3990).le16(0).le32(52).le32(24).le32(4).le32(44).le32(1000).le32(0).le32(0).zeros(16);
    b.le16(2000).le16(0).le32(73728).le32(100).le32(1).le16(16).le16(2).le32(44100);
    return b.le32(124).zeros(44).fill(1000, 0x33).take();
}

const std::string kDsdHeader("DSD \0\0\0\0", 8);  // a DFF sound chunk's header

struct Encoded {
    const char* file;           // encoded, or `crafted` stands in
    std::string marker;         // the bytes that begin a frame or block in this format
    Damage miscount;            // makes the declared sample count disagree with the audio
    const char* blind = "";     // damages the format cannot reveal
    bool quickSeesAll = false;  // every damage draws an Audio line at quick
    Bytes crafted = {};
    const char* tier = "full";
};

// A WavPack block's stored MD5 changed and its checksum made right again:
// only decoding finds it. The signature sits in the last block, whose
// checksum item closes it.
void forgeWavPackSignature(Bytes& b) {
    ASSERT_GT(b.size(), 56u);
    const size_t last = b.size() - 56;
    ASSERT_TRUE(b[last] == 'w' && b[last + 32] == 0x26 && b[last + 33] == 8 && b[last + 50] == 0x2F);
    b[last + 40] ^= 0x01;
    uint32_t sum = 0xFFFFFFFF;
    for (size_t i = last; i < last + 50; i += 2) sum = sum * 3 + b[i] + (uint32_t(b[i + 1]) << 8);
    for (size_t i = 0; i < 4; ++i) b[last + 52 + i] = uint8_t(sum >> (8 * i));
}

// A damage at a relative position of the audio, or the format's own miscount.
const std::vector<std::pair<std::string, std::function<void(Bytes&, const Encoded&)>>> kDamages = {
    {"cut", [](Bytes& b, const Encoded&) { b.resize(b.size() * 2 / 3); }},
    {"zeroed",
     [](Bytes& b, const Encoded&) {
         std::fill_n(b.begin() + long(b.size() / 3), std::min<size_t>(65536, b.size() / 3), 0);
     }},
    {"flip", [](Bytes& b, const Encoded&) { b[b.size() / 2] ^= 0x10; }},
    {"marker",
     [](Bytes& b, const Encoded& e) {
         size_t at = findFrom(b, e.marker, b.size() / 2);
         if (at == b.size()) at = findFrom(b, e.marker, 0);  // a chunk header ahead of the audio
         ASSERT_LT(at, b.size());
         b[at] ^= 0x01;
     }},
    {"appended", [](Bytes& b, const Encoded&) { b.insert(b.end(), 3000, 0x5A); }},
    {"miscounted", [](Bytes& b, const Encoded& e) { e.miscount(b); }},
};

TEST(Verify, RealEncoderFilesTheirDamageAndTheLineEachFindingDraws) {
    verify::install();
    if (!haveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
    chunked::DsfLayout dsf;
    dsf.blocksPerChannel = 3;
    // Zeros and flipped bits in PCM or DSD samples are valid sound: those
    // formats carry no checksum, only lengths and counts can disagree. AAC
    // and ALAC frames carry none either.
    const char* samples = "zeroed flip";
    const std::vector<Encoded> rows = {
        // STREAMINFO's sample count ends at byte 4 + 4 + 18 of a plain file.
        {"a.flac", "\xFF\xF8", flip(4 + 4 + 17), "", true},
        {"b.flac", "\xFF\xF8", nullptr, "", true},
        // The Xing frame count (frame header, 32 bytes of side information, "Xing" and flags).
        {"a.mp3", "\xFF\xFB", bump("Xing", 11, 1), "", true},
        {"a.ogg", "OggS", nullptr, "", true},
        {"a.opus", "OggS", nullptr, "", true},
        // The total in the first block header.
        {"a.wv", "wvpk", bump("wvpk", 12, 1), "", true},
        // MPEG-4: the broken marker is the chunk offset table's; the count is
        // the track's duration in "mdhd", made shorter (the demuxer takes the
        // shorter of it and the sample table's).
        {"a.m4a", "stco", bump("mdhd", 21, 0xFF), "flip"},
        {"b.m4a", "stco", bump("mdhd", 21, 0xFF), "flip"},
        // A PCM WAV file's only count is its data chunk's size.
        {"a.wav", "data", bump("data", 4, 4), samples},
        {"b.wav", "data", bump("data", 4, 4), samples},
        {"a.aiff", "SSND", bump("COMM", 13, 1), samples},
        {"a.aifc", "SSND", bump("COMM", 13, 1), samples},
        // No Debian encoder writes DSF, DFF or Monkey's Audio: crafted files
        // stand in. Crafted Monkey's Audio frames do not decode: the quick
        // tier, which sees lengths and the seek table, not inside the frames.
        {"a.dsf", "data", bump("fmt ", 38, 1), samples, false, chunked::dsfFile(dsf)},
        {"a.dff", kDsdHeader, bump(kDsdHeader, 11, 2), samples, false,
         dffFile({dffStandardProps(), dffDsdChunk(30000)})},
        {"a.ape", "MAC ", bump("MAC ", 52 + 12, 1), samples, false, craftedApe(), "quick"},
    };
    for (const Encoded& e : rows) {
        SCOPED_TRACE(e.file);
        const Bytes clean = e.crafted.empty() ? encoded(e.file) : e.crafted;
        if (clean.empty()) continue;  // the encoder is missing
        const std::string cleanOff = problemsFor(e.file, clean);
        for (const char* tier : {"quick", e.tier}) {
            const std::string log = problemsFor(e.file, clean, {{"Verify", tier}});
            EXPECT_LT(gravest(log), codes::Severity::Error) << log;
        }
        // Cut at many lengths or with a byte inverted there, nothing may go
        // wrong (the sanitizers watch); the verdicts are not compared.
        for (size_t i = 1; i <= 32; ++i) {
            const size_t at = clean.size() * i / 33;
            Bytes cut(clean.begin(), clean.begin() + long(at)), flipped = clean;
            flipped[at] ^= 0xFF;
            for (const Bytes* b : {&cut, &flipped}) problemsFor(e.file, *b, {{"Verify", e.tier}});
        }
        for (const auto& [name, apply] : kDamages) {
            if (name == "miscounted" && !e.miscount) continue;
            SCOPED_TRACE(name);
            Bytes bytes = clean;
            apply(bytes, e);
            const std::string off = problemsFor(e.file, bytes);
            EXPECT_FALSE(has(off, "  Audio: ")) << off;
            // Without verification too, whatever the damage adds to the log
            // includes an error or damage: a broken file is never only notes.
            std::string added;
            for (size_t at = 0, end; at < off.size(); at = end + 1) {
                end = std::min(off.find('\n', at), off.size());
                const std::string line = off.substr(at, end - at) + "\n";
                if (cleanOff.find(line) == std::string::npos) added += line;
            }
            EXPECT_TRUE(added.empty() || gravest(added) >= codes::Severity::Error) << added;
            const std::string quick = problemsFor(e.file, bytes, {{"Verify", "quick"}});
            EXPECT_TRUE(!e.quickSeesAll || has(quick, "  Audio: ")) << quick;
            if (std::string_view(e.blind).find(name) != std::string_view::npos) continue;
            const std::string log = problemsFor(e.file, bytes, {{"Verify", e.tier}});
            EXPECT_GE(gravest(log), codes::Severity::Error) << log;
        }
    }
    // The line (or the distinctive part of it) each kind of finding draws. At
    // "full" only the decoders see it: the quick tier must not draw it. The
    // undamaged file never draws it.
    const Bytes ape = craftedApe(), dsd = dffFile({dffStandardProps(), dffDsdChunk(64)});
    Bytes dst = dffFile({dffStandardProps("DST "), dffDstChunk(2)});
    dst[findFrom(dst, "FRTE", 0) + 15] = 3;
    chunked::DsfLayout over = dsf;
    over.sampleCount = 3 * 4096 * 8 + 1;  // one bit into a fourth block
    const Bytes dsfBytes = chunked::dsfFile(dsf), overBytes = chunked::dsfFile(over);
    struct Row {
        const char* file;  // encoded, or `crafted` stands in
        Damage damage;
        bool full;  // the tier that draws the line, "full" or "quick"
        std::string line;
        Bytes crafted = {};
    };
    const std::string frames = "is not a whole number of 4-byte sample frames";
    const std::vector<Row> lines = {
        // MPEG-4 carries no checksums: the quick tier follows the sample tables.
        {"f.m4a", [](Bytes& b) { b.resize(b.size() * 2 / 3); }, false, "lies beyond the end of the file"},
        {"f.m4a", bump("stco", 13, 1), false, "  Audio: MPEG-4 track 1 chunk 1"},
        {"a.mp3", zero(3, 4000), true, "  Audio: MPEG audio decoder lost sync at "},
        {"a.mp3", zero(4, ~size_t(0)), true, "  Audio: MPEG audio decoder stopped at "},
        {"a.wv", [](Bytes& b) { b[b.size() / 2] ^= 0x10; }, true,
         "  Audio: WavPack decoded audio fails its checksum at "},
        {"m.wv", forgeWavPackSignature, true,
         "    000000000000  Audio: WavPack decoded audio does not match its stored MD5 signature\n"},
        {"a.ogg", zero(5, 3000), true, "  Audio: Ogg Vorbis audio has a hole at "},
        {"a.opus", zero(5, 3000), true, "  Audio: Ogg Opus audio has a hole at "},
        {"a.m4a", zero(5, 3000), true, "  Audio: MPEG-4 audio decoder error at "},
        {"b.m4a", zero(5, 3000), true, "  Audio: MPEG-4 audio decoder error at "},
        {"n.flac", nullptr, true,
         "    000000000004  Audio: FLAC STREAMINFO holds no MD5 signature of the audio\n"},
        {"n.flac", set(4 + 4 + 18, 1), true,
         "    000000000004  Audio: FLAC decoded audio does not match the MD5 signature in STREAMINFO\n"},
        // Uncompressed sound data is measured, not read: a cut inside a sample
        // frame draws both the partial frame and the short count (a plain PCM
        // WAV file declares no count of its own).
        {"a.wav", cutBy(3), false, frames},
        {"a.aiff", cutBy(3), false, frames},
        {"a.aiff", cutBy(3), false, "sample frames, the COMM chunk"},
        {"a.aifc", cutBy(3), false, "sample frames, the COMM chunk"},
        {"a.dsf", cutBy(100), false,
         "of 24476 bytes is not a whole number of 8192-byte groups of channel blocks", dsfBytes},
        {"a.dsf", cutBy(100), false, "holds 2 blocks per channel, the sample count needs 3", dsfBytes},
        {"a.dsf", nullptr, false, "holds 3 blocks per channel, the sample count needs 4", overBytes},
        {"a.ape", cutBy(500), false, "file holds 500 bytes of audio data, the header declares 1000", ape},
        {"a.ape", set(52 + 12, 2), false, "seek table holds 1 frames, the header declares 2", ape},
        {"a.ape", set(76, 0), false, "Monkey's Audio frame 1 at 0 lies outside the audio data", ape},
        {"a.dff", cutBy(11), false, "DFF sound data holds 53 bytes, its chunk declares 64", dsd},
        {"a.dff", cutBy(11), false, "sound data of 53 bytes is not a whole number of 2-byte sample frames",
         dsd},
        {"a.dff", nullptr, false, "DFF holds 2 DST frames, the frame information declares 3", dst},
    };
    for (const Row& row : lines) {
        SCOPED_TRACE(std::string(row.file) + ": " + row.line);
        Bytes b = row.crafted.empty() ? encoded(row.file) : row.crafted;
        if (b.empty()) continue;  // the encoder is missing
        const std::map<std::string, std::string> tier = {{"Verify", row.full ? "full" : "quick"}};
        if (row.damage) {
            EXPECT_FALSE(has(problemsFor(row.file, b, tier), row.line)) << "undamaged";
            row.damage(b);
        }
        const std::string log = problemsFor(row.file, b, tier);
        EXPECT_TRUE(has(log, row.line)) << log;
        EXPECT_FALSE(row.full && has(problemsFor(row.file, b, {{"Verify", "quick"}}), row.line))
            << "seen at quick";
    }
}

}  // namespace
}  // namespace sondrel
