#include "formats/id3/ID3Frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <vector>

#include "core/Bytes.h"
#include "core/FieldTable.h"
#include "core/Tag.h"
#include "core/Text.h"

namespace sondrel {

namespace {

// Messages of the frame decoders (each one is wrapped as "ID3 '<id>' frame: ...").
constexpr const char* kFrameMessage = "ID3 '{}' frame: {}";
constexpr const char* kInvalidFrameType = "Invalid ID3 frame type";
constexpr const char* kDroppedV22 = "Dropped ID3 v2.2 frame";
constexpr const char* kDroppedV23 = "Dropped ID3 v2.3 frame";
constexpr const char* kInsufficientData = "Insufficient data for ID3 frame";
constexpr const char* kCompressedOrEncrypted = "frame is compressed or encrypted";
constexpr const char* kMalformedFrame = "Malformed ID3 frame";
constexpr const char* kNotTerminated = "text string not properly terminated";
constexpr const char* kStringOverflows = "text string overflows frame";
constexpr const char* kMalformedText = "Malformed text string";
constexpr const char* kTrailingNils = "text string contains redundant trailing nil(s)";
constexpr const char* kRedundantNils = "text string contains redundant nil(s)";
constexpr const char* kArtworkFrameOverflows = "artwork frame overflows";
constexpr const char* kNoMimeType = "cannot extract mime type in artwork";
constexpr const char* kExternalReference = "artwork contains external --> reference";
constexpr const char* kArtworkOverflows = "artwork overflows frame";
constexpr const char* kInvalidPictureCode = "artwork contains an invalid picture code";
constexpr const char* kArtworkNoDescription = "artwork missing description field";
constexpr const char* kMimeJpg = "artwork mime type entered as image/jpg (should be image/jpeg)";
constexpr const char* kMimeNotJpeg = "artwork mime type incorrect for jpeg data";
constexpr const char* kMimeNotPng = "artwork mime type incorrect for png data";
constexpr const char* kNotJpegOrPng = "artwork not jpeg or png";
constexpr const char* kInsufficientForFrame = "insufficient data for frame";
constexpr const char* kFrameOverflows = "frame overflows";
constexpr const char* kMissingDescription = "missing description field";
constexpr const char* kMissingUserDescription = "missing Description field";
constexpr const char* kMissingMimeType = "missing mime type field";
constexpr const char* kMissingFilename = "missing filename field";
constexpr const char* kMissingPrice = "missing price field";
constexpr const char* kEmptyPurchaseDate = "empty purchase date field";
constexpr const char* kInvalidPurchaseDate = "invalid purchase date field";
constexpr const char* kInvalidSeller = "invalid seller field";

// Several values of one text frame are stored joined by three middle dots.
constexpr std::string_view kJoiner = "\u00B7\u00B7\u00B7";

// Frame flags in the v2.4 layout (v2.3 flags are translated into it).
constexpr uint64_t kFlagGroup = 0x0040;
constexpr uint64_t kFlagCompressed = 0x0008;
constexpr uint64_t kFlagEncrypted = 0x0004;
constexpr uint64_t kFlagUnsynchronised = 0x0002;
constexpr uint64_t kFlagDataLength = 0x0001;

constexpr uint32_t kDroppedType = fourcc("    ");

constexpr uint32_t packV22(const char (&s)[4]) {
    return (uint32_t(' ') << 24) | (uint32_t(uint8_t(s[0])) << 16) | (uint32_t(uint8_t(s[1])) << 8) |
           uint32_t(uint8_t(s[2]));
}

struct Rename {
    uint32_t from;
    uint32_t to;
};

// v2.2 three-letter identifiers (packed behind a space) and their v2.4 names.
constexpr std::array<Rename, 56> kV22Names{{
    {packV22("BUF"), fourcc("RBUF")}, {packV22("CNT"), fourcc("PCNT")}, {packV22("COM"), fourcc("COMM")},
    {packV22("CRA"), fourcc("AENC")}, {packV22("ETC"), fourcc("ETCO")}, {packV22("GEO"), fourcc("GEOB")},
    {packV22("IPL"), fourcc("TIPL")}, {packV22("MCI"), fourcc("MCDI")}, {packV22("MLL"), fourcc("MLLT")},
    {packV22("PIC"), fourcc("APIC")}, {packV22("POP"), fourcc("POPM")}, {packV22("REV"), fourcc("RVRB")},
    {packV22("SLT"), fourcc("SYLT")}, {packV22("STC"), fourcc("SYTC")}, {packV22("TAL"), fourcc("TALB")},
    {packV22("TBP"), fourcc("TBPM")}, {packV22("TCM"), fourcc("TCOM")}, {packV22("TCO"), fourcc("TCON")},
    {packV22("TCR"), fourcc("TCOP")}, {packV22("TDY"), fourcc("TDLY")}, {packV22("TEN"), fourcc("TENC")},
    {packV22("TFT"), fourcc("TFLT")}, {packV22("TKE"), fourcc("TKEY")}, {packV22("TLA"), fourcc("TLAN")},
    {packV22("TLE"), fourcc("TLEN")}, {packV22("TMT"), fourcc("TMED")}, {packV22("TOA"), fourcc("TOPE")},
    {packV22("TOF"), fourcc("TOFN")}, {packV22("TOL"), fourcc("TOLY")}, {packV22("TOR"), fourcc("TDOR")},
    {packV22("TOT"), fourcc("TOAL")}, {packV22("TP1"), fourcc("TPE1")}, {packV22("TP2"), fourcc("TPE2")},
    {packV22("TP3"), fourcc("TPE3")}, {packV22("TP4"), fourcc("TPE4")}, {packV22("TPA"), fourcc("TPOS")},
    {packV22("TPB"), fourcc("TPUB")}, {packV22("TRC"), fourcc("TSRC")}, {packV22("TRD"), fourcc("TDRC")},
    {packV22("TRK"), fourcc("TRCK")}, {packV22("TSS"), fourcc("TSSE")}, {packV22("TT1"), fourcc("TIT1")},
    {packV22("TT2"), fourcc("TIT2")}, {packV22("TT3"), fourcc("TIT3")}, {packV22("TXT"), fourcc("TEXT")},
    {packV22("TXX"), fourcc("TXXX")}, {packV22("TYE"), fourcc("TDRC")}, {packV22("UFI"), fourcc("UFID")},
    {packV22("ULT"), fourcc("USLT")}, {packV22("WAF"), fourcc("WOAF")}, {packV22("WAR"), fourcc("WOAR")},
    {packV22("WAS"), fourcc("WOAS")}, {packV22("WCM"), fourcc("WCOM")}, {packV22("WCP"), fourcc("WCOP")},
    {packV22("WPB"), fourcc("WPUB")}, {packV22("WXX"), fourcc("WXXX")},
}};

// v2.3 frames that have no v2.4 counterpart and are dropped with a message.
constexpr std::array<uint32_t, 6> kV23Dropped{fourcc("EQUA"), fourcc("RVAD"), fourcc("TDAT"),
                                              fourcc("TIME"), fourcc("TRDA"), fourcc("TSIZ")};
// v2.3 frames renamed silently.
constexpr std::array<Rename, 4> kV23Names{{{fourcc("IPLS"), fourcc("TIPL")},
                                           {fourcc("TORY"), fourcc("TDOR")},
                                           {fourcc("TYER"), fourcc("TDRC")},
                                           {fourcc("XRVA"), fourcc("RVA2")}}};

struct TextField {
    uint32_t frame;
    int64_t index;
};

// Text and URL frames and the field each one is stored as.
constexpr std::array<TextField, 54> kTextFields{{
    {fourcc("TIT2"), 0},  {fourcc("TPE1"), 1},  {fourcc("TPE2"), 2},  {fourcc("TALB"), 3},
    {fourcc("TRCK"), 4},  {fourcc("TPOS"), 5},  {fourcc("TDRC"), 6},  {fourcc("TBPM"), 7},
    {fourcc("TIT1"), 8},  {fourcc("TCOM"), 9},  {fourcc("TCMP"), 11}, {fourcc("TSOT"), 12},
    {fourcc("TSOP"), 13}, {fourcc("TSO2"), 14}, {fourcc("TSOA"), 15}, {fourcc("TSOC"), 16},
    {fourcc("TCOP"), 17}, {fourcc("TENC"), 18}, {fourcc("TSSE"), 19}, {fourcc("TIT3"), 21},
    {fourcc("TSST"), 22}, {fourcc("TPE3"), 23}, {fourcc("TPE4"), 24}, {fourcc("TEXT"), 25},
    {fourcc("TOAL"), 26}, {fourcc("TOPE"), 27}, {fourcc("TOLY"), 28}, {fourcc("TOFN"), 29},
    {fourcc("TMED"), 30}, {fourcc("TFLT"), 31}, {fourcc("TMOO"), 32}, {fourcc("TOWN"), 33},
    {fourcc("TPUB"), 34}, {fourcc("TRSN"), 35}, {fourcc("TRSO"), 36}, {fourcc("TSRC"), 37},
    {fourcc("TPRO"), 38}, {fourcc("TDEN"), 39}, {fourcc("TDLY"), 40}, {fourcc("TDOR"), 41},
    {fourcc("TDRL"), 42}, {fourcc("TDTG"), 43}, {fourcc("TIPL"), 44}, {fourcc("TKEY"), 45},
    {fourcc("TLAN"), 46}, {fourcc("TLEN"), 47}, {fourcc("TMCL"), 48}, {fourcc("WCOP"), 49},
    {fourcc("WOAF"), 50}, {fourcc("WOAS"), 51}, {fourcc("WORS"), 52}, {fourcc("WPAY"), 53},
    {fourcc("WPUB"), 54}, {fourcc("WFED"), 81},
}};

bool isFrameIDChar(uint8_t c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z');
}

std::string cutAtNil(std::string s) {
    size_t nil = s.find('\0');
    if (nil != std::string::npos) s.resize(nil);
    return s;
}

bool isScannerSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

}  // namespace

namespace id3 {

std::string cleanDesc(std::string_view s) {
    constexpr std::string_view kBOM = "\xEF\xBB\xBF";
    auto trimmable = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    bool changed = true;
    while (changed && !s.empty()) {
        changed = false;
        if (trimmable(s.front())) {
            s.remove_prefix(1);
            changed = true;
        } else if (s.starts_with(kBOM)) {
            s.remove_prefix(kBOM.size());
            changed = true;
        }
    }
    changed = true;
    while (changed && !s.empty()) {
        changed = false;
        if (trimmable(s.back())) {
            s.remove_suffix(1);
            changed = true;
        } else if (s.ends_with(kBOM)) {
            s.remove_suffix(kBOM.size());
            changed = true;
        }
    }
    return std::string(s);
}

bool isAllNumeric(std::string_view s, int64_t low, int64_t high) {
    if (s.empty() || s.size() > 18) return false;
    int64_t v = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        v = v * 10 + (c - '0');
    }
    return v >= low && v <= high;
}

std::optional<std::string> allocReformatedPurchaseDate(std::string_view date) {
    if (date.size() != 8 || date.front() == ' ') return std::nullopt;
    if (!isAllNumeric(date.substr(0, 4), 1000, 9999)) return std::nullopt;
    return std::string("1");
}

// A genre given as text, or as a number of the classic genre list written
// either alone or in parentheses ("17", "(17)", "(17)Rock"). After an opening
// parenthesis only the number and the closing one are needed; without it the
// number must end the text. The scan skips white space before each token and
// accepts a sign, as a number scanner does.
std::string genreValue(const std::string& merged) {
    if (merged.starts_with("(")) {
        if (merged.starts_with("(RX)")) return "Remix";
        if (merged.starts_with("(CR)")) return "Cover";
    } else if (merged == "RX") {
        return "Remix";
    } else if (merged == "CR") {
        return "Cover";
    }
    size_t i = 0;
    const size_t n = merged.size();
    auto skipSpace = [&] {
        while (i < n && isScannerSpace(merged[i])) ++i;
    };
    skipSpace();
    bool paren = false;
    if (i < n && merged[i] == '(') {
        paren = true;
        ++i;
    }
    skipSpace();
    bool negative = false;
    if (i < n && (merged[i] == '+' || merged[i] == '-')) negative = merged[i++] == '-';
    if (i >= n || merged[i] < '0' || merged[i] > '9') return merged;
    int64_t value = 0;
    while (i < n && merged[i] >= '0' && merged[i] <= '9') {
        if (value < INT64_MAX / 10)
            value = value * 10 + (merged[i] - '0');
        else
            value = INT64_MAX;
        ++i;
    }
    if (negative) value = -value;
    skipSpace();
    if (paren) {
        if (i >= n || merged[i] != ')') return merged;
    } else if (i != n) {
        return merged;
    }
    return value <= 147 ? std::string("#") : merged;
}

}  // namespace id3

