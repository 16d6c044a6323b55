// Writes a small sample library with known problems, for a first look at what
// the checker reports:  sondrel_samples FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/fixtures/ByteBuilder.h"

using sondrel::Bytes;
using sondrel::fixtures::ByteBuilder;

namespace {

// MPEG-1 Layer III, 128 kbit/s, 44.1 kHz, no padding: 417-byte frames.
Bytes mpegFrames(int count) {
    ByteBuilder b;
    for (int i = 0; i < count; ++i) b.bytes({0xFF, 0xFB, 0x90, 0x00}).zeros(413);
    return b.take();
}

// An ID3v2.3 tag with one text frame.
Bytes id3v23(const std::string& frameId, const std::string& text) {
    ByteBuilder frame;
    frame.str(frameId).be32(uint32_t(text.size() + 1)).be16(0).u8(0).str(text);
    ByteBuilder tag;
    tag.str("ID3").u8(3).u8(0).u8(0).synchsafe32(uint32_t(frame.size())).bytes(frame);
    return tag.take();
}

void write(const std::filesystem::path& p, const Bytes& b) {
    std::filesystem::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: sondrel_samples FOLDER\n");
        return 2;
    }
    std::filesystem::path root = argv[1];

    // A title with a line break, and two stray bytes before the audio.
    ByteBuilder mp3;
    mp3.bytes(id3v23("TIT2", "First line\nSecond line")).bytes({0x00, 0x00}).bytes(mpegFrames(8));
    write(root / "Rock" / "01 Line break in title.mp3", mp3.data());

    // A clean MP3: tag and frames only.
    ByteBuilder clean;
    clean.bytes(id3v23("TPE1", "The Examples")).bytes(mpegFrames(8));
    write(root / "Rock" / "02 Clean.mp3", clean.data());

    // A FLAC file cut short inside its second metadata block.
    ByteBuilder flac;
    flac.str("fLaC").u8(0x00).be24(34).be16(4096).be16(4096).zeros(6);
    flac.be32((44100u << 12) | (1u << 9) | (15u << 4)).zeros(20);
    flac.u8(0x81).be24(1000).zeros(10);
    write(root / "Rock" / "03 Cut short.flac", flac.data());

    // A WAV file whose RIFF size does not match the file.
    ByteBuilder fmt;
    fmt.le16(1).le16(2).le32(44100).le32(44100 * 4).le16(4).le16(16);
    ByteBuilder wav;
    wav.str("RIFF").le32(9999).str("WAVE");
    wav.bytes(sondrel::fixtures::riffChunk("fmt ", fmt.data()));
    wav.bytes(sondrel::fixtures::riffChunk("data", Bytes(400, 0)));
    write(root / "Jazz" / "04 Wrong size.wav", wav.data());

    // MP3 data behind an MPEG-4 name.
    ByteBuilder renamed;
    renamed.bytes(id3v23("TALB", "Renamed")).bytes(mpegFrames(4));
    write(root / "Jazz" / "05 Really an MP3.m4a", renamed.data());

    // Not audio at all: ignored by the walk.
    ByteBuilder notes;
    notes.str("These files were made to show what the checker reports.\n");
    write(root / "notes.txt", notes.data());
    return 0;
}
