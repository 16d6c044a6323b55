#pragma once
// Checks one MPEG-4 audio file: the atom tree from a synthetic root spanning
// the whole file, the movie ("moov") with its item list and tracks, the media
// data ("mdat"), the audio properties of the first sound track and, when
// nothing went wrong, the stored metadata items.
#include <cstdint>
#include <memory>
#include <string>

#include "core/Tag.h"
#include "formats/mp4/Atom.h"

namespace sondrel {

class M4ATag : public Checker {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    M4ATag(const std::string& path, Tag& tag);

    const std::string& streamFormat() const { return streamFormat_; }
    bool haveFrameInfo() const { return haveFrameInfo_; }
    uint64_t frameSamplerate() const { return frameSamplerate_; }
    uint64_t frameChannelmode() const { return frameChannelmode_; }
    uint64_t frameDuration_ms() const { return frameDuration_ms_; }
    uint64_t frameBitrate() const { return frameBitrate_; }
    uint64_t frameSampleSize() const { return frameSampleSize_; }
    bool haveValidTag() const { return haveValidTag_; }
    bool haveAudio() const { return haveAudio_; }
    uint64_t videoTrackCount() const { return videoTrackCount_; }

  private:
    bool setupFileForReading();
    void closeFile();
    bool validateTracks();
    void getAudioProperties();

    uint64_t fileSize_ = 0;
    std::unique_ptr<FileHandle> fileHandle_;
    std::string theFile_;
    bool haveValidTag_ = false;
    Tag& theTag_;

    std::unique_ptr<Atom> root_;
    Atom* moov_ = nullptr;
    Atom* udta_ = nullptr;
    Atom* meta_ = nullptr;
    Atom* ilst_ = nullptr;
    Atom* trak_ = nullptr;
    Atom* mdia_ = nullptr;
    Atom* minf_ = nullptr;
    Atom* stbl_ = nullptr;
    Atom* mdat_ = nullptr;
    // The sample-entry chain down to a purchase's account name.
    Atom* stsdx_ = nullptr;
    Atom* mp4ax_ = nullptr;
    Atom* esdsx_ = nullptr;
    Atom* pinfx_ = nullptr;
    Atom* schix_ = nullptr;
    Atom* namex_ = nullptr;

    uint64_t frameSamplerate_ = 0;  // Hz
    uint64_t frameChannelmode_ = 0;
    uint64_t frameDuration_ms_ = 0;
    uint64_t frameBitrate_ = 0;     // kbit/s
    uint64_t frameSampleSize_ = 0;  // bits
    bool haveFrameInfo_ = false;
    std::string streamFormat_;
    uint64_t trackCount_ = 0;
    uint64_t videoTrackCount_ = 0;
    bool haveAudio_ = false;
};

}  // namespace sondrel