std::unique_ptr<ID3Frame> ID3Frame::make(uint8_t* bytes, uint64_t size, uint64_t version, Tag& tag,
                                         uint64_t rawOffset) {
    std::unique_ptr<ID3Frame> frame(new ID3Frame(bytes, size, version, tag, rawOffset));
    if (!frame->configureFrame()) return nullptr;
    return frame;
}

ID3Frame::ID3Frame(uint8_t* bytes, uint64_t size, uint64_t version, Tag& tag, uint64_t rawOffset)
    : theTag_(&tag), rawOffset_(rawOffset), bytes_(bytes), size_(size), version_(version) {}

void ID3Frame::logError(std::string_view reason) {
    uint32_t shown = configuring_ ? initialType_ : type_;
    theTag_->logError(kFraming, rawOffset_,
                      fmt::format(kFrameMessage, theTag_->allocStringFromTag(shown), reason));
}

bool ID3Frame::configureFrame() {
    const bool v22 = version_ == 2;
    const uint64_t headerSize = v22 ? 6 : 10;
    // Only the walk creates frames, and it always hands over a whole header;
    // anything else cannot be a frame of a known version.
    if ((version_ < 2 || version_ > 4) || !bytes_ || size_ < headerSize) return false;

    const uint64_t idLength = v22 ? 3 : 4;
    bool validID = true;
    uint32_t id = v22 ? uint32_t(' ') : 0;
    for (uint64_t i = 0; i < idLength; ++i) {
        if (!isFrameIDChar(bytes_[i])) validID = false;
        id = (id << 8) | bytes_[i];
    }
    initialType_ = id;
    type_ = id;
    if (!validID) logError(kInvalidFrameType);

    if (version_ == 2) {
        auto it =
            std::find_if(kV22Names.begin(), kV22Names.end(), [&](const Rename& r) { return r.from == id; });
        if (it != kV22Names.end()) {
            type_ = it->to;
        } else {
            itype_ = id;
            logError(kDroppedV22);
            type_ = kDroppedType;
        }
    } else if (version_ == 3) {
        if (std::find(kV23Dropped.begin(), kV23Dropped.end(), id) != kV23Dropped.end()) {
            itype_ = id;
            logError(kDroppedV23);
            type_ = kDroppedType;
        } else {
            auto it = std::find_if(kV23Names.begin(), kV23Names.end(),
                                   [&](const Rename& r) { return r.from == id; });
            if (it != kV23Names.end()) type_ = it->to;
        }
    }

    if (version_ == 3) {
        const uint8_t status = bytes_[8], format = bytes_[9];
        if (status & 0x80) flags_ |= 0x4000;
        if (status & 0x40) flags_ |= 0x2000;
        if (status & 0x20) flags_ |= 0x1000;
        if (format & 0x80) flags_ |= kFlagCompressed;
        if (format & 0x40) flags_ |= kFlagEncrypted;
        if (format & 0x20) flags_ |= kFlagGroup;
    } else if (version_ == 4) {
        flags_ = be16(bytes_ + 8);
    }

    dataBytes_ = bytes_ + headerSize;
    dataSize_ = size_ - headerSize;

    // "Accepting" a frame that lacks its group byte, body or data-length
    // field ends the set-up: the frame stays in the walk but is not decoded.
    auto acceptUndecoded = [&](bool ignore) {
        logError(kInsufficientData);
        decoded_ = true;
        if (ignore) ignore_ = true;
        configuring_ = false;
        return true;
    };
    if (flags_ & kFlagGroup) {
        if (dataSize_ < 2) return acceptUndecoded(false);
        frameGroup_ = dataBytes_[0];
        ++dataBytes_;
        --dataSize_;
    }
    if (!(flags_ & kFlagDataLength)) {
        if (dataSize_ == 0) return acceptUndecoded(true);
    } else {
        if (dataSize_ <= 4) return acceptUndecoded(true);
        uint64_t length = 0;
        for (int i = 0; i < 4; ++i) {
            if (dataBytes_[i] & 0x80) return false;
            length = (length << 7) | dataBytes_[i];
        }
        if (length == 0) return false;
        dataIndSize_ = length;
        dataBytes_ += 4;
        dataSize_ -= 4;
    }
    configuring_ = false;
    return true;
}

