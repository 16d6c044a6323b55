#include "formats/mp4/M4ATag.h"

#include "core/LogError.h"
#include "formats/mp4/M4AItems.h"

namespace sondrel {

namespace {

constexpr char kTooShort[] = "Insufficient data to represent audio format";
constexpr char kMoof[] = "File contains at least one unsupported moof atom.";
constexpr char kNoMoov[] = "file is missing moov atom";
constexpr char kNoMdat[] = "file is missing mdat atom. (No audio)";
constexpr char kNoMdia[] = "Missing trak-mdia atom";
constexpr char kNoHdlr[] = "Missing trak-mdia-hdlr atom";
constexpr char kBadHandler[] = "Invalid format or read error";
constexpr char kNoMinf[] = "File is missing trak-mdia-minf atom";
constexpr char kNoStbl[] = "File is missing trak-mdia-stbl atom";
constexpr char kNoChunkOffsets[] = "File is missing trak-mdia-stbl-(stco|co64) atom";
constexpr char kNoTracks[] = "The file does not have an audio or video track";
constexpr char kNoAudioTrack[] = "No audio track located";
constexpr char kCloseError[] = "Error closing the file";

// The first sample entry is read from its type code on: the sound entry's
// fields, then its first child (the decoder configuration).
constexpr uint64_t kSampleEntryLength = 70;
// An "stsd" holding exactly one 72-byte "alac" entry with its 36-byte
// decoder configuration.
constexpr uint64_t kAlacStsdSize = 88;

}  // namespace

M4ATag::M4ATag(const std::string& path, Tag& tag) : theFile_(path), theTag_(tag), streamFormat_("AAC") {
    if (setupFileForReading()) {
        // A synthetic root whose content is exactly the file: it starts 8
        // bytes before the file (the offset wraps) and has an 8-byte header.
        root_ = std::make_unique<Atom>(tag, nullptr, fourcc("root"), uint64_t(0) - 8, fileSize_ + 8, false,
                                       *fileHandle_);
        if (root_->getChildren() && root_->verifyRoot()) {
            if (root_->findChild(fourcc("moof"))) {
                theTag_.logError(kFatal, 0, kMoof);
            } else if (!(moov_ = root_->findChild(fourcc("moov")))) {
                theTag_.logError(kFatal, 0, kNoMoov);
            } else {
                haveValidTag_ = true;
                if ((udta_ = moov_->findChild(fourcc("udta"))))
                    if ((meta_ = udta_->findChild(fourcc("meta")))) ilst_ = meta_->findChild(fourcc("ilst"));
                if (ilst_) M4AItems(*ilst_).getKnownTags();
                if (haveValidTag_) {
                    haveValidTag_ = false;
                    if (validateTracks() && stbl_) {
                        // The code looked for is "esda", not "esds"; only the
                        // account name at the end of the chain is used.
                        if ((stsdx_ = stbl_->findChild(fourcc("stsd"))) &&
                            (mp4ax_ = stsdx_->findChild(fourcc("mp4a")))) {
                            esdsx_ = mp4ax_->findChild(fourcc("esda"));
                            if ((pinfx_ = mp4ax_->findChild(fourcc("pinf"))) &&
                                (schix_ = pinfx_->findChild(fourcc("schi"))) &&
                                (namex_ = schix_->findChild(fourcc("name"))))
                                M4AItems::getIdentification(*namex_);
                        }
                    }
                }
            }
            if (!(mdat_ = root_->findChild(fourcc("mdat")))) theTag_.logError(kContainer, 0, kNoMdat);
        }
    }
    if (!ilst_) haveValidTag_ = false;
    // Any problem at all, of any category, suppresses the audio properties
    // and the item validation.
    if (theTag_.errorCount() == 0) {
        getAudioProperties();
        if (!haveFrameInfo_) {
            theTag_.logError(kFatal, 0, kNoAudioTrack);
            haveValidTag_ = false;
        } else {
            theTag_.validateFields(true);
        }
    }
    closeFile();
}

bool M4ATag::setupFileForReading() {
    fileHandle_ = theTag_.setupFile(fileSize_);
    if (!fileHandle_) return false;
    if (fileSize_ <= 11) {
        theTag_.logError(kFatal, 0, kTooShort);
        return false;
    }
    return true;
}

void M4ATag::closeFile() {
    // The handle object stays alive: the atoms keep referring to it.
    if (fileHandle_ && !fileHandle_->closeTheFile()) theTag_.logError(kFile, 0, kCloseError);
}

bool M4ATag::validateTracks() {
    trackCount_ = 0;
    trak_ = nullptr;
    if (moov_->getChildren() && moov_->children()) {
        for (const auto& child : *moov_->children()) {
            if (child->type() != fourcc("trak")) continue;
            Atom& trak = *child;
            Atom* mdia = trak.findChild(fourcc("mdia"));
            if (!mdia) {
                theTag_.logError(kFatal, 0, kNoMdia);
                return false;
            }
            Atom* hdlr = mdia->findChild(fourcc("hdlr"));
            if (!hdlr) {
                theTag_.logError(kFatal, mdia->offset(), kNoHdlr);
                return false;
            }
            // Handler type after the header, version, flags and a reserved word.
            auto handler = hdlr->extractData(4, 16);
            if (!handler) {
                theTag_.logError(kFatal, mdia->offset(), kBadHandler);
                return false;
            }
            hdlr->setHdlrType(be32(handler->data()));
            const bool sound = hdlr->hdlrType() == fourcc("soun");
            const bool video = hdlr->hdlrType() == fourcc("vide");
            // The first sound track is the one described; later ones are
            // only checked. Other handlers (text, hints) need no chunk offsets.
            const bool chosen = sound && !haveAudio_;
            if (chosen) {
                haveAudio_ = true;
                trak_ = &trak;
                mdia_ = mdia;
            } else if (video) {
                ++videoTrackCount_;
            }
            Atom* minf = mdia->findChild(fourcc("minf"));
            if (!minf) {
                theTag_.logError(kFatal, mdia->offset(), kNoMinf);
                return false;
            }
            Atom* stbl = minf->findChild(fourcc("stbl"));
            if (!stbl) {
                theTag_.logError(kFatal, mdia->offset(), kNoStbl);
                return false;
            }
            if ((sound || video) && !stbl->findChild(fourcc("stco")) && !stbl->findChild(fourcc("co64"))) {
                theTag_.logError(kFatal, mdia->offset(), kNoChunkOffsets);
                return false;
            }
            if (!chosen) continue;
            minf_ = minf;
            stbl_ = stbl;
            // Protected and purchased entries are walked only for the framing
            // problems of their boxes.
            if (Atom* stsd = stbl->findChild(fourcc("stsd"))) {
                if (Atom* drms = stsd->findChild(fourcc("drms")))
                    if (Atom* sinf = drms->findChild(fourcc("sinf")))
                        if (Atom* schi = sinf->findChild(fourcc("schi"))) schi->getChildren();
                if (Atom* mp4a = stsd->findChild(fourcc("mp4a")))
                    if (Atom* pinf = mp4a->findChild(fourcc("pinf")))
                        if (Atom* schi = pinf->findChild(fourcc("schi"))) schi->getChildren();
            }
        }
    }
    if (haveAudio_ || videoTrackCount_ > 0) {
        haveValidTag_ = true;
        return true;
    }
    theTag_.logError(kFatal, 0, kNoTracks);
    return false;
}

void M4ATag::getAudioProperties() {
    if (!haveAudio_) {
        haveFrameInfo_ = true;
        return;
    }
    if (!mdia_ || !stbl_) return;
    // Time scale and duration of the version-0 media header.
    Atom* mdhd = mdia_->findChild(fourcc("mdhd"));
    if (!mdhd) return;
    auto times = mdhd->extractData(8, 20);
    if (!times) return;
    const uint64_t timeScale = be32(times->data());
    const uint64_t duration = be32(times->data() + 4);
    frameDuration_ms_ = timeScale ? duration * 1000 / timeScale : duration * 1000;

    Atom* stsd = stbl_->findChild(fourcc("stsd"));
    if (!stsd) return;
    auto entry = stsd->extractData(kSampleEntryLength, 20);
    if (!entry) return;
    const uint8_t* e = entry->data();
    frameSamplerate_ = frameChannelmode_ = frameBitrate_ = 0;
    const uint32_t format = be32(e);
    if (format == fourcc("alac") && stsd->size() == kAlacStsdSize) {
        streamFormat_ = "ALAC";
        // The decoder configuration: bit depth at 49, channels at 53,
        // average bit rate at 60, sample rate at 64.
        if (be32(e + 36) == fourcc("alac")) {
            frameChannelmode_ = e[53] ? e[53] + 131072 : 0;
            frameSampleSize_ = e[49];
            frameBitrate_ = (uint64_t(be32(e + 60)) + 500) / 1000;
            frameSamplerate_ = be32(e + 64);
        }
    } else if (format == fourcc("mp4a")) {
        frameChannelmode_ = be16(e + 20) == 1 ? 3 : 0;
        frameSamplerate_ = be16(e + 28);
        // The elementary stream descriptor (tag 3) holds the decoder
        // configuration descriptor (tag 4) with the average bit rate; each
        // length is one byte or four (80 80 80 nn).
        if (be32(e + 36) == fourcc("esds") && e[44] == 3) {
            const size_t p = (e[45] == 0x80 && e[46] == 0x80 && e[47] == 0x80) ? 52 : 49;
            if (e[p] != 4) return;
            const size_t q = (e[p + 1] == 0x80 && e[p + 2] == 0x80 && e[p + 3] == 0x80) ? p + 4 : p + 1;
            frameBitrate_ = (uint64_t(be32(e + q + 10)) + 500) / 1000;
        }
    }
    haveFrameInfo_ = true;
}

}  // namespace sondrel
