// Writes the starting corpus of every fuzz target: small files of each format
// built with the test fixtures, one or a few per structure the checkers know,
// so that mutation starts past the stream marker and the first block.
// Usage: make_seeds <output folder> [folder of small images]
// Files go to <output folder>/<target>/<name>; images found in the second
// folder (any file) are embedded as artwork.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "core/FieldTable.h"
#include "tests/fixtures/AiffBuilder.h"
#include "tests/fixtures/ApeBuilder.h"
#include "tests/fixtures/AtomBuilder.h"
#include "tests/fixtures/ByteBuilder.h"
#include "tests/fixtures/DffBuilder.h"
#include "tests/fixtures/DsfBuilder.h"
#include "tests/fixtures/FlacBuilder.h"
#include "tests/fixtures/ID3Builder.h"
#include "tests/fixtures/MpegBuilder.h"
#include "tests/fixtures/OggBuilder.h"
#include "tests/fixtures/WavBuilder.h"

namespace fs = std::filesystem;
using namespace sondrel;
using namespace sondrel::fixtures;
using std::string;

namespace {

fs::path gOut;
size_t gCount = 0;

void put(const string& target, const string& name, const Bytes& b) {
    const fs::path dir = gOut / target;
    fs::create_directories(dir);
    std::ofstream f(dir / name, std::ios::binary);
    f.write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
    ++gCount;
}

Bytes str(std::string_view s) {
    return Bytes(s.begin(), s.end());
}

// Artwork to embed: the images given on the command line, or (without them)
// the first bytes of a JPEG and a PNG, which still reach the type sniffing.
struct Image {
    string mime;
    Bytes data;
};
std::vector<Image> gImages;

void loadImages(const fs::path& dir) {
    if (!dir.empty() && fs::is_directory(dir)) {
        for (const auto& e : fs::directory_iterator(dir)) {
            std::ifstream f(e.path(), std::ios::binary);
            Bytes d((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
            if (d.empty() || d.size() > 4096) continue;
            string ext = e.path().extension().string();
            string mime = "image/" + (ext.empty() ? string("jpeg") : ext.substr(1));
            if (mime == "image/jpg") mime = "image/jpeg";
            if (mime == "image/tif") mime = "image/tiff";
            put("fuzz_images", e.path().filename().string(), d);
            gImages.push_back({mime, std::move(d)});
        }
    }
    if (gImages.empty()) {
        gImages.push_back({"image/jpeg", Bytes{0xFF, 0xD8, 0xFF, 0xE0, 0, 16, 'J', 'F', 'I', 'F', 0}});
        gImages.push_back({"image/png", Bytes{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'}});
    }
}

// ---------------------------------------------------------------- ID3v2

// One body per frame kind, written for the given version (2, 3 or 4).
std::vector<std::pair<string, Bytes>> id3Frames(int v) {
    const Bytes& img = gImages.front().data;
    const bool v2 = v == 2;
    std::vector<std::pair<string, Bytes>> f;
    auto add = [&](const string& id3, const string& id2, const Bytes& body) {
        if (v2 && !id2.empty()) f.push_back({id2, body});
        if (!v2 && !id3.empty()) f.push_back({id3, body});
    };
    // Text frames in each encoding, and values each field's rules look at.
    add("TIT2", "TT2", id3Text("Title"));
    add("TIT2", "TT2", ByteBuilder().u8(1).bytes({0xFF, 0xFE, 'T', 0, 'i', 0, 0, 0}).take());
    add("TPE1", "TP1", ByteBuilder().u8(1).bytes({0xFE, 0xFF, 0, 'A', 0, 'b'}).take());
    if (v == 4) add("TPE2", "", ByteBuilder().u8(2).bytes({0, 'A', 0, 'b'}).take());
    if (v == 4) add("TALB", "", ByteBuilder().u8(3).str("\xC3\xA9t\xC3\xA9").take());
    add("TALB", "TAL", id3Text(string("Album\0Second", 12)));
    add("TCON", "TCO", id3Text("(12)Rock"));
    add("TCON", "TCO", id3Text("(RX)(CR)Cover"));
    add("TRCK", "TRK", id3Text("3/12"));
    add("TPOS", "TPA", id3Text("1/2"));
    add("TYER", "TYE", id3Text("2001"));
    add("TDAT", "TDA", id3Text("0102"));
    add("TIME", "TIM", id3Text("1230"));
    add("TORY", "TOR", id3Text("1999"));
    add("TRDA", "TRD", id3Text("June 1st"));
    add("TLEN", "TLE", id3Text("123456"));
    add("TBPM", "TBP", id3Text("120"));
    add("TKEY", "TKE", id3Text("Abm"));
    add("TLAN", "TLA", id3Text("eng"));
    add("TSRC", "TRC", id3Text("USRC17607839"));
    add("TCMP", "TCP", id3Text("1"));
    add("TMED", "TMT", id3Text("DIG/A"));
    add("TCOP", "TCR", id3Text("2001 Someone"));
    add("TFLT", "TFT", id3Text("MPG/3"));
    add("TDLY", "TDY", id3Text("100"));
    add("TSIZ", "TSI", id3Text("1024"));
    add("TSSE", "TSS", id3Text("encoder"));
    add("TCOM", "TCM", id3Text("Composer"));
    add("TENC", "TEN", id3Text("Encoded by"));
    add("TEXT", "TXT", id3Text("Lyricist"));
    add("TOAL", "TOT", id3Text("Original album"));
    add("TOFN", "TOF", id3Text("orig.mp3"));
    add("TOLY", "TOL", id3Text("Orig lyricist"));
    add("TOPE", "TOA", id3Text("Orig artist"));
    add("TPE3", "TP3", id3Text("Conductor"));
    add("TPE4", "TP4", id3Text("Remixer"));
    add("TPUB", "TPB", id3Text("Publisher"));
    add("TIT1", "TT1", id3Text("Grouping"));
    add("TIT3", "TT3", id3Text("Subtitle"));
    add("TOWN", "", id3Text("Owner"));
    add("TRSN", "", id3Text("Station"));
    add("TRSO", "", id3Text("Station owner"));
    add("TSO2", "", id3Text("Band sort"));
    add("TSOC", "", id3Text("Composer sort"));
    add("TXXX", "TXX", id3Text(string("Description\0Value", 17)));
    add("TXXX", "TXX", id3Text(string("replaygain_track_gain\0-6.5 dB", 29)));
    add("IPLS", "IPL", id3Text(string("Producer\0Someone\0", 17)));
    if (v == 4) {
        for (const char* id : {"TDRC", "TDOR", "TDRL", "TDEN", "TDTG"})
            add(id, "", id3Text("2001-02-03T04:05:06"));
        add("TDRC", "", id3Text("2001-13"));
        add("TIPL", "", id3Text(string("Producer\0Someone", 16)));
        add("TMCL", "", id3Text(string("Guitar\0Someone", 14)));
        add("TMOO", "", id3Text("Calm"));
        add("TPRO", "", id3Text("2001 Someone"));
        add("TSOA", "", id3Text("Album sort"));
        add("TSOP", "", id3Text("Artist sort"));
        add("TSOT", "", id3Text("Title sort"));
        add("TSST", "", id3Text("Set subtitle"));
        add("ASPI", "", ByteBuilder().be32(0).be32(100).be16(1).u8(8).u8(0).take());
        add("SEEK", "", ByteBuilder().be32(100).take());
        add("SIGN", "", ByteBuilder().u8(0x80).str("sig").take());
    }
    // URL frames.
    add("WXXX", "WXX", ByteBuilder().u8(0).str("desc").u8(0).str("http://example.com/").take());
    add("WOAR", "WAR", str("http://example.com/artist"));
    add("WCOM", "WCM", str("http://example.com/buy"));
    add("WCOP", "WCP", str("http://example.com/copyright"));
    add("WOAF", "WAF", str("http://example.com/file"));
    add("WOAS", "WAS", str("http://example.com/source"));
    add("WPUB", "WPB", str("http://example.com/publisher"));
    add("WORS", "", str("http://example.com/station"));
    add("WPAY", "", str("http://example.com/pay"));
    add("WFED", "", str("http://example.com/feed"));
    add("WOAR", "WAR", str("not a url"));
    // Comments, lyrics and their relatives: encoding, language, description, text.
    add("COMM", "COM", ByteBuilder().u8(0).str("eng").str("desc").u8(0).str("A comment").take());
    add("COMM", "COM", ByteBuilder().u8(1).str("eng").bytes({0xFF, 0xFE, 0, 0, 0xFF, 0xFE, 'c', 0}).take());
    add("COMM", "COM", ByteBuilder().u8(0).str("XXX").str("iTunNORM").u8(0).str(" 0000").take());
    add("USLT", "ULT", ByteBuilder().u8(0).str("eng").u8(0).str("Lyrics line").take());
    add("USER", "", ByteBuilder().u8(0).str("eng").str("Terms").take());
    add("SYLT", "SLT",
        ByteBuilder().u8(0).str("eng").u8(2).u8(1).str("d").u8(0).str("la").u8(0).be32(1000).take());
    // Pictures and objects.
    for (const Image& im : gImages) {
        if (v2)
            add("", "PIC",
                ByteBuilder()
                    .u8(0)
                    .str(im.mime == "image/png" ? "PNG" : "JPG")
                    .u8(3)
                    .str("c")
                    .u8(0)
                    .bytes(im.data)
                    .take());
        else
            add("APIC", "",
                ByteBuilder().u8(0).str(im.mime).u8(0).u8(3).str("cover").u8(0).bytes(im.data).take());
    }
    add("APIC", "", ByteBuilder().u8(0).str("-->").u8(0).u8(0).u8(0).str("http://example.com/a.jpg").take());
    add("APIC", "",
        ByteBuilder().u8(1).str("image/png").u8(0).u8(4).bytes({0xFF, 0xFE, 'b', 0, 0, 0}).bytes(img).take());
    add("GEOB", "GEO",
        ByteBuilder().u8(0).str("text/plain").u8(0).str("a.txt").u8(0).str("desc").u8(0).str("data").take());
    // Binary frames.
    add("UFID", "UFI", ByteBuilder().str("http://musicbrainz.org").u8(0).str("0123456789").take());
    add("PRIV", "", ByteBuilder().str("owner.example").u8(0).str("private").take());
    add("POPM", "POP", ByteBuilder().str("a@b.c").u8(0).u8(196).be32(7).take());
    add("PCNT", "CNT", ByteBuilder().be32(12).take());
    add("OWNE", "", ByteBuilder().u8(0).str("USD1.00").u8(0).str("20010203").str("Seller").take());
    add("OWNE", "", ByteBuilder().u8(0).str("1.00").u8(0).str("2001-2-3").take());
    add("COMR", "",
        ByteBuilder().u8(0).str("USD1.00").u8(0).str("20011231").str("http://a").u8(0).u8(1).take());
    add("LINK", "LNK", ByteBuilder().str(v2 ? "TT2" : "TIT2").str("http://example.com/").u8(0).take());
    add("MCDI", "MCI", ByteBuilder().zeros(20).take());
    add("ETCO", "ETC", ByteBuilder().u8(2).u8(1).be32(10).take());
    add("MLLT", "MLL", ByteBuilder().be16(1).be24(400).be24(26).u8(8).u8(8).u8(0x12).take());
    add("SYTC", "STC", ByteBuilder().u8(2).u8(120).be32(0).take());
    add("RVAD", "RVA", ByteBuilder().u8(3).u8(16).be16(1).be16(1).be16(0).be16(0).take());
    add("RVA2", "", ByteBuilder().str("track").u8(0).u8(1).be16(0x0100).u8(0).take());
    add("EQUA", "EQU", ByteBuilder().u8(16).be16(0x8100).be16(2).take());
    add("EQU2", "", ByteBuilder().u8(0).str("id").u8(0).be16(100).be16(2).take());
    add("RVRB", "REV", ByteBuilder().zeros(12).take());
    add("RBUF", "BUF", ByteBuilder().be24(1024).u8(1).be32(0).take());
    add("AENC", "CRA", ByteBuilder().str("owner").u8(0).be16(0).be16(10).take());
    add("ENCR", "", ByteBuilder().str("owner").u8(0).u8(0x80).take());
    add("GRID", "", ByteBuilder().str("owner").u8(0).u8(0x81).take());
    add("PCST", "", ByteBuilder().be32(0).take());
    add("XRVA", "", ByteBuilder().str("track").u8(0).take());
    add("XYZW", "XYZ", str("unknown"));
    return f;
}

// A tag holding the frames with the given frame flags (versions 3 and 4),
// with `extra` flag-dependent bytes in front of each body.
Bytes id3FramesTag(int v, const std::vector<std::pair<string, Bytes>>& frames, uint16_t frameFlags = 0,
                   const Bytes& extra = {}, uint8_t tagFlags = 0, size_t padding = 0) {
    ByteBuilder content;
    if (tagFlags & 0x40) {
        if (v == 3)
            content.be32(10).be16(0x8000).be32(uint32_t(padding)).be32(0x12345678);
        else
            content.synchsafe32(6).u8(1).u8(0x10);
    }
    for (const auto& [id, body] : frames) content.bytes(id3Frame(id, concat({extra, body}), v, frameFlags));
    Bytes tag = id3Tag(v, content.take(), tagFlags, padding);
    return (tagFlags & 0x10) ? concat({tag, id3Footer(tag)}) : tag;
}

// The same bytes with every 0xFF followed by a zero byte (unsynchronisation).
Bytes unsynchronise(const Bytes& b) {
    Bytes out;
    for (uint8_t c : b) {
        out.push_back(c);
        if (c == 0xFF) out.push_back(0);
    }
    return out;
}

// ID3v2 tags: each frame alone, all frames together, and the header and
// frame flags each version has.
std::vector<std::pair<string, Bytes>> id3Tags() {
    std::vector<std::pair<string, Bytes>> tags;
    for (int v : {2, 3, 4}) {
        const auto frames = id3Frames(v);
        const string pre = "v2" + std::to_string(v) + "_";
        for (size_t i = 0; i < frames.size(); ++i)
            tags.push_back({pre + std::to_string(i) + "_" + frames[i].first, id3FramesTag(v, {frames[i]})});
        tags.push_back({pre + "all", id3FramesTag(v, frames, 0, {}, 0, 64)});
        tags.push_back({pre + "dups", id3FramesTag(v, {frames[0], frames[0], frames[1], frames[1]})});
        if (v == 2) {
            tags.push_back({pre + "compressed", id3FramesTag(v, {frames[0]}, 0, {}, 0x40)});
            continue;
        }
        const std::vector<std::pair<string, Bytes>> few(frames.begin(), frames.begin() + 4);
        tags.push_back({pre + "exthdr", id3FramesTag(v, few, 0, {}, 0x40, 16)});
        tags.push_back({pre + "experimental", id3FramesTag(v, few, 0, {}, 0x20)});
        tags.push_back({pre + "unknownflag", id3FramesTag(v, few, 0, {}, 0x01)});
        if (v == 3) {
            tags.push_back(
                {pre + "fcompressed", id3FramesTag(v, few, 0x0080, ByteBuilder().be32(100).take())});
            tags.push_back({pre + "fencrypted", id3FramesTag(v, few, 0x0040, ByteBuilder().u8(0x80).take())});
            tags.push_back({pre + "fgrouped", id3FramesTag(v, few, 0x0020, ByteBuilder().u8(0x81).take())});
            tags.push_back({pre + "fpreserve", id3FramesTag(v, few, 0xE000)});
        } else {
            tags.push_back({pre + "footer", id3FramesTag(v, few, 0, {}, 0x10)});
            tags.push_back(
                {pre + "flength", id3FramesTag(v, few, 0x0001, ByteBuilder().synchsafe32(9).take())});
            tags.push_back(
                {pre + "fcompressed", id3FramesTag(v, few, 0x0009, ByteBuilder().synchsafe32(50).take())});
            tags.push_back({pre + "fencrypted", id3FramesTag(v, few, 0x0004, ByteBuilder().u8(0x80).take())});
            tags.push_back({pre + "fgrouped", id3FramesTag(v, few, 0x0040, ByteBuilder().u8(0x81).take())});
            tags.push_back({pre + "funsync", id3FramesTag(v, few, 0x0002)});
        }
        // Whole-tag unsynchronisation over a frame holding 0xFF bytes.
        const Bytes body = id3Frame("TIT2", ByteBuilder().u8(0).bytes({'a', 0xFF, 0xE0, 'b'}).take(), v);
        tags.push_back({pre + "unsync", id3Tag(v, unsynchronise(body), 0x80)});
        // Natural frame sizes in a version 4 tag, synchsafe ones in version 3.
        tags.push_back(
            {pre + "sizeform", id3Tag(v, id3Frame("TIT2", id3Text(string(200, 'x')), v, 0,
                                                  v == 4 ? ID3Size::Natural : ID3Size::Synchsafe))});
    }
    tags.push_back({"zero_size", id3Tag(3, {})});
    tags.push_back({"v25", id3Tag(5, id3TextFrame(3, "TIT2", "t"))});
    tags.push_back(
        {"padding_garbage", concat({id3Tag(3, id3TextFrame(3, "TIT2", "t"), 0, 0), Bytes(8, 'x')})});
    return tags;
}

Bytes id3v1Variant(int kind) {
    ByteBuilder b;
    b.str("TAG").str("Title").zeros(25).str("Artist").zeros(24).str("Album").zeros(25).str("2001");
    if (kind == 0) return b.str("Comment").zeros(23).u8(12).take();
    if (kind == 1) return b.str("Comment").zeros(21).u8(0).u8(7).u8(200).take();  // v1.1 track, unknown genre
    return b.fill(28, 0xE9).u8(0).u8(0).u8(255).take();
}

// ---------------------------------------------------------------- MPEG audio

void mp3Seeds() {
    const MpegSpec l3;
    for (const auto& [name, tag] : id3Tags()) put("fuzz_mp3", name, concat({tag, mpegFrames(l3, 3)}));
    // Every version and layer, mono, padding, CRC, free format.
    int n = 0;
    for (int version : {1, 2, 3})
        for (int layer : {1, 2, 3})
            for (int variant = 0; variant < 3; ++variant) {
                MpegSpec s{.version = version,
                           .layer = layer,
                           .bitrate = version == 1 ? 128 : 64,
                           .samplerate = version == 1   ? 44100
                                         : version == 2 ? 22050
                                                        : 11025,
                           .padding = variant == 1,
                           .mono = variant == 2,
                           .crc = variant == 1};
                put("fuzz_mp3", "stream" + std::to_string(n++), mpegFrames(s, 4));
            }
    const MpegSpec freeFormat{.bitrate = 0};
    put("fuzz_mp3", "free_format", mpegFrames(freeFormat, 4, 400));
    // Summary headers.
    for (const char* t : {"Xing", "Info"})
        for (uint32_t flags : {0u, 1u, 3u, 15u})
            put("fuzz_mp3", string(t) + std::to_string(flags),
                concat({xingFrame(l3, t, flags, 4, 4 * 417), mpegFrames(l3, 3)}));
    put("fuzz_mp3", "xing_mono",
        concat({xingFrame({.mono = true}, "Xing", 3, 2, 834), mpegFrames({.mono = true}, 1)}));
    put("fuzz_mp3", "xing_v2",
        concat({xingFrame({.version = 2, .bitrate = 64, .samplerate = 22050}, "Xing", 3, 2, 2),
                mpegFrames({.version = 2, .bitrate = 64, .samplerate = 22050}, 1)}));
    put("fuzz_mp3", "vbri", concat({vbriFrame(l3, 4 * 417, 4), mpegFrames(l3, 3)}));
    // Tags around the audio.
    const Bytes audio = mpegFrames(l3, 3);
    const Bytes v2 = id3v2Tag(3, id3TextFrame(3, "TIT2", "t"));
    const Bytes ape = apeTag(concat({apeItem("Title", "t"), apeItem("Artist", "a")}), true);
    for (int k = 0; k < 3; ++k)
        put("fuzz_mp3", "id3v1_" + std::to_string(k), concat({audio, id3v1Variant(k)}));
    put("fuzz_mp3", "ape_v1", concat({audio, ape, id3v1Tag()}));
    put("fuzz_mp3", "ape_only", concat({v2, audio, ape}));
    put("fuzz_mp3", "ape_nohdr", concat({audio, apeTag(apeItem("Title", "t"), false, kApeV1)}));
    put("fuzz_mp3", "v2_at_end", concat({audio, id3v2Tag(4, id3TextFrame(4, "TIT2", "t"), 0, true)}));
    put("fuzz_mp3", "v2_end_v1",
        concat({audio, id3v2Tag(4, id3TextFrame(4, "TIT2", "t"), 0, true), id3v1Tag()}));
    put("fuzz_mp3", "two_v2", concat({v2, v2, audio}));
    put("fuzz_mp3", "garbage_between", concat({mpegFrames(l3, 2), Bytes(37, 0x11), mpegFrames(l3, 2)}));
    put("fuzz_mp3", "garbage_front", concat({Bytes(100, 0x22), audio}));
    put("fuzz_mp3", "truncated", Bytes(audio.begin(), audio.end() - 50));
    put("fuzz_mp3", "changes",
        concat({mpegFrames(l3, 2), mpegFrames({.version = 2, .bitrate = 64, .samplerate = 22050}, 2),
                mpegFrames({.layer = 2, .bitrate = 192}, 2)}));
    put("fuzz_mp3", "v2_pad_audio", concat({id3v2Tag(3, id3TextFrame(3, "TIT2", "t"), 100), audio}));

    // The ID3 reader alone: its first byte picks the road in.
    for (const auto& [name, tag] : id3Tags()) {
        put("fuzz_id3", "start_" + name, concat({Bytes{0}, tag, mpegAudio()}));
        put("fuzz_id3", "at_" + name, concat({Bytes{2}, tag}));
    }
    put("fuzz_id3", "footer", concat({Bytes{1}, audio, id3v2Tag(4, id3TextFrame(4, "TIT2", "t"), 0, true)}));
    put("fuzz_id3", "offset", concat({Bytes{2 + 4 * 8}, Bytes(8, 0), v2}));
    put("fuzz_id3", "refused", concat({Bytes{3}, id3Tag(2, id3Frame("TT2", id3Text("t"), 2), 0x40)}));
}

// ---------------------------------------------------------------- FLAC and Ogg

string base64(const Bytes& b) {
    static const char* k = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    string out;
    for (size_t i = 0; i < b.size(); i += 3) {
        const size_t n = std::min<size_t>(3, b.size() - i);
        uint32_t v = uint32_t(b[i]) << 16;
        if (n > 1) v |= uint32_t(b[i + 1]) << 8;
        if (n > 2) v |= b[i + 2];
        for (size_t j = 0; j < 4; ++j) out += j <= n ? k[(v >> (18 - 6 * j)) & 63] : '=';
    }
    return out;
}

Bytes flacPicture(const Image& im, uint32_t type = 3) {
    return flacBlock(kFlacPicture, pictureData(type, im.mime, "cover", im.data));
}

Bytes cuesheet() {
    ByteBuilder b;
    b.str("1234567890123").zeros(128 - 13).be64(88200).u8(0x80).zeros(258).u8(2);
    // One audio track with one index, then the lead-out.
    b.be64(0).u8(1).str("USRC17607839").u8(0).zeros(13).u8(1).be64(0).u8(1).zeros(3);
    b.be64(441000).u8(170).zeros(12).u8(0).zeros(13).u8(0);
    return flacBlock(5, b.take());
}

void flacSeeds() {
    const std::vector<string> comments = {"TITLE=Title",
                                          "ARTIST=Artist",
                                          "ALBUM=Album",
                                          "DATE=2001-02-03",
                                          "TRACKNUMBER=3",
                                          "TRACKTOTAL=12",
                                          "DISCNUMBER=1/2",
                                          "GENRE=Rock",
                                          "COMMENT=c",
                                          "DESCRIPTION=d",
                                          "LYRICS=l",
                                          "ISRC=USRC17607839",
                                          "REPLAYGAIN_TRACK_GAIN=-6.5 dB",
                                          "COMPILATION=1",
                                          "BPM=120",
                                          "COMPOSER=c",
                                          "LANGUAGE=eng",
                                          "ENCODER=e",
                                          "CUSTOM=x",
                                          "title=dup"};
    const Bytes vc = flacBlock(kFlacVorbisComment, vorbisComments("reference libFLAC 1.4.2", comments));
    std::vector<Bytes> pictures;
    for (const Image& im : gImages) pictures.push_back(flacPicture(im));
    const Bytes seek =
        flacBlock(kFlacSeekTable, ByteBuilder().be64(0).be64(0).be16(4096).be64(~0ull).zeros(10).take());
    const Bytes app = flacBlock(kFlacApplication, ByteBuilder().str("ATCH").str("data").take());
    const Bytes pad = flacBlock(kFlacPadding, Bytes(32, 0));
    put("fuzz_flac", "plain", flacFile({}));
    put("fuzz_flac", "all_blocks", flacFile({seek, vc, app, cuesheet(), pictures.front(), pad}));
    put("fuzz_flac", "comments", flacFile({vc}));
    for (size_t i = 0; i < pictures.size(); ++i)
        put("fuzz_flac", "picture" + std::to_string(i), flacFile({pictures[i]}));
    put("fuzz_flac", "two_pictures", flacFile({pictures.front(), pictures.front()}));
    put("fuzz_flac", "picture_icon",
        flacFile({flacPicture(gImages.front(), 1), flacPicture(gImages.front(), 2)}));
    put("fuzz_flac", "picture_url",
        flacFile({flacBlock(kFlacPicture, pictureData(3, "-->", "", str("http://a/b.jpg")))}));
    put("fuzz_flac", "picture_badlen",
        flacFile({flacBlock(kFlacPicture, pictureData(3, "image/png", "", gImages.front().data, 1u << 30))}));
    // PICTURE blocks too short for their fields (the reader must stay inside them).
    for (uint32_t len : {0u, 4u, 8u, 11u, 12u, 20u})
        put("fuzz_flac", "picture_short" + std::to_string(len),
            flacFile({flacBlock(kFlacPicture, Bytes(len, 0)), vc}));
    put("fuzz_flac", "cuesheet", flacFile({cuesheet()}));
    put("fuzz_flac", "seektable", flacFile({seek}));
    put("fuzz_flac", "application", flacFile({app, app}));
    put("fuzz_flac", "unknown_type", flacFile({flacBlock(7, Bytes(8, 1)), flacBlock(127, Bytes(4, 0))}));
    put("fuzz_flac", "no_equals",
        flacFile({flacBlock(kFlacVorbisComment, vorbisComments("v", {"NOEQUALS", "=x", "A="}))}));
    put("fuzz_flac", "bad_count",
        flacFile({flacBlock(kFlacVorbisComment, vorbisComments("v", {"A=b"}, 1000))}));
    put("fuzz_flac", "two_comments", flacFile({vc, vc}));
    put("fuzz_flac", "utf8",
        flacFile(
            {flacBlock(kFlacVorbisComment, vorbisComments("v", {"TITLE=\xC3\xA9", "ARTIST=\xFF\xFE"}))}));
    put("fuzz_flac", "streaminfo_odd", flacFile({}, streamInfo(0, 8, 4, 0, 100, 50)));
    put("fuzz_flac", "length_over", flacFile({flacBlock(kFlacPadding, Bytes(8, 0), false, 1000)}));
    put("fuzz_flac", "id3_front", concat({id3v2Tag(3, id3TextFrame(3, "TIT2", "t")), flacFile({vc})}));
    put("fuzz_flac", "id3v1_end", concat({flacFile({vc}), id3v1Tag()}));
    put("fuzz_flac", "no_audio", flacFile({vc}, streamInfo(), 0));

    // Ogg: Vorbis and Opus with comments and pictures, and damaged pages.
    const string pictureField =
        "METADATA_BLOCK_PICTURE=" + base64(pictureData(3, gImages.front().mime, "c", gImages.front().data));
    std::vector<string> withPicture = comments;
    withPicture.push_back(pictureField);
    withPicture.push_back("COVERART=" + pictureField.substr(23));
    withPicture.push_back("METADATA_BLOCK_PICTURE=!!notbase64");
    put("fuzz_ogg", "vorbis", vorbisStream(comments));
    put("fuzz_ogg", "vorbis_picture", vorbisStream(withPicture));
    put("fuzz_ogg", "vorbis_plain", vorbisStream());
    put("fuzz_ogg", "opus", opusStream(comments));
    put("fuzz_ogg", "opus_picture", opusStream(withPicture));
    put("fuzz_ogg", "vorbis_no_equals", vorbisStream({"NOEQUALS", "A=", "=b"}));
    put("fuzz_ogg", "vorbis_mono",
        headerStream(vorbisIdentification(1, 8000, 0), {vorbisCommentPacket("v", comments)}, 5));
    put("fuzz_ogg", "opus_6ch", headerStream(opusHead(6), {opusTags("v", comments)}, 960));
    {
        // The comment packet spread over several pages.
        OggStreamBuilder s;
        const Bytes big = vorbisCommentPacket("v", {"TITLE=" + string(700, 't')});
        s.packet(vorbisIdentification()).page({.flags = 2});
        s.part(Bytes(big.begin(), big.begin() + 510), false).page();
        s.packet(Bytes(big.begin() + 510, big.end())).packet(Bytes(30, 0x55)).page({.flags = 1});
        s.packet(audioPacket()).page({.flags = 4, .granule = 100});
        put("fuzz_ogg", "multipage_comment", s.take());
    }
    {
        OggStreamBuilder s;
        s.packet(vorbisIdentification()).page({.flags = 2, .corruptCRC = true});
        s.packet(vorbisCommentPacket("v", comments)).page({.sequence = 5});
        s.packet(audioPacket()).page({.flags = 4, .granule = 10, .serial = 99});
        put("fuzz_ogg", "damaged_pages", s.take());
    }
    {
        // Two streams one after the other, and garbage between pages.
        Bytes a = vorbisStream(comments), b = opusStream(comments);
        put("fuzz_ogg", "chained", concat({a, b}));
        put("fuzz_ogg", "garbage",
            concat({Bytes(a.begin(), a.begin() + 58), Bytes(20, 0x33), Bytes(a.begin() + 58, a.end())}));
        put("fuzz_ogg", "id3_front", concat({id3v2Tag(3, id3TextFrame(3, "TIT2", "t")), a}));
        put("fuzz_ogg", "truncated", Bytes(a.begin(), a.end() - 20));
    }
    {
        OggStreamBuilder s;
        s.packet(ByteBuilder()
                     .u8(0x7F)
                     .str("FLAC")
                     .u8(1)
                     .u8(0)
                     .be16(1)
                     .str("fLaC")
                     .bytes(flacBlock(0, streamInfo()))
                     .take());
        s.page({.flags = 2})
            .packet(flacBlock(kFlacVorbisComment, vorbisComments("v", comments), true))
            .page();
        s.packet(audioPacket()).page({.flags = 4, .granule = 4096});
        put("fuzz_ogg", "ogg_flac", s.take());
    }
    put("fuzz_ogg", "speex",
        headerStream(ByteBuilder().str("Speex   ").zeros(72).take(), {Bytes(20, 1)}, 10));
}

// ---------------------------------------------------------------- chunked formats

void chunkedSeeds() {
    using namespace sondrel::fixtures::chunked;
    const Bytes tag = id3v2Tag(3, concat({id3TextFrame(3, "TIT2", "t"), id3TextFrame(3, "TPE1", "a")}));
    const Bytes fmt = wavFmtChunk();
    const Bytes data = riffChunk("data", Bytes(64, 0));
    const Bytes info = riffChunk("LIST", ByteBuilder()
                                             .str("INFO")
                                             .bytes(riffChunk("INAM", str(string("Title\0", 6))))
                                             .bytes(riffChunk("IART", str("Artist")))
                                             .take());
    put("fuzz_wav", "plain", wavFile({fmt, data}));
    put("fuzz_wav", "tags", wavFile({fmt, info, data, riffChunk("id3 ", tag)}));
    put("fuzz_wav", "upper_id3", wavFile({fmt, data, riffChunk("ID3 ", tag)}));
    put("fuzz_wav", "two_id3", wavFile({fmt, data, riffChunk("id3 ", tag), riffChunk("id3 ", tag)}));
    put("fuzz_wav", "junk",
        wavFile({riffChunk("JUNK", Bytes(28, 0)), fmt, riffChunk("odd ", Bytes(3, 1)), data}));
    put("fuzz_wav", "extensible",
        wavFile({riffChunk("fmt ", ByteBuilder()
                                       .le16(0xFFFE)
                                       .le16(2)
                                       .le32(44100)
                                       .le32(176400)
                                       .le16(4)
                                       .le16(16)
                                       .le16(22)
                                       .le16(16)
                                       .le32(3)
                                       .zeros(16)
                                       .take()),
                 data}));
    put("fuzz_wav", "zero_data_first", wavFile({fmt, rawRiffChunk("data", 0), data}));
    put("fuzz_wav", "data_overrun", wavFile({fmt, rawRiffChunk("data", 1000, Bytes(16, 0))}));
    put("fuzz_wav", "no_fmt", wavFile({data}));
    put("fuzz_wav", "bext", wavFile({riffChunk("bext", Bytes(602, 0x20)), fmt, data}));
    put("fuzz_wav", "rf64", rf64File({fmt, data}, 64));
    put("fuzz_wav", "rf64_tag",
        rf64File({fmt, rawRiffChunk("data", 0xFFFFFFFF, Bytes(64, 0)), riffChunk("id3 ", tag)}, 64));
    put("fuzz_wav", "rf64_bigdata",
        rf64File({fmt, rawRiffChunk("data", 0xFFFFFFFF, Bytes(64, 0))}, 1ull << 40));
    {
        Bytes w = wavFile({fmt, data});
        w[4] = 0x10;  // a RIFF size that does not match the file
        put("fuzz_wav", "size_mismatch", w);
    }

    put("fuzz_aiff", "plain", aiffForm({aiffComm(), aiffSsnd()}));
    put("fuzz_aiff", "tag", aiffForm({aiffComm(), aiffSsnd(), iffChunk("ID3 ", tag)}));
    put("fuzz_aiff", "tag_lower", aiffForm({aiffComm(), aiffSsnd(), iffChunk("id3 ", tag)}));
    put("fuzz_aiff", "two_tags",
        aiffForm({aiffComm(), aiffSsnd(), iffChunk("ID3 ", tag), iffChunk("ID3 ", tag)}));
    put("fuzz_aiff", "split_tags",
        aiffForm({aiffComm(), iffChunk("ID3 ", tag), aiffSsnd(), iffChunk("ID3 ", tag)}));
    put("fuzz_aiff", "texts",
        aiffForm({aiffComm(), iffChunk("NAME", str("Name")), iffChunk("AUTH", str("Auth")),
                  iffChunk("ANNO", str("odd")), iffChunk("(c) ", str("c")),
                  iffChunk("MARK", ByteBuilder().be16(0).take()), aiffSsnd()}));
    put("fuzz_aiff", "aifc",
        aiffForm({iffChunk("FVER", ByteBuilder().be32(0xA2805140).take()),
                  iffChunk("COMM", ByteBuilder()
                                       .bytes(aiffCommBody(extended80(48000), 1, 4, 24))
                                       .str("sowt")
                                       .u8(0)
                                       .u8(0)
                                       .take()),
                  aiffSsnd()},
                 "AIFC"));
    put("fuzz_aiff", "odd_rates",
        aiffForm({iffChunk("COMM", aiffCommBody(extended80(0), 0, 0, 0)), aiffSsnd(3)}));
    put("fuzz_aiff", "huge_rate",
        aiffForm({iffChunk("COMM", aiffCommBody(extended80(1e300), 2, 1, 64)), aiffSsnd()}));
    put("fuzz_aiff", "no_comm", aiffForm({aiffSsnd()}));
    put("fuzz_aiff", "tag_short",
        aiffForm({aiffComm(), aiffSsnd(), iffChunk("ID3 ", Bytes(tag.begin(), tag.end() - 3))}));
    {
        const Bytes form = aiffForm({aiffComm(), aiffSsnd(100)});
        put("fuzz_aiff", "form_short", Bytes(form.begin(), form.end() - 40));
    }

    put("fuzz_dsf", "plain", dsfFile({}));
    put("fuzz_dsf", "tag", dsfFile({.tag = tag}));
    put("fuzz_dsf", "mono_tag", dsfFile({.channelType = 1, .channels = 1, .tag = tag}));
    put("fuzz_dsf", "odd",
        dsfFile({.channelType = 9,
                 .channels = 7,
                 .frequency = 44100,
                 .bitsPerSample = 8,
                 .blockSize = 16,
                 .sampleCount = 1,
                 .tag = {}}));
    {
        Bytes d = dsfFile({.tag = tag});
        patchLE64(d, kDsfMetadataPointer, 100);  // inside the audio
        put("fuzz_dsf", "pointer_inside", d);
        d = dsfFile({});
        patchLE64(d, kDsfTotalSize, 1 << 20);
        put("fuzz_dsf", "total_size", d);
        d = dsfFile({.tag = tag});
        patchLE64(d, kDsfMetadataPointer, 1ull << 40);
        put("fuzz_dsf", "pointer_past", d);
    }

    put("fuzz_dff", "plain", dffFile({dffStandardProps(), dffDsdChunk()}));
    put("fuzz_dff", "dst", dffFile({dffStandardProps("DST "), dffDstChunk(2)}));
    put("fuzz_dff", "tag", dffFile({dffStandardProps(), dffDsdChunk(), iff64Chunk("ID3 ", tag)}));
    put("fuzz_dff", "mono_6ch", dffFile({dffStandardProps("DSD ", 6), dffDsdChunk()}));
    put("fuzz_dff", "extras",
        dffFile({dffPropChunk({dffFsProperty(), dffChnlProperty(), dffCmprProperty(),
                               iff64Chunk("ABSS", ByteBuilder().be16(0).u8(0).u8(0).be32(0).take()),
                               iff64Chunk("LSCO", ByteBuilder().be16(0).take())}),
                 iff64Chunk("COMT", ByteBuilder()
                                        .be16(1)
                                        .be16(2001)
                                        .u8(1)
                                        .u8(1)
                                        .u8(0)
                                        .u8(0)
                                        .be16(0)
                                        .be16(0)
                                        .be32(3)
                                        .str("abc")
                                        .u8(0)
                                        .take()),
                 iff64Chunk("DIIN", concat({iff64Chunk("DIAR", ByteBuilder().be32(6).str("Artist").take()),
                                            iff64Chunk("DITI", ByteBuilder().be32(5).str("Title").take())})),
                 iff64Chunk("MANF", str("abcdxyz")), dffDsdChunk(), iff64Chunk("ID3 ", tag)}));
    put("fuzz_dff", "missing_props", dffFile({dffPropChunk({dffFsProperty()}), dffDsdChunk()}));
    put("fuzz_dff", "no_sound", dffFile({dffStandardProps()}));
    put("fuzz_dff", "odd_chunk",
        dffFile({dffStandardProps(), iff64Chunk("ODD ", Bytes(3, 7)), dffDsdChunk()}));
}

// ---------------------------------------------------------------- APE tags, Monkey's Audio, WavPack

void apeSeeds() {
    const Image& im = gImages.front();
    const std::vector<Bytes> items = {
        apeItem("Title", "Title"),
        apeItem("Artist", "Artist"),
        apeItem("Album", "Album"),
        apeItem("Year", "2001"),
        apeItem("Track", "3/12"),
        apeItem("Disc", "1/2"),
        apeItem("Genre", "Rock"),
        apeItem("Comment", "c"),
        apeItem("Lyrics", "l"),
        apeItem("ISRC", "USRC17607839"),
        apeItem("Composer", "c"),
        apeItem("REPLAYGAIN_TRACK_GAIN", "-6.5 dB"),
        apeItem("Custom Key", "x"),
        apeItem("title", "dup"),
        apeItem("Cover Art (Front)", concat({str("cover.jpg"), Bytes{0}, im.data}), kItemBinary),
        apeItem("Cover Art (Back)", str("noterminator"), kItemBinary),
        apeItem("Related", "http://example.com/", kItemExternal),
        apeItem("Locked", "x", kItemText | kItemReadOnly),
        apeItem("Reserved", "x", 6),
        apeItem("Bad\x01Key", "x"),
        apeItem("Ti", "x"),
        apeItem("ID3", "x"),
        apeItem("Utf8", "\xC3\xA9\xFF"),
        apeItem("Multi", string("a\0b", 3))};
    const std::vector<Bytes> heads = {macHeaderNew(), macHeaderOld(), macHeaderOld(3800, false),
                                      macHeaderNew(3990, 60), macHeaderNew(3990, 20)};
    for (size_t h = 0; h < heads.size(); ++h) {
        const Bytes audio = concat({heads[h], Bytes(64, 0x42)});
        put("fuzz_ape", "head" + std::to_string(h), audio);
        put("fuzz_ape", "tagged" + std::to_string(h),
            concat({audio, apeTag(ApeTagSpec().items(items).writeHeader())}));
    }
    const Bytes audio = concat({macHeaderNew(), Bytes(64, 0x42)});
    for (size_t i = 0; i < items.size(); ++i)
        put("fuzz_ape", "item" + std::to_string(i), concat({audio, apeTag(ApeTagSpec().items({items[i]}))}));
    put("fuzz_ape", "v1", concat({audio, apeTag(ApeTagSpec().version(kApeV1).items({items[0], items[1]}))}));
    put("fuzz_ape", "v1_id3v1",
        concat({audio, apeTag(ApeTagSpec().version(kApeV1).items({items[0]})), id3v1Tag()}));
    put("fuzz_ape", "header_flag", concat({audio, apeTag(ApeTagSpec().items({items[0]}).headerFlag())}));
    put("fuzz_ape", "bad_count", concat({audio, apeTag(ApeTagSpec().items({items[0]}).count(50))}));
    put("fuzz_ape", "bad_size", concat({audio, apeTag(ApeTagSpec().items({items[0]}).tagSize(5000))}));
    put("fuzz_ape", "odd_version", concat({audio, apeTag(ApeTagSpec().version(3000).items({items[0]}))}));
    put("fuzz_ape", "id3v2_front", concat({id3v2Tag(3, id3TextFrame(3, "TIT2", "t")), audio}));
    put("fuzz_ape", "id3v1", concat({audio, id3v1Tag()}));

    const Bytes block = wvBlock({});
    const Bytes first = wvBlock(WvBlockSpec().flags(kWvRate44100));
    put("fuzz_wv", "one_block", block);
    put("fuzz_wv", "blocks",
        concat({first, wvBlock(WvBlockSpec().blockIndex(500).flags(kWvRate44100)), block}));
    put("fuzz_wv", "tagged", concat({block, apeTag(ApeTagSpec().items(items).writeHeader())}));
    put("fuzz_wv", "tagged_v1", concat({block, apeTag(ApeTagSpec().items({items[0]})), id3v1Tag()}));
    put("fuzz_wv", "id3v1", concat({block, id3v1Tag()}));
    put("fuzz_wv", "unknown_rate", wvBlock(WvBlockSpec().flags(kWvRateUnknown | kWvFinal)));
    put("fuzz_wv", "unknown_total", wvBlock(WvBlockSpec().totalSamples(0xFFFFFFFFFFull)));
    put("fuzz_wv", "old_version", wvBlock(WvBlockSpec().version(0x3FF)));
    put("fuzz_wv", "big_block", wvBlock(WvBlockSpec().blockSize(1000)));
    put("fuzz_wv", "small_block", wvBlock(WvBlockSpec().blockSize(24)));
    put("fuzz_wv", "garbage_between", concat({first, Bytes(40, 0x77), block}));
    put("fuzz_wv", "short", Bytes(block.begin(), block.begin() + 41));
    {
        // A block whose sub-blocks carry the original file's header and a checksum.
        ByteBuilder sub;
        sub.u8(0x21).u8(22).bytes(wavFile({wavFmtChunk(), rawRiffChunk("data", 0)}));
        sub.u8(0x0A).u8(2).zeros(4);
        Bytes body = sub.take();
        WvBlockSpec s = WvBlockSpec().blockSize(uint32_t(24 + body.size()));
        Bytes b = wvBlock(s);
        std::copy(body.begin(), body.end(), b.begin() + 32);
        put("fuzz_wv", "subblocks", b);
    }
}

// ---------------------------------------------------------------- MPEG-4

void mp4Seeds() {
    using namespace sondrel::fixtures::mp4;
    std::vector<Bytes> items;
    for (const char* t :
         {"\251nam", "\251ART", "aART",    "\251alb", "\251gen", "\251wrt", "\251day", "\251cmt",
          "\251lyr", "\251grp", "\251too", "cprt",    "desc",    "ldes",    "sdes",    "tvsh",
          "tven",    "tvnn",    "sonm",    "soar",    "soaa",    "soal",    "soco",    "sosn",
          "purd",    "ownr",    "xid ",    "keyw",    "catg"})
        items.push_back(textItem(t, "Text"));
    items.push_back(textItem("\251day", "2001-02-03T04:05:06Z"));
    items.push_back(textItem("purl", "http://example.com/", 0));
    items.push_back(textItem("\251gen", "Rock", 18));
    items.push_back(textItem("\251nam", "bad qualifier", 7));
    items.push_back(box("trkn", {data(0, ByteBuilder().be16(0).be16(3).be16(12).be16(0).take())}));
    items.push_back(box("disk", {data(0, ByteBuilder().be16(0).be16(1).be16(2).take())}));
    items.push_back(box("gnre", {data(0, ByteBuilder().be16(18).take())}));
    for (const char* t : {"cpil", "pgap", "pcst", "hdvd", "rtng", "stik", "tves", "tvsn", "akID", "sfID"})
        items.push_back(box(t, {data(21, Bytes{1})}));
    items.push_back(box("tmpo", {data(21, ByteBuilder().be16(120).take())}));
    items.push_back(box("tvsn", {data(21, ByteBuilder().be32(2).take())}));
    items.push_back(box("stik", {data(1, Bytes{1})}));
    items.push_back(box("rate", {data(1, text("80"))}));
    items.push_back(box("apID", {data(1, text("a@b.c"))}));
    for (const Image& im : gImages)
        items.push_back(box("covr", {data(im.mime == "image/png" ? 14 : 13, im.data)}));
    items.push_back(box("covr", {data(0, gImages.front().data), data(27, gImages.front().data)}));
    items.push_back(rdnsItem("iTunNORM", " 00000001"));
    items.push_back(rdnsItem("MOOD", "Calm"));
    items.push_back(rdnsItem("ISRC", "USRC17607839"));
    items.push_back(rdnsItem("Custom", "x", "org.example"));
    items.push_back(box("----", {fullBox("name", text("no mean")), data(1, text("v"))}));
    items.push_back(box("\251nam", {data(1, text("one")), data(1, text("two"))}));
    items.push_back(box("zzzz", {data(1, text("unknown"))}));
    items.push_back(atom("\251nam", Bytes(4, 0)));

    put("fuzz_mp4", "plain", m4aFile());
    put("fuzz_mp4", "all_items", m4aFile(items));
    for (size_t i = 0; i < items.size(); ++i)
        put("fuzz_mp4", "item" + std::to_string(i), m4aFile({items[i]}));
    put("fuzz_mp4", "dups", m4aFile({items[0], items[0], items[1]}));
    put("fuzz_mp4", "alac",
        m4aFile({items[0]}, {trak("soun", std::vector<Bytes>{stsd(alacEntry()), stco()})}));
    put("fuzz_mp4", "long_esds",
        m4aFile({items[0]},
                {trak("soun", std::vector<Bytes>{stsd(mp4aEntry(2, 48000, 256000, {})), stco()})}));
    put("fuzz_mp4", "video", m4aFile({items[0]}, {trak("vide"), trak("soun")}));
    put("fuzz_mp4", "no_track",
        concat({ftyp(), box("moov", {fullBox("mvhd", Bytes(96, 0)), udta({items[0]})})}));
    put("fuzz_mp4", "drm",
        m4aFile({items[0]},
                {trak("soun",
                      std::vector<Bytes>{
                          stsd(atom("drms", soundFields(2, 44100)
                                                .bytes(box("sinf", {atom("frma", text("mp4a")),
                                                                    box("schi", {atom("user", text("u")),
                                                                                 atom("name", text("n"))})}))
                                                .take())),
                          stco()})}));
    {
        const Bytes file = m4aFile({items[0]});
        put("fuzz_mp4", "free_atoms", concat({file, atom("free", Bytes(16, 0)), atom("skip", Bytes(4, 0))}));
        put("fuzz_mp4", "mdat_first",
            concat({ftyp(), atom("mdat", Bytes(16, 0)),
                    box("moov", {fullBox("mvhd", Bytes(96, 0)), trak("soun"), udta({items[0]})})}));
        put("fuzz_mp4", "mdat64", concat({file, atom64("mdat", Bytes(8, 0))}));
        put("fuzz_mp4", "size_zero", concat({file, atomSized(0, "mdat", Bytes(8, 0))}));
        put("fuzz_mp4", "size_over", concat({file, atomSized(1000, "free", Bytes(8, 0))}));
        put("fuzz_mp4", "truncated", Bytes(file.begin(), file.end() - 30));
        put("fuzz_mp4", "garbage_end", concat({file, Bytes(5, 0x11)}));
        put("fuzz_mp4", "co64",
            m4aFile({items[0]}, {trak("soun", std::vector<Bytes>{
                                                  stsd(mp4aEntry()),
                                                  fullBox("co64", ByteBuilder().be32(1).be64(0).take())})}));
        put("fuzz_mp4", "meta_no_hdlr",
            concat({ftyp(), box("moov", {fullBox("mvhd", Bytes(96, 0)), trak("soun"),
                                         box("udta", {fullBox("meta", box("ilst", {items[0]}))})})}));
        put("fuzz_mp4", "moof", concat({file, box("moof", {atom("mfhd", Bytes(8, 0))})}));
        put("fuzz_mp4", "id32",
            concat({ftyp(),
                    box("moov",
                        {fullBox("mvhd", Bytes(96, 0)), trak("soun"),
                         box("udta",
                             {fullBox(
                                 "meta",
                                 concat({hdlr("ID32"),
                                         fullBox("ID32", concat({Bytes{0x15, 0xC7},
                                                                 id3v2Tag(4, id3TextFrame(4, "TIT2",
                                                                                          "t"))}))}))})})}));
    }
}

// ---------------------------------------------------------------- field validation

void fieldSeeds() {
    // Each part: a byte choosing the field row, then the text.
    const std::vector<string> texts = {"Title",
                                       "2001",
                                       "2001-02-03",
                                       "2001-02-03T04:05:06",
                                       "2001-13-45",
                                       "3/12",
                                       "0/0",
                                       "12/3",
                                       "120",
                                       "-5",
                                       "1.5",
                                       "eng",
                                       "xx",
                                       "http://example.com/",
                                       "www.example",
                                       "USRC17607839",
                                       "USRC1760783",
                                       "\xC3\xA9",
                                       "\xFF\xFE",
                                       " lead",
                                       "trail ",
                                       "a\tb",
                                       "(12)Rock",
                                       "Rock",
                                       "255",
                                       "20010203",
                                       "USD1.00",
                                       "mailto:a@b.c",
                                       "#fragment",
                                       "1",
                                       "0",
                                       "yes",
                                       ""};
    for (int64_t row = 0; row <= kTerminatorRow; ++row) {
        ByteBuilder b;
        for (size_t i = 0; i < texts.size(); i += 4) {
            for (size_t j = i; j < i + 4 && j < texts.size(); ++j) b.u8(uint32_t(row)).str(texts[j]).u8(0);
        }
        put("fuzz_fields", "row" + std::to_string(row), b.take());
    }
    ByteBuilder dup;
    for (int i = 0; i < 4; ++i) dup.u8(0).str("Same").u8(0).u8(1).str("Other").u8(0);
    put("fuzz_fields", "duplicates", dup.take());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <output folder> [image folder]\n", argv[0]);
        return 2;
    }
    gOut = argv[1];
    loadImages(argc > 2 ? fs::path(argv[2]) : fs::path());
    mp3Seeds();
    flacSeeds();
    chunkedSeeds();
    apeSeeds();
    mp4Seeds();
    fieldSeeds();
    std::printf("make_seeds: %zu files in %s\n", gCount, gOut.string().c_str());
    return 0;
}