// Per-frame unsynchronisation: every 00 that follows an FF was inserted by
// the writer and is dropped, in place.
void ID3Frame::synchronize() {
    if (!(flags_ & kFlagUnsynchronised) || wasUnsynchronized_) return;
    wasUnsynchronized_ = true;
    uint64_t out = 0;
    for (uint64_t in = 0; in < dataSize_; ++in) {
        dataBytes_[out++] = dataBytes_[in];
        if (dataBytes_[in] == 0xFF && in + 1 < dataSize_ && dataBytes_[in + 1] == 0x00) ++in;
    }
    dataSize_ = out;
}

void ID3Frame::readEncoding() {
    encoding_ = Encoding::Latin1;
    if (dataSize_ == 0) {
        logError(kMalformedFrame);
        return;
    }
    switch (dataBytes_[0]) {
        case 1:
            encoding_ = Encoding::UTF16WithBOM;
            break;
        case 2:
            if (version_ == 4) encoding_ = Encoding::UTF16BE;
            break;
        case 3:
            if (version_ == 4) encoding_ = Encoding::UTF8;
            break;
        default:
            break;
    }
}

uint64_t ID3Frame::getString8SizeAtOffset(uint64_t pos) {
    for (uint64_t i = pos; i < dataSize_; ++i)
        if (dataBytes_[i] == 0) return i - pos + 1;
    logError(kNotTerminated);
    return 0;
}

