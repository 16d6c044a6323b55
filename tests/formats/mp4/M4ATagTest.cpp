// The whole-file check: top-level atoms, tracks, sample entries and audio
// properties, clean files made by real tools, and the shared corpus.
#include "formats/mp4/M4ATag.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "tests/formats/mp4/M4ATestSupport.h"

namespace sondrel {
namespace {

using namespace fixtures;
using namespace fixtures::mp4;

Bytes moovWith(std::vector<Bytes> children) {
    return box("moov", children);
}
Bytes mdat() {
    return atom("mdat", Bytes(16, 0));
}

TEST(M4ATag, FilesOfElevenBytesOrLessCannotHoldAudio) {
    EXPECT_EQ(check(Bytes(11, 0)).log, line(0, "Fatal", "Insufficient data to represent audio format"));
    // Twelve bytes are walked: a lone "ftyp".
    EXPECT_EQ(check(atom("ftyp", {0, 0, 0, 0})).log,
              line(0, "Fatal", "file is missing moov atom") +
                  line(0, "Container", "file is missing mdat atom. (No audio)"));
}

TEST(M4ATag, TopLevelMovieAndMediaData) {
    // A fragmented file: its movie is not examined (the bad item is silent).
    Bytes badItem = box("\251nam", {data(99, text("x"))});
    Bytes fragmented = concat({ftyp(), moovWith({trak("soun"), udta({badItem})}), atom("moof", {}), mdat()});
    EXPECT_EQ(check(fragmented).log, line(0, "Fatal", "File contains at least one unsupported moof atom."));

    EXPECT_EQ(check(concat({ftyp(), mdat()})).log, line(0, "Fatal", "file is missing moov atom"));
    EXPECT_EQ(check(concat({ftyp(), moovWith({trak("soun")})})).log,
              line(0, "Container", "file is missing mdat atom. (No audio)"));
}

TEST(M4ATag, TracksNeedHandlersAndChunkOffsets) {
    // No track at all.
    EXPECT_EQ(check(concat({ftyp(), moovWith({udta({})}), mdat()})).log,
              line(0, "Fatal", "The file does not have an audio or video track"));

    // A video-only file passes, with frame information marked present.
    Checked video = check(m4aFile({}, {trak("vide")}), {}, "a.m4v");
    EXPECT_EQ(video.log, "");
    EXPECT_TRUE(video.checker().haveFrameInfo());
    EXPECT_FALSE(video.checker().haveAudio());

    // A text track needs no chunk offsets; a video track does.
    Bytes textTrack = m4aFile({}, {trak("soun"), trak("text", std::vector<Bytes>{stsd(atom("tx3g", {}))})});
    EXPECT_EQ(check(textTrack).log, "");
    Bytes videoNoStco = m4aFile({}, {trak("soun"), trak("vide", std::vector<Bytes>{stsd(atom("avc1", {}))})});
    EXPECT_EQ(check(videoNoStco).log, line(offsetOf(videoNoStco, "mdia", 1), "Fatal",
                                           "File is missing trak-mdia-stbl-(stco|co64) atom"));
    // 64-bit chunk offsets count as well.
    EXPECT_EQ(
        check(m4aFile({}, {trak("soun", std::vector<Bytes>{stsd(mp4aEntry()), fullBox("co64", {})})})).log,
        "");

    Bytes noMdia = m4aFile({}, {box("trak", {fullBox("tkhd", Bytes(80, 0))})});
    EXPECT_EQ(check(noMdia).log, line(0, "Fatal", "Missing trak-mdia atom"));
    Bytes noHdlr = m4aFile({}, {box("trak", {box("mdia", {mdhd()})})});
    EXPECT_EQ(check(noHdlr).log, line(offsetOf(noHdlr, "mdia"), "Fatal", "Missing trak-mdia-hdlr atom"));
    Bytes noStbl = m4aFile({}, {box("trak", {box("mdia", {mdhd(), hdlr("soun"), box("minf", {})})})});
    EXPECT_EQ(check(noStbl).log,
              line(offsetOf(noStbl, "mdia"), "Fatal", "File is missing trak-mdia-stbl atom"));
    Bytes noMinf = m4aFile({}, {box("trak", {box("mdia", {mdhd(), hdlr("soun")})})});
    EXPECT_EQ(check(noMinf).log,
              line(offsetOf(noMinf, "mdia"), "Fatal", "File is missing trak-mdia-minf atom"));
    // The handler type lies 16 bytes into "hdlr"; a file ending before it
    // cannot be read.
    Bytes shortHdlr =
        concat({ftyp(), mdat(), moovWith({box("trak", {box("mdia", {atom("hdlr", {0, 0, 0, 0})})})})});
    EXPECT_EQ(check(shortHdlr).log,
              line(offsetOf(shortHdlr, "mdia"), "Fatal", "Invalid format or read error"));
}

TEST(M4ATag, AACPropertiesComeFromTheSampleEntryAndItsDescriptors) {
    Bytes mono = m4aFile({}, {trak("soun", std::vector<Bytes>{stsd(mp4aEntry(1, 48000, 96000)), stco()})});
    Checked c = check(mono);
    EXPECT_EQ(c.log, "");
    EXPECT_EQ(c.checker().streamFormat(), "AAC");
    EXPECT_EQ(c.checker().frameChannelmode(), 3u);
    EXPECT_EQ(c.checker().frameSamplerate(), 48000u);
    EXPECT_EQ(c.checker().frameBitrate(), 96u);
    EXPECT_EQ(c.checker().frameDuration_ms(), 1000u);

    // A decoder configuration that is not where the descriptor says: the
    // audio cannot be described.
    ByteBuilder entry(soundFields(2, 44100));
    entry.bytes(fullBox("esds", ByteBuilder().u8(3).u8(20).be16(0).u8(0).u8(9).zeros(20).take()));
    Bytes odd = m4aFile({}, {trak("soun", std::vector<Bytes>{stsd(atom("mp4a", entry.take())), stco()})});
    EXPECT_EQ(check(odd).log, line(0, "Fatal", "No audio track located"));
}

TEST(M4ATag, ALACIsRecognisedOnlyInAnEightyEightByteSampleDescription) {
    Checked alac = check(
        m4aFile({}, {trak("soun", std::vector<Bytes>{stsd(alacEntry(2, 24, 96000, 2'000'500)), stco()})}));
    EXPECT_EQ(alac.log, "");
    EXPECT_EQ(alac.checker().streamFormat(), "ALAC");
    EXPECT_EQ(alac.checker().frameChannelmode(), 2u + 131072u);
    EXPECT_EQ(alac.checker().frameSampleSize(), 24u);
    EXPECT_EQ(alac.checker().frameBitrate(), 2001u);
    EXPECT_EQ(alac.checker().frameSamplerate(), 96000u);

    // One extra byte in the entry: still checked, but described as AAC.
    Bytes entry = alacEntry();
    entry.push_back(0);
    ByteBuilder patched(entry);
    patched.patchBE32(0, uint32_t(entry.size()));
    Checked other = check(m4aFile({}, {trak("soun", std::vector<Bytes>{stsd(patched.take()), stco()})}));
    EXPECT_EQ(other.log, "");
    EXPECT_EQ(other.checker().streamFormat(), "AAC");
    EXPECT_TRUE(other.checker().haveFrameInfo());
}

TEST(M4ATag, PurchaserNameBecomesIdentification) {
    Bytes name = atom("name", text(std::string("Jane Buyer\0rest", 15)));
    Bytes entry = mp4aEntry(2, 44100, 128000, {box("pinf", {box("schi", {name})})});
    Bytes file = m4aFile({}, {trak("soun", std::vector<Bytes>{stsd(entry), stco()})});
    Checked c = check(file, {{"LogPriv", "1"}});
    EXPECT_EQ(c.log, line(0, "Privacy", "Identification information is embedded"));
    const TagItem* id = c.tag->item(field::Identification);
    ASSERT_NE(id, nullptr);
    EXPECT_EQ(id->value, "Jane Buyer");
    EXPECT_EQ(id->fourCC, fourcc("IDEN"));
    EXPECT_EQ(id->offset, offsetOf(file, "name") + 8);
}

// Cut anywhere, a file always draws at least one line (the last atom is
// truncated, or a top-level atom is missing); flipped bytes never crash.
TEST(M4ATag, EveryTruncationIsReportedAndFlippedBytesAreSurvived) {
    const Bytes file =
        m4aFile({textItem("\251nam", "Title"), rdnsItem("MOOD", "calm"),
                 box("covr", {data(13, Bytes(20, 0xFF))}), box("trkn", {data(0, Bytes(8, 0))})});
    ASSERT_EQ(check(file).log, "");
    for (size_t n = 0; n < file.size(); ++n)
        EXPECT_NE(check(Bytes(file.begin(), file.begin() + long(n))).log, "") << "cut at " << n;
    for (size_t i = 0; i < file.size(); ++i) {
        for (uint8_t mask : {0x01, 0x80, 0xFF}) {
            Bytes flipped = file;
            flipped[i] ^= mask;
            check(flipped);
        }
    }
}

// Clean files written by real tools give no problem lines.
class M4ARealFiles : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!haveTool("ffmpeg")) GTEST_SKIP() << "ffmpeg not installed";
    }
    std::string make(const std::string& name, const std::string& args) {
        const std::string out = dir.path() + "/" + name;
        if (!run("ffmpeg -nostdin -loglevel error -y " + args + " '" + out + "'")) return {};
        return out;
    }
    std::string cover() { return make("cover.jpg", "-f lavfi -i color=c=red:s=64x64:d=1 -frames:v 1"); }
    static std::string tags() {
        return "-metadata title='A Title' -metadata artist='An Artist' -metadata album='An Album' "
               "-metadata track=3/12 -metadata disc=1/2 -metadata genre=Rock -metadata date=2021 "
               "-metadata comment='A comment' -metadata album_artist='Various' -metadata composer='Someone' ";
    }
    TempDir dir;
};

