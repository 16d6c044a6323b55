#pragma once
// Checks one WavPack file: the first block header, the chain of block
// headers up to the first block marked final, the codec version and the
// sample-rate index, and the total sample count, looked for at the end of the
// stream when the first block does not give it. The APE tag at the end of the
// file is read and checked as for Monkey's Audio.
#include <cstdint>
#include <string>

#include "core/Bytes.h"
#include "core/FileHandle.h"
#include "formats/ape/ApeTag.h"

namespace sondrel {

class WVTag : public ApeTag {
  public:
    // Runs the whole check of the file at `path`, reporting into `tag`.
    WVTag(const std::string& path, Tag& tag);

  private:
    bool verifyMarker();
    void validateFile();
    void lookForSampleFramesAtEnd();

    Bytes blk1;
};

}  // namespace sondrel