// UTF-16 text ends at two zero bytes on a 2-byte boundary counted from the
// string's start.
uint64_t ID3Frame::getString16SizeAtOffset(uint64_t pos) {
    for (uint64_t i = pos; i < dataSize_ && dataSize_ - i >= 2; i += 2)
        if (dataBytes_[i] == 0 && dataBytes_[i + 1] == 0) return i - pos + 2;
    logError(kNotTerminated);
    return 0;
}

std::string ID3Frame::allocStringFromDataWithOffset(uint64_t pos, uint64_t length, Encoding enc) {
    if (length == 0) return {};
    if (pos >= dataSize_) {
        logError(kStringOverflows);
        return {};
    }
    if (length > dataSize_ - pos) {
        logError(kStringOverflows);
        length = dataSize_ - pos;
    }
    ByteSpan span(dataBytes_ + pos, length);
    std::optional<std::string> s;
    switch (enc) {
        case Encoding::Latin1:
            s = text::decodeLatin1(span);
            break;
        case Encoding::UTF16WithBOM:
            s = text::decodeUTF16WithBOM(span);
            break;
        case Encoding::UTF16BE:
            s = text::decodeUTF16BE(span);
            break;
        case Encoding::UTF8:
            s = text::decodeUTF8(span);
            break;
    }
    if (!s) {
        logError(kMalformedText);
        return {};
    }
    return std::move(*s);
}