TEST_F(M4ARealFiles, AACAndALACWithTheUsualItemsAndCoverArt) {
    const std::string jpg = cover();
    ASSERT_FALSE(jpg.empty());
    for (const std::string codec : {"aac", "alac"}) {
        const std::string file =
            make("song-" + codec + ".m4a", "-f lavfi -i sine=frequency=440:duration=2 -i '" + jpg +
                                               "' -map 0:a -map 1:v -c:a " + codec +
                                               " -c:v copy -disposition:v attached_pic " + tags());
        ASSERT_FALSE(file.empty()) << codec;
        EXPECT_EQ(problemsForFile(file), "") << codec;
        Settings s;
        Tag tag(file, s);
        const auto& checker = dynamic_cast<const M4ATag&>(*tag.lowLevelRep());
        EXPECT_EQ(checker.streamFormat(), codec == "aac" ? "AAC" : "ALAC");
        EXPECT_EQ(checker.frameSamplerate(), 44100u) << codec;
        ASSERT_NE(tag.item(field::Title), nullptr) << codec;
        EXPECT_EQ(tag.item(field::Title)->value, "A Title");
        EXPECT_EQ(tag.item(field::Genre)->value, "Rock");
        EXPECT_EQ(tag.item(field::Year)->value, "2021");
    }
}

