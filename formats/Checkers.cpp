#include "formats/Checkers.h"

#include <memory>
#include <string>

#include "core/FormatTable.h"
#include "core/Tag.h"
#include "formats/ape/ApeTag.h"
#include "formats/ape/WVTag.h"
#include "formats/chunked/AiffTag.h"
#include "formats/chunked/DffTag.h"
#include "formats/chunked/DsfTag.h"
#include "formats/chunked/WavTag.h"
#include "formats/flac_ogg/FlacTag.h"
#include "formats/flac_ogg/OggTag.h"
#include "formats/id3/ID3Tag.h"
#include "formats/mp4/M4ATag.h"

namespace sondrel {

namespace {

template <typename T>
std::unique_ptr<Checker> make(const std::string& path, Tag& tag) {
    return std::make_unique<T>(path, tag);
}

}  // namespace

void installCheckers() {
    setChecker(Format::MP3, make<ID3Tag>);
    setChecker(Format::MPEG4, make<M4ATag>);
    setChecker(Format::FLAC, make<FlacTag>);
    setChecker(Format::WAV, make<WavTag>);
    setChecker(Format::DSF, make<DsfTag>);
    setChecker(Format::DFF, make<DffTag>);
    setChecker(Format::AIFF, make<AiffTag>);
    setChecker(Format::Ogg, make<OggTag>);
    setChecker(Format::APE, make<ApeTag>);
    setChecker(Format::WavPack, make<WVTag>);
}

}  // namespace sondrel