std::optional<std::string> ID3Frame::terminatedString(uint64_t pos, uint64_t& repCount, Encoding enc) {
    const bool narrow = enc == Encoding::Latin1 || enc == Encoding::UTF8;
    uint64_t length = narrow ? getString8SizeAtOffset(pos) : getString16SizeAtOffset(pos);
    if (length == 0) return std::nullopt;
    repCount = length;
    return allocStringFromDataWithOffset(pos, length - (narrow ? 1 : 2), enc);
}

std::optional<std::string> ID3Frame::allocStringAtOffset(uint64_t pos, uint64_t& repCount) {
    return terminatedString(pos, repCount, encoding_);
}

std::optional<std::string> ID3Frame::allocSimpleTextStringAtOffset(uint64_t pos, uint64_t& repCount) {
    return terminatedString(pos, repCount, Encoding::Latin1);
}

// The last field of a frame runs to the end of the body, without terminator.
std::string ID3Frame::restOfBody(uint64_t pos, Encoding enc) {
    return allocStringFromDataWithOffset(pos, pos < dataSize_ ? dataSize_ - pos : 0, enc);
}

// Nil-separated values are joined with the joiner. The text is walked once,
// never split into a list of parts: a frame of nothing but nils must not cost
// a string per nil.
std::string ID3Frame::mergeStrings(const std::string& s, bool testForTrailingNil) {
    std::string_view view(s);
    if (view.find('\0') == std::string_view::npos) return s;
    if (testForTrailingNil && view.back() == '\0') {
        logError(kTrailingNils);
        view.remove_suffix(1);
    }
    std::string out;
    out.reserve(view.size());
    for (size_t start = 0;;) {
        const size_t nil = view.find('\0', start);
        if (nil == std::string_view::npos) {
            out += view.substr(start);
            return out;
        }
        out += view.substr(start, nil - start);
        out += kJoiner;
        start = nil + 1;
    }
}