TEST_F(M4ARealFiles, ItemsWrittenByAnotherTagger) {
    if (!haveTool("AtomicParsley")) GTEST_SKIP() << "AtomicParsley not installed";
    const std::string jpg = cover();
    const std::string file = make("plain.m4a", "-f lavfi -i sine=duration=1 -c:a aac");
    ASSERT_FALSE(file.empty());
    ASSERT_TRUE(run("AtomicParsley '" + file +
                    "' --overWrite --title 'T' --artist 'A' --album 'B' --tracknum 1/9 "
                    "--disk 1/1 --genre 'Jazz' --year 1999 --comment 'c' --compilation true --bpm 120 "
                    "--artwork '" +
                    jpg + "' >/dev/null 2>&1"));
    EXPECT_EQ(problemsForFile(file), "");
}

TEST_F(M4ARealFiles, MovieWithVideoAndAudioTracks) {
    const std::string file =
        make("movie.mp4",
             "-f lavfi -i testsrc=size=64x48:rate=5:duration=1 -f lavfi -i sine=duration=1 "
             "-c:v mpeg4 -c:a aac -shortest " +
                 tags());
    ASSERT_FALSE(file.empty());
    EXPECT_EQ(problemsForFile(file), "");
}

// Every MPEG-4 file of the shared corpus is checked without a crash, a hang
// or a silent pass of an empty file.
TEST(M4ACorpus, EveryFileIsCheckedQuickly) {
    namespace fs = std::filesystem;
    const fs::path corpus = SONDREL_SHARED_DIR "/corpus";
    if (!fs::exists(corpus)) GTEST_SKIP() << "no corpus";
    size_t checked = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corpus)) {
        if (!entry.is_regular_file()) continue;
        const std::string ext = entry.path().extension().string();
        if (ext != ".m4a" && ext != ".m4b" && ext != ".m4v" && ext != ".mp4") continue;
        const auto start = std::chrono::steady_clock::now();
        const std::string log = problemsForFile(entry.path().string());
        const auto elapsed = std::chrono::steady_clock::now() - start;
        EXPECT_LT(elapsed, std::chrono::seconds(5)) << entry.path();
        if (entry.file_size() < 12) {
            EXPECT_NE(log, "") << entry.path();
        }
        ++checked;
    }
    EXPECT_GT(checked, 0u);
}

}  // namespace
}  // namespace sondrel
