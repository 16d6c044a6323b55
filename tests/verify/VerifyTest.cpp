// Audio verification: the bounded findings sink and its time format, and a
// damage generator over files written by real encoders during the test run.
// Every kind of damage a format can reveal draws at least one line at error
// or above at the full tier; clean files draw none; with verification off,
// damaged audio draws no Audio line.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
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

Bytes readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

size_t audioLines(const std::string& log) {
    size_t n = 0;
    for (size_t at = 0; (at = log.find("  Audio: ", at)) != std::string::npos; ++at) ++n;
    return n;
}

// The gravest severity among the log's lines ("    offset  Category: message");
// every Audio line must belong to a row of the code table.
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

TEST(Verify, TimeAndBoundedFindings) {
    EXPECT_EQ(verify::formatTime(192 * 44100 + 21168, 44100), "00:03:12.480");
    EXPECT_EQ(verify::formatTime(uint64_t(3) * 3600 * 48000 + 47999, 48000), "03:00:00.999");

    Settings settings;
    Tag tag("/memory/x.flac", settings, Tag::NoAnalysis{});
    {
        verify::Findings findings(tag);
        for (uint64_t i = 0; i < verify::Findings::kListed + 5; ++i) findings.add(100 + i, "damaged");
    }
    ASSERT_EQ(tag.errorCount(), verify::Findings::kListed + 1);
    const LogError& last = tag.errors()->back();
    EXPECT_EQ(last.offset, 100 + verify::Findings::kListed);
    EXPECT_EQ(last.reason, "5 more audio problems in this file are not listed");
}

// A damage at a relative position of the audio; `marker` names the bytes that
// begin a frame or block in this format.
struct Damage {
    const char* name;
    std::function<void(Bytes&, const Bytes& marker)> apply;
};

size_t findFrom(const Bytes& b, const Bytes& marker, size_t from) {
    auto it = std::search(b.begin() + long(from), b.end(), marker.begin(), marker.end());
    return size_t(it - b.begin());
}

const std::vector<Damage> kDamages = {
    {"truncated", [](Bytes& b, const Bytes&) { b.resize(b.size() * 2 / 3); }},
    {"zeroed 64 KiB",
     [](Bytes& b, const Bytes&) {
         std::fill_n(b.begin() + long(b.size() / 3), std::min<size_t>(65536, b.size() / 3), 0);
     }},
    {"bit flip", [](Bytes& b, const Bytes&) { b[b.size() / 2] ^= 0x10; }},
    {"broken marker",
     [](Bytes& b, const Bytes& marker) {
         size_t at = findFrom(b, marker, b.size() / 2);
         if (at == b.size()) at = findFrom(b, marker, 0);  // a chunk header ahead of the audio
         ASSERT_LT(at, b.size());
         b[at] ^= 0x01;
     }},
    {"garbage appended", [](Bytes& b, const Bytes&) { b.insert(b.end(), 3000, 0x5A); }},
};

// Descriptor, header, a one-entry seek table, the WAVE header, 1000 bytes
// of frames: Monkey's Audio as laid out, its frames not real audio.
Bytes craftedApe() {
    ByteBuilder builder;
    builder.str("MAC ")
        .le16(3990)
        .le16(0)
        .le32(52)
        .le32(24)
        .le32(4)
        .le32(44)
        .le32(1000)
        .le32(0)
        .le32(0)
        .zeros(16);
    builder.le16(2000).le16(0).le32(73728).le32(100).le32(1).le16(16).le16(2).le32(44100);
    return builder.le32(124).zeros(44).fill(1000, 0x33).take();
}

struct Encoded {
    const char* file;
    const char* tool;     // null: `crafted` stands in for an encoder
    std::string command;  // writes {out} from {in}
    Bytes marker;
    // Makes the declared sample count disagree with the audio.
    std::function<void(Bytes&)> miscount;
    bool quickSeesAll = false;  // every damage draws an Audio line at quick
    // Damages the format cannot reveal; the row's comment gives the reason.
    std::vector<std::string_view> excluded = {};
    Bytes crafted = {};
    const char* tier = "full";
};

// Adds `delta` to the byte `offset` bytes after the first `id` in the file.
std::function<void(Bytes&)> bump(std::string_view id, size_t offset, uint8_t delta) {
    return [=](Bytes& b) {
        const size_t at = findFrom(b, Bytes(id.begin(), id.end()), 0);
        ASSERT_LT(offset, b.size() - at);
        b[at + offset] = uint8_t(b[at + offset] + delta);
    };
}