std::string ID3Frame::getRidOfNils(const std::string& s) {
    std::string out;
    out.reserve(s.size());
    for (char c : s)
        if (c != '\0') out.push_back(c);
    if (out.size() != s.size()) logError(kRedundantNils);
    return out;
}

bool ID3Frame::decodeFrame() {
    if (decoded_) return true;
    decoded_ = true;
    if (flags_ & (kFlagCompressed | kFlagEncrypted)) {
        logError(kCompressedOrEncrypted);
        ignore_ = true;
        return true;
    }
    switch (type_) {
        case kDroppedType:
        case fourcc("ENCR"):
        case fourcc("GRID"):
        case fourcc("LINK"):
        case fourcc("SEEK"):
        case fourcc("SIGN"):
            ignore_ = true;
            return true;
        case fourcc("PCST"):
            return true;
        default:
            break;
    }
    synchronize();
    switch (type_) {
        case fourcc("APIC"):
            pictureDecode();
            break;
        case fourcc("COMM"):
            COMMDecode(field::Comments);
            break;
        case fourcc("USLT"):
            COMMDecode(field::Lyrics);
            break;
        case fourcc("USER"):
            COMMDecode(field::TermsOfUse);
            break;
        case fourcc("TXXX"):
            UserData(field::UserDefinedText);
            break;
        case fourcc("WXXX"):
            UserData(field::UserDefinedURL);
            break;
        case fourcc("MCDI"):
        case fourcc("RVRB"):
            break;  // binary data: only unsynchronised
        case fourcc("EQU2"):
            ownerOnlyDecode(field::Equalization, 1);
            break;
        case fourcc("RVA2"):
            ownerOnlyDecode(field::RelativeVolume, 0);
            break;
        case fourcc("GEOB"):
            geobDecode();
            break;
        case fourcc("PRIV"):
            privDecode();
            break;
        case fourcc("UFID"):
            ownerOnlyDecode(field::UniqueFileId, 0);
            break;
        case fourcc("POPM"):
            ownerOnlyDecode(field::Rating, 0);
            break;
        case fourcc("PCNT"):
            playcountDecode();
            break;
        case fourcc("OWNE"):
            owneDecode();
            break;
        case fourcc("TCON"):
            genreDecode();
            break;
        case fourcc("WCOM"):
            urlListDecode(field::CommercialInfoURL);
            break;
        case fourcc("WOAR"):
            urlListDecode(field::OfficialArtistURL);
            break;
        default:
            if ((type_ >> 24) == 'T' || (type_ >> 24) == 'W') simpleTextDecode();
            break;
    }
    return true;
}

// Text frames (T...) and WFED carry an encoding byte; the other URL frames
// (W...) are ISO-8859-1 from their first byte.
void ID3Frame::simpleTextDecode() {
    const bool isText = (type_ >> 24) == 'T';
    uint64_t start = 0;
    Encoding enc = Encoding::Latin1;
    if (isText || type_ == fourcc("WFED")) {
        readEncoding();
        enc = encoding_;
        start = 1;
    }
    auto it = std::find_if(kTextFields.begin(), kTextFields.end(),
                           [&](const TextField& f) { return f.frame == type_; });
    if (it == kTextFields.end()) {
        theTag_->setivalue(field::Unhandled, type_, std::nullopt, rawOffset_);
        return;
    }
    std::string value = restOfBody(start, enc);
    if (isText) {
        // Involved people and musician credits are nil-separated pairs.
        const bool pairs = type_ == fourcc("TIPL") || type_ == fourcc("TMCL");
        value = mergeStrings(value, !pairs);
    } else {
        value = cutAtNil(std::move(value));
    }
    theTag_->setivalue(it->index, type_, std::move(value), rawOffset_);
}