TEST(Verify, RealEncoderFilesAndTheirDamage) {
    verify::install();
    if (!haveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
    TempDir dir;
    const std::string wav = dir.path() + "/tone.wav";
    ASSERT_TRUE(
        run("ffmpeg -v error -f lavfi -i sine=frequency=440:duration=6 -fflags +bitexact -map_metadata -1 "
            "-ac 2 -ar 44100 '" +
            wav + "'"));
    chunked::DsfLayout dsf;
    dsf.blocksPerChannel = 3;
    // Zeros and flipped bits in PCM or DSD samples are valid sound: those
    // formats carry no checksum, only lengths and counts can disagree.
    const std::vector<std::string_view> samplesUnchecked = {"zeroed 64 KiB", "bit flip"};
    const std::vector<Encoded> encoders = {
        {"a.flac",
         "flac",
         "flac -s -f -T TITLE=T -o {out} {in}",
         {0xFF, 0xF8},
         // STREAMINFO's sample count ends at byte 4 + 4 + 18 of a plain file.
         [](Bytes& b) { b[4 + 4 + 17] ^= 0x01; },
         true},
        {"b.flac", "ffmpeg", "ffmpeg -v error -i {in} -metadata title=T {out}", {0xFF, 0xF8}, nullptr, true},
        {"a.mp3",
         "lame",
         "lame --quiet -V 4 {in} {out}",
         {0xFF, 0xFB},
         // The Xing frame count (frame header, 32 bytes of side information, "Xing" and flags).
         [](Bytes& b) { b[4 + 32 + 8 + 3] ^= 0x01; },
         true},
        {"a.ogg", "oggenc", "oggenc -Q -o {out} {in}", {'O', 'g', 'g', 'S'}, nullptr, true},
        {"a.opus", "opusenc", "opusenc --quiet {in} {out}", {'O', 'g', 'g', 'S'}, nullptr, true},
        {"a.wv",
         "wavpack",
         "wavpack -q -y {in} -o {out} && wvtag -q -y -w Title=T {out}",
         {'w', 'v', 'p', 'k'},
         // The total in the first block header.
         [](Bytes& b) { b[12] ^= 0x01; },
         true},
        // MPEG-4: the broken marker is the chunk offset table's; the count is
        // the track's duration in "mdhd", made shorter (the demuxer takes the
        // shorter of it and the sample table's). AAC and ALAC frames carry no
        // checksum: a flipped bit decodes to other, valid sound.
        {"a.m4a",
         "ffmpeg",
         "ffmpeg -v error -i {in} -c:a aac -metadata title=T {out}",
         {'s', 't', 'c', 'o'},
         bump("mdhd", 21, 0xFF),
         false,
         {"bit flip"}},
        {"b.m4a",
         "ffmpeg",
         "ffmpeg -v error -i {in} -c:a alac -metadata title=T {out}",
         {'s', 't', 'c', 'o'},
         bump("mdhd", 21, 0xFF),
         false,
         {"bit flip"}},
        // A PCM WAV file's only count is its data chunk's size.
        {"a.wav", "sox", "sox {in} {out}", {'d', 'a', 't', 'a'}, bump("data", 4, 4), false, samplesUnchecked},
        {"b.wav",
         "ffmpeg",
         "ffmpeg -v error -i {in} -metadata title=T {out}",
         {'d', 'a', 't', 'a'},
         bump("data", 4, 4),
         false,
         samplesUnchecked},
        {"a.aiff",
         "sox",
         "sox {in} {out}",
         {'S', 'S', 'N', 'D'},
         bump("COMM", 13, 1),
         false,
         samplesUnchecked},
        {"a.aifc",
         "sox",
         "sox {in} {out}",
         {'S', 'S', 'N', 'D'},
         bump("COMM", 13, 1),
         false,
         samplesUnchecked},
        // No Debian encoder writes DSF, DFF or Monkey's Audio: crafted files
        // stand in. The DFF marker is the sound chunk's header, its size the count.
        {"a.dsf",
         nullptr,
         "",
         {'d', 'a', 't', 'a'},
         bump("fmt ", 38, 1),
         false,
         samplesUnchecked,
         chunked::dsfFile(dsf)},
        {"a.dff",
         nullptr,
         "",
         {'D', 'S', 'D', ' ', 0, 0, 0, 0},
         bump({"DSD \0\0\0\0", 8}, 11, 2),
         false,
         samplesUnchecked,
         dffFile({dffStandardProps(), dffDsdChunk(30000)})},
        // Crafted frames do not decode: the quick tier, which sees lengths
        // and the seek table but not inside the frames.
        {"a.ape",
         nullptr,
         "",
         {'M', 'A', 'C', ' '},
         bump("MAC ", 52 + 12, 1),
         false,
         samplesUnchecked,
         craftedApe(),
         "quick"},
    };
    for (const Encoded& e : encoders) {
        SCOPED_TRACE(e.file);
        std::string command = e.command, out = dir.path() + "/" + e.file;
        if (e.tool && !haveTool(e.tool)) continue;
        for (const auto& [token, path] : {std::pair{"{in}", wav}, std::pair{"{out}", out}})
            for (size_t at; (at = command.find(token)) != std::string::npos;)
                command.replace(at, std::string_view(token).size(), "'" + path + "'");
        if (e.tool) {
            ASSERT_TRUE(run(command + " 2>/dev/null"));
        }
        const Bytes clean = e.tool ? readBytes(out) : e.crafted;
        for (const char* tier : {"quick", e.tier}) {
            const std::string log = problemsFor(e.file, clean, {{"Verify", tier}});
            EXPECT_LT(gravest(log), codes::Severity::Error) << log;
        }

        std::vector<std::pair<std::string, Bytes>> damaged;
        for (const Damage& d : kDamages) {
            Bytes b = clean;
            d.apply(b, e.marker);
            damaged.emplace_back(d.name, std::move(b));
        }
        if (e.miscount) {
            Bytes b = clean;
            e.miscount(b);
            damaged.emplace_back("miscounted", std::move(b));
        }
        // Cut at many lengths or with a byte inverted there, nothing may go
        // wrong (the sanitizers watch); the verdicts are not compared.
        for (size_t i = 1; i <= 32; ++i) {
            const size_t at = clean.size() * i / 33;
            Bytes cut(clean.begin(), clean.begin() + long(at)), flipped = clean;
            flipped[at] ^= 0xFF;
            for (const Bytes* b : {&cut, &flipped}) problemsFor(e.file, *b, {{"Verify", e.tier}});
        }
        for (const auto& [name, bytes] : damaged) {
            SCOPED_TRACE(name);
            const std::string off = problemsFor(e.file, bytes);
            EXPECT_EQ(audioLines(off), 0u) << off;
            const std::string quick = problemsFor(e.file, bytes, {{"Verify", "quick"}});
            if (e.quickSeesAll) {
                EXPECT_GE(audioLines(quick), 1u) << quick;
            }
            if (std::find(e.excluded.begin(), e.excluded.end(), name) != e.excluded.end()) continue;
            const std::string log = problemsFor(e.file, bytes, {{"Verify", e.tier}});
            EXPECT_GE(gravest(log), codes::Severity::Error) << log;
        }
    }
}

// MPEG-4 carries no checksums: the quick tier follows the sample tables.
TEST(Verify, Mpeg4SampleTables) {
    verify::install();
    if (!haveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg missing";
    TempDir dir;
    const std::string out = dir.path() + "/a.m4a";
    ASSERT_TRUE(
        run("ffmpeg -v error -f lavfi -i sine=duration=2 -c:a aac -movflags +faststart '" + out + "'"));
    const Bytes clean = readBytes(out);
    EXPECT_EQ(problemsFor("a.m4a", clean, {{"Verify", "quick"}}), "");
    const size_t stco = size_t(
        std::search(clean.begin(), clean.end(), std::begin("stco"), std::end("stco") - 1) - clean.begin());
    ASSERT_LT(stco, clean.size());
    Bytes cut = clean, moved = clean;
    cut.resize(cut.size() * 2 / 3);
    moved[stco + 12 + 1] ^= 0x01;  // the first chunk offset, 64 KiB further on
    for (size_t i = 1; i <= 64; ++i) {
        const size_t at = clean.size() * i / 65;
        Bytes flipped = clean;
        flipped[at] ^= 0xFF;
        problemsFor("a.m4a", Bytes(clean.begin(), clean.begin() + long(at)), {{"Verify", "full"}});
        problemsFor("a.m4a", flipped, {{"Verify", "full"}});
    }
    EXPECT_NE(problemsFor("a.m4a", cut, {{"Verify", "quick"}}).find("lies beyond the end of the file"),
              std::string::npos);
    EXPECT_NE(problemsFor("a.m4a", moved, {{"Verify", "quick"}}).find("  Audio: MPEG-4 track 1 chunk 1"),
              std::string::npos);
}

// What only the decoders see: the bytes the MPEG decoder skipped or could
// not decode, a WavPack block whose decoded samples fail their CRC.
TEST(Verify, DecoderFindings) {
    verify::install();
    if (!haveTool("lame") || !haveTool("wavpack")) GTEST_SKIP() << "lame or wavpack missing";
    TempDir dir;
    const std::string wav = dir.path() + "/tone.wav";
    ASSERT_TRUE(run("ffmpeg -v error -f lavfi -i sine=duration=4 -ac 2 '" + wav + "'"));
    struct Row {
        const char* file;
        std::string command;
        std::function<void(Bytes&)> damage;
        const char* line;  // the start of the decoder's line
    };
    const auto zero = [](size_t from, size_t count) {
        return [=](Bytes& b) {
            std::fill_n(b.begin() + long(b.size() * from / 8), std::min(count, b.size() / 2), 0);
        };
    };
    const std::vector<Row> rows = {
        {"a.mp3", "lame --quiet -V 4 {in} {out}", zero(3, 4000), "  Audio: MPEG audio decoder lost sync at "},
        {"b.mp3", "lame --quiet -V 4 {in} {out}", zero(4, ~size_t(0)),
         "  Audio: MPEG audio decoder stopped at "},
        {"a.wv", "wavpack -q -y {in} -o {out}", [](Bytes& b) { b[b.size() / 2] ^= 0x10; },
         "  Audio: WavPack decoded audio fails its checksum at "},
        {"a.ogg", "oggenc -Q -o {out} {in}", zero(5, 3000), "  Audio: Ogg Vorbis audio has a hole at "},
        {"a.opus", "opusenc --quiet {in} {out}", zero(5, 3000), "  Audio: Ogg Opus audio has a hole at "},
        {"a.m4a", "ffmpeg -v error -i {in} -c:a aac {out}", zero(5, 3000),
         "  Audio: MPEG-4 audio decoder error at "},
        {"b.m4a", "ffmpeg -v error -i {in} -c:a alac {out}", zero(5, 3000),
         "  Audio: MPEG-4 audio decoder error at "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        const std::string out = dir.path() + "/" + row.file;
        std::string command = row.command;
        command.replace(command.find("{in}"), 4, "'" + wav + "'");
        command.replace(command.find("{out}"), 5, "'" + out + "'");
        ASSERT_TRUE(run(command));
        Bytes b = readBytes(out);
        row.damage(b);
        EXPECT_EQ(problemsFor(row.file, b, {{"Verify", "quick"}}).find(row.line), std::string::npos);
        const std::string full = problemsFor(row.file, b, {{"Verify", "full"}});
        EXPECT_NE(full.find(row.line), std::string::npos) << full;
    }
}

// Uncompressed sound data is measured, not read: a cut inside a sample frame
// draws both the partial frame and the short count.
TEST(Verify, SoundDataIsWholeFramesAsDeclared) {
    verify::install();
    if (!haveTool("sox")) GTEST_SKIP() << "sox missing";
    TempDir dir;
    const std::string wav = dir.path() + "/tone.wav";
    ASSERT_TRUE(run("ffmpeg -v error -f lavfi -i sine=duration=1 -ac 2 '" + wav + "'"));
    for (const char* name : {"a.wav", "a.aiff", "a.aifc"}) {
        SCOPED_TRACE(name);
        const std::string out = dir.path() + "/" + name;
        ASSERT_TRUE(run("sox '" + wav + "' '" + out + "'"));
        Bytes b = readBytes(out);
        EXPECT_EQ(problemsFor(name, b, {{"Verify", "quick"}}), "");
        b.resize(b.size() - 3);
        EXPECT_EQ(audioLines(problemsFor(name, b)), 0u);
        const std::string quick = problemsFor(name, b, {{"Verify", "quick"}});
        EXPECT_NE(quick.find("is not a whole number of 4-byte sample frames"), std::string::npos) << quick;
        // A plain PCM WAV file declares no count of its own.
        if (std::string_view(name) != "a.wav") {
            EXPECT_NE(quick.find("sample frames, the COMM chunk"), std::string::npos) << quick;
        }
    }
}

TEST(Verify, DsfBlocksAsTheSampleCountNeeds) {
    verify::install();
    chunked::DsfLayout layout;
    layout.blocksPerChannel = 3;
    const Bytes clean = chunked::dsfFile(layout);
    EXPECT_EQ(problemsFor("a.dsf", clean, {{"Verify", "quick"}}), problemsFor("a.dsf", clean));
    layout.sampleCount = 3 * 4096 * 8 + 1;  // one bit into a fourth block
    const std::pair<Bytes, std::vector<const char*>> rows[] = {
        {Bytes(clean.begin(), clean.end() - 100),
         {"DSF audio data of 24476 bytes is not a whole number of 8192-byte groups of channel blocks",
          "DSF audio data holds 2 blocks per channel, the sample count needs 3"}},
        {chunked::dsfFile(layout), {"DSF audio data holds 3 blocks per channel, the sample count needs 4"}},
    };
    for (const auto& [bytes, lines] : rows) {
        const std::string log = problemsFor("a.dsf", bytes, {{"Verify", "quick"}});
        for (const char* line : lines) EXPECT_NE(log.find(line), std::string::npos) << log;
    }
}

TEST(Verify, FlacWithoutSignatureAndDecodedMismatch) {
    verify::install();
    if (!haveTool("flac")) GTEST_SKIP() << "flac missing";
    TempDir dir;
    const std::string wav = dir.path() + "/tone.wav", out = dir.path() + "/a.flac";
    ASSERT_TRUE(run("ffmpeg -v error -f lavfi -i sine=duration=1 -ar 8000 '" + wav +
                    "' && flac -s --no-md5-sum -o '" + out + "' '" + wav + "'"));
    Bytes b = readBytes(out);
    EXPECT_EQ(problemsFor("a.flac", b, {{"Verify", "quick"}}), "");
    EXPECT_EQ(problemsFor("a.flac", b, {{"Verify", "full"}}),
              "    000000000004  Audio: FLAC STREAMINFO holds no MD5 signature of the audio\n");
    // A signature that does not match audio whose frames are all sound.
    b[4 + 4 + 18] = 1;
    EXPECT_EQ(problemsFor("a.flac", b, {{"Verify", "full"}}),
              "    000000000004  Audio: FLAC decoded audio does not match the MD5 signature in STREAMINFO\n");
}

}  // namespace
}  // namespace sondrel

namespace sondrel {
namespace {

// Files whose full check runs through FFmpeg or a stored MD5: clean as the
// encoders write them, at 8, 16 and 24 bits; a cut or a zeroed range found.
TEST(Verify, DecodedLengthsAndSignatures) {
    verify::install();
    if (!haveTool("ffmpeg") || !haveTool("wavpack")) GTEST_SKIP() << "ffmpeg or wavpack missing";
    TempDir dir;
    const std::string tone = "ffmpeg -v error -f lavfi -i sine=frequency=440:duration=5 -ac 2 ";
    for (const char* bits : {"pcm_u8", "pcm_s16le", "pcm_s24le"})
        ASSERT_TRUE(run(tone + "-c:a " + bits + " '" + dir.path() + "/" + bits + ".wav'"));
    const std::pair<const char*, std::string> rows[] = {
        {"a.m4a", "ffmpeg -v error -i {dir}/pcm_s16le.wav -c:a aac {out}"},
        {"b.m4a", "ffmpeg -v error -i {dir}/pcm_s16le.wav -c:a alac {out}"},
        {"c.m4a", "ffmpeg -v error -i {dir}/pcm_s24le.wav -c:a alac {out}"},
        // A rate above what the MPEG-4 sample entry holds: the decoder's counts.
        {"d.m4a", "ffmpeg -v error -i {dir}/pcm_s16le.wav -ar 96000 -c:a flac -strict -2 -f mp4 {out}"},
        {"a.wv", "wavpack -q -y -m {dir}/pcm_u8.wav -o {out}"},
        {"b.wv", "wavpack -q -y -m {dir}/pcm_s16le.wav -o {out}"},
        {"c.wv", "wavpack -q -y -m {dir}/pcm_s24le.wav -o {out}"},
        // Lossy: the signature is of the source, not of what decodes.
        {"d.wv", "wavpack -q -y -m -b256 {dir}/pcm_s24le.wav -o {out}"},
    };
    for (const auto& [file, pattern] : rows) {
        SCOPED_TRACE(file);
        std::string command = pattern;
        command.replace(command.find("{out}"), 5, "'" + dir.path() + "/" + file + "'");
        command.replace(command.find("{dir}"), 5, dir.path());
        ASSERT_TRUE(run(command));
        const Bytes clean = readBytes(dir.path() + "/" + file);
        EXPECT_EQ(problemsFor(file, clean, {{"Verify", "full"}}), "");
        Bytes cut(clean.begin(), clean.begin() + long(clean.size() * 2 / 3)), zeroed = clean;
        std::fill_n(zeroed.begin() + long(zeroed.size() / 3), zeroed.size() / 4, 0);
        for (const Bytes* b : {&cut, &zeroed})
            EXPECT_GE(audioLines(problemsFor(file, *b, {{"Verify", "full"}})), 1u);
    }

    // A stored MD5 that the audio does not match, its block's checksum
    // made right again: only decoding finds it. The signature sits in the
    // last block, whose checksum item closes it.
    Bytes b = readBytes(dir.path() + "/b.wv");
    ASSERT_GT(b.size(), 56u);
    const size_t last = b.size() - 56;
    ASSERT_TRUE(b[last] == 'w' && b[last + 32] == 0x26 && b[last + 33] == 8 && b[last + 50] == 0x2F);
    b[last + 40] ^= 0x01;
    uint32_t sum = 0xFFFFFFFF;
    for (size_t i = last; i < last + 50; i += 2) sum = sum * 3 + b[i] + (uint32_t(b[i + 1]) << 8);
    for (size_t i = 0; i < 4; ++i) b[last + 52 + i] = uint8_t(sum >> (8 * i));
    EXPECT_EQ(problemsFor("b.wv", b, {{"Verify", "quick"}}), "");
    EXPECT_EQ(problemsFor("b.wv", b, {{"Verify", "full"}}),
              "    000000000000  Audio: WavPack decoded audio does not match its stored MD5 signature\n");
}

// Containers measured without decoding: Monkey's Audio's descriptor and
// seek table, DFF sound data.
TEST(Verify, MonkeysAudioAndDffLayout) {
    verify::install();
    const Bytes ape = craftedApe();
    Bytes seekTableShort = ape, frameOutside = ape;
    seekTableShort[52 + 12] = 2;  // two frames declared
    frameOutside[76] = 0;         // the only frame at offset 0
    Bytes dst = dffFile({dffStandardProps("DST "), dffDstChunk(2)});
    dst[size_t(std::search(dst.begin(), dst.end(), std::begin("FRTE"), std::end("FRTE") - 1) - dst.begin()) +
        15] = 3;
    const Bytes dsd = dffFile({dffStandardProps(), dffDsdChunk(64)});
    const std::pair<std::string, Bytes> clean[] = {{"a.ape", ape}, {"a.dff", dsd}};
    for (const auto& [name, bytes] : clean)
        EXPECT_EQ(problemsFor(name, bytes, {{"Verify", "quick"}}), problemsFor(name, bytes));
    const std::tuple<const char*, Bytes, const char*> rows[] = {
        {"a.ape", Bytes(ape.begin(), ape.end() - 500),
         "Monkey's Audio file holds 500 bytes of audio data, the header declares 1000"},
        {"a.ape", seekTableShort, "Monkey's Audio seek table holds 1 frames, the header declares 2"},
        {"a.ape", frameOutside, "Monkey's Audio frame 1 at 0 lies outside the audio data"},
        {"a.dff", Bytes(dsd.begin(), dsd.end() - 11), "DFF sound data holds 53 bytes, its chunk declares 64"},
        {"a.dff", Bytes(dsd.begin(), dsd.end() - 11),
         "DFF sound data of 53 bytes is not a whole number of 2-byte sample frames"},
        {"a.dff", dst, "DFF holds 2 DST frames, the frame information declares 3"},
    };
    for (const auto& [name, bytes, line] : rows) {
        const std::string log = problemsFor(name, bytes, {{"Verify", "quick"}});
        EXPECT_NE(log.find(line), std::string::npos) << log;
    }
}

TEST(Verify, LibraryVersionsNameEveryDecoder) {
    const std::string versions = verify::libraryVersions();
    for (const char* name :
         {"libFLAC ", "libmpg123 ", "libwavpack ", "libvorbisfile ", "libopusfile ", "FFmpeg "})
        EXPECT_NE(versions.find(name), std::string::npos) << versions;
}

}  // namespace
}  // namespace sondrel