// COMM, USLT: encoding, language, description, text. USER: encoding,
// language, text (no description at all).
void ID3Frame::COMMDecode(int64_t index) {
    if (dataSize_ < 4) {
        logError(kInsufficientForFrame);
        return;
    }
    readEncoding();
    std::string lang = text::decodeLatin1(ByteSpan(dataBytes_ + 1, 3));
    std::optional<std::string> desc;
    uint64_t textStart = 4;
    if (type_ != fourcc("USER")) {
        uint64_t length = 0;
        desc = allocStringAtOffset(4, length);
        if (!desc) {
            logError(kMissingDescription);
            return;
        }
        desc = id3::cleanDesc(*desc);
        textStart += length;
    }
    if (textStart > dataSize_) {
        logError(kFrameOverflows);
        return;
    }
    std::string value = getRidOfNils(restOfBody(textStart, encoding_));
    theTag_->setimulvalue(index, type_, std::move(value), std::move(desc), std::move(lang), rawOffset_);
}

// TXXX and WXXX: encoding, description, value (both in the frame's encoding).
void ID3Frame::UserData(int64_t index) {
    readEncoding();
    uint64_t length = 0;
    std::optional<std::string> desc = allocStringAtOffset(1, length);
    if (!desc) {
        logError(kMissingUserDescription);
        return;
    }
    std::string value = restOfBody(1 + length, encoding_);
    value = type_ == fourcc("TXXX") ? mergeStrings(value, true) : getRidOfNils(value);
    theTag_->setimulvalue(index, type_, std::move(value), std::move(desc), std::nullopt, rawOffset_);
}

// APIC: encoding, MIME type (v2.2: a three-letter image format), picture
// type, description, image data.
void ID3Frame::pictureDecode() {
    if (dataSize_ <= 1) {
        logError(kArtworkFrameOverflows);
        return;
    }
    readEncoding();
    std::string mime;
    uint64_t pos = 1;
    if (version_ == 2) {
        if (dataSize_ >= 4 && std::memcmp(dataBytes_ + 1, "PNG", 3) == 0)
            mime = "image/png";
        else if (dataSize_ >= 4 && std::memcmp(dataBytes_ + 1, "JPG", 3) == 0)
            mime = "image/jpeg";
        else
            mime = "image/";
        pos = 4;
    } else {
        uint64_t length = 0;
        std::optional<std::string> m = allocSimpleTextStringAtOffset(1, length);
        if (!m) {
            logError(kNoMimeType);
            return;
        }
        if (*m == "-->") {
            logError(kExternalReference);
            return;
        }
        mime = std::move(*m);
        pos += length;
    }
    if (pos >= dataSize_) {
        logError(kArtworkOverflows);
        return;
    }
    const uint64_t pictureType = dataBytes_[pos++];
    if (pictureType >= 21) logError(kInvalidPictureCode);
    if (pos >= dataSize_) {
        logError(kArtworkOverflows);
        return;
    }
    uint64_t length = 0;
    std::optional<std::string> desc = allocStringAtOffset(pos, length);
    if (!desc) {
        logError(kArtworkNoDescription);
        return;
    }
    pos += length;
    if (pos >= dataSize_) {
        logError(kArtworkOverflows);
        return;
    }
    const uint8_t* image = dataBytes_ + pos;
    const uint64_t imageSize = dataSize_ - pos;
    static constexpr uint8_t kPNGSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (mime == "image/jpeg" || mime == "image/png") {
        // declared as one of the two expected types
    } else if (mime == "image/jpg") {
        logError(kMimeJpg);
    } else if (imageSize >= 3 && image[0] == 0xFF && image[1] == 0xD8) {
        logError(kMimeNotJpeg);
    } else if (imageSize >= 9 && std::memcmp(image, kPNGSignature, 8) == 0) {
        logError(kMimeNotPng);
        logError(kNotJpegOrPng);
    } else {
        logError(kNotJpegOrPng);
    }
    theTag_->setimulvalue(field::Artwork, type_, std::nullopt, fmt::format("{}-{}", pictureType, *desc),
                          std::nullopt, rawOffset_);
}

// PRIV: owner identifier, then private data of the owner's own format.
void ID3Frame::privDecode() {
    uint64_t length = 0;
    std::optional<std::string> owner = allocSimpleTextStringAtOffset(0, length);
    if (!owner) {
        logError(kMissingDescription);
        return;
    }
    // The private data after the owner is not examined: it always lies inside
    // the body here, so copying it out cannot fail.
    theTag_->setimulvalue(field::Private, type_, std::nullopt, std::move(owner), std::nullopt, rawOffset_);
}

// UFID (owner), POPM (e-mail), RVA2 (identification), EQU2 (identification
// after the interpolation byte): an ISO-8859-1 name that becomes the entry's
// description; the binary rest is not examined.
void ID3Frame::ownerOnlyDecode(int64_t index, uint64_t pos) {
    uint64_t length = 0;
    std::optional<std::string> owner = allocSimpleTextStringAtOffset(pos, length);
    if (!owner) {
        logError(kMissingDescription);
        return;
    }
    theTag_->setimulvalue(index, type_, std::nullopt, std::move(owner), std::nullopt, rawOffset_);
}

// GEOB: encoding, MIME type (ISO-8859-1), filename, description, object.
void ID3Frame::geobDecode() {
    readEncoding();
    uint64_t length = 0;
    if (!allocSimpleTextStringAtOffset(1, length)) {
        logError(kMissingMimeType);
        return;
    }
    uint64_t pos = 1 + length;
    if (!allocStringAtOffset(pos, length)) {
        logError(kMissingFilename);
        return;
    }
    pos += length;
    std::optional<std::string> desc = allocStringAtOffset(pos, length);
    if (!desc) {
        logError(kMissingDescription);
        return;
    }
    theTag_->setimulvalue(field::GeneralObject, type_, std::nullopt, std::move(desc), std::nullopt,
                          rawOffset_);
}

// Only the presence of a play counter is recorded, not its value.
void ID3Frame::playcountDecode() {
    theTag_->setivalue(field::PlayCount, type_, std::string("1"), rawOffset_);
}

// WCOM, WOAR: a URL in ISO-8859-1, one list entry per frame.
void ID3Frame::urlListDecode(int64_t index) {
    std::string url = cutAtNil(restOfBody(0, Encoding::Latin1));
    theTag_->setimulvalue(index, type_, std::move(url), std::nullopt, std::nullopt, rawOffset_);
}

void ID3Frame::genreDecode() {
    readEncoding();
    std::string merged = mergeStrings(restOfBody(1, encoding_), true);
    theTag_->setivalue(field::Genre, type_, id3::genreValue(merged), rawOffset_);
}

// OWNE: encoding, price (ISO-8859-1, terminated), 8-character purchase date
// YYYYMMDD, seller (the rest, in the frame's encoding).
void ID3Frame::owneDecode() {
    readEncoding();
    uint64_t length = 0;
    std::optional<std::string> price = allocSimpleTextStringAtOffset(1, length);
    if (!price) {
        logError(kMissingPrice);
        return;
    }
    uint64_t pos = 1 + length;
    if (pos > dataSize_ || dataSize_ - pos < 8) {
        logError(kFrameOverflows);
        return;
    }
    const std::string date = text::decodeLatin1(ByteSpan(dataBytes_ + pos, 8));
    pos += 8;
    // An empty rest is an empty seller; bytes that do not convert have drawn
    // the converter's own message.
    std::string seller;
    if (pos < dataSize_) {
        const size_t before = theTag_->errorCount();
        seller = restOfBody(pos, encoding_);
        if (theTag_->errorCount() != before) logError(kInvalidSeller);
    }
    if (!price->empty()) theTag_->setivalue(field::PricePaid, type_, std::move(*price), rawOffset_);
    // Only the year of the date is checked: 20211301 is a valid date.
    if (id3::allocReformatedPurchaseDate(date)) {
        theTag_->setivalue(field::PurchaseDate, type_, std::string("1"), rawOffset_);
    } else {
        logError(date == "        " ? kEmptyPurchaseDate : kInvalidPurchaseDate);
    }
    if (!seller.empty()) theTag_->setivalue(field::Seller, type_, std::move(seller), rawOffset_);
}

}  // namespace sondrel
