#include "formats/mp4/M4AItems.h"

#include <algorithm>
#include <cctype>
#include <string>

#include "core/FieldTable.h"
#include "core/LogError.h"
#include "core/Settings.h"
#include "core/Tag.h"
#include "core/Text.h"

namespace sondrel {

namespace {

constexpr char kMissingData[] = "Missing 'data' atom";
constexpr char kInsufficientData[] = "Insufficient data in 'data' atom";
constexpr char kTooManyChildren[] = "'%@' atom has too many children";
constexpr char kInvalidNumberOfChildren[] = "'%@' atom has invalid number of children";
constexpr char kInvalidQualifier[] = "'%@' atom has invalid 'data' qualifier";
constexpr char kInvalidStikQualifier[] = "Invalid qualifier for 'stik' atom";
constexpr char kNotUTF8[] = "'%@' atom 'data' contents cannot be converted to UTF8";
constexpr char kCovrMissingData[] = "'%@' item missing 'data' atom";
constexpr char kCovrInsufficient[] = "Insufficient data in 'covr' atom item";
constexpr char kRDNSFormatErrors[] = "----%@%@ has format errors";
constexpr char kRDNSMultipleData[] = "----%@%@ has multiple data atoms";

constexpr char kStandardMean[] = "com.apple.iTunes";

struct KnownItem {
    uint32_t type;
    int kind;
    uint64_t field;
};

// The item types this checker knows, with how each is decoded and which
// field it fills. "\251" is the byte 0xA9, shown as the copyright sign.
constexpr KnownItem kKnownItems[] = {
    {fourcc("aART"), M4AItems::kText, field::AlbumArtist},
    {fourcc("apID"), M4AItems::kText, field::Owner},
    {fourcc("cpil"), M4AItems::kFlag, field::Compilation},
    {fourcc("covr"), M4AItems::kArtwork, field::Artwork},
    {fourcc("cprt"), M4AItems::kText, field::Copyright},
    {fourcc("disk"), M4AItems::kPair, field::Disc},
    {fourcc("desc"), M4AItems::kText, field::Description},
    {fourcc("gnre"), M4AItems::kNumericGenre, field::Genre},
    {fourcc("pgap"), M4AItems::kFlag, 40},  // Playlist Delay
    {fourcc("purd"), M4AItems::kText, field::PurchaseDate},
    {fourcc("rtng"), M4AItems::kAdvisoryRating, field::Rating},
    {fourcc("soaa"), M4AItems::kText, 14},  // Sort Album Artist
    {fourcc("soal"), M4AItems::kText, 15},  // Sort Album
    {fourcc("soar"), M4AItems::kText, 13},  // Sort Artist
    {fourcc("soco"), M4AItems::kText, 16},  // Sort Composer
    {fourcc("sonm"), M4AItems::kText, 12},  // Sort Title
    {fourcc("tmpo"), M4AItems::kNumber, field::BPM},
    {fourcc("trkn"), M4AItems::kPair, field::Track},
    {fourcc("\251alb"), M4AItems::kText, field::Album},
    {fourcc("\251ART"), M4AItems::kText, field::Artist},
    {fourcc("\251cmt"), M4AItems::kText, field::Comments},
    {fourcc("\251gen"), M4AItems::kText, field::Genre},
    {fourcc("\251day"), M4AItems::kText, field::Year},
    {fourcc("\251grp"), M4AItems::kText, field::Grouping},
    {fourcc("\251lyr"), M4AItems::kText, field::Lyrics},
    {fourcc("\251nam"), M4AItems::kText, field::Title},
    {fourcc("\251too"), M4AItems::kText, field::EncodedBy},
    {fourcc("\251wrt"), M4AItems::kText, field::Composer},
    {fourcc("free"), M4AItems::kIgnored, kNoField},
    {fourcc("----"), M4AItems::kReverseDNS, kNoField},
    {fourcc("sfID"), M4AItems::kCountryCode, field::Seller},
    {fourcc("rate"), M4AItems::kText2, field::Rating},
    {fourcc("stik"), M4AItems::kMediaKind, kNoField},
    {fourcc("ownr"), M4AItems::kText2, field::Owner},
    {fourcc("xid "), M4AItems::kText2, kNoField},
    {fourcc("hdvd"), M4AItems::kFlag2, 71},     // Video Definition
    {fourcc("sdes"), M4AItems::kText2, 73},     // Show Description
    {fourcc("ldes"), M4AItems::kText2, 72},     // Video Description
    {fourcc("tvsh"), M4AItems::kText2, 75},     // Show Name
    {fourcc("tvnn"), M4AItems::kText2, 74},     // Network Name
    {fourcc("tves"), M4AItems::kNumber32, 76},  // Episode
    {fourcc("tvsn"), M4AItems::kNumber32, 77},  // Season
    {fourcc("sosn"), M4AItems::kText2, 78},     // Sort Show Name
    {fourcc("tven"), M4AItems::kText2, 79},     // Episode ID
    {fourcc("pcst"), M4AItems::kFlag2, 30},     // Media Type
    {fourcc("purl"), M4AItems::kText2, field::PodcastURL},
};
static_assert(std::size(kKnownItems) == 46);

struct ReverseDNSName {
    const char* name;
    uint64_t field;
};

// Names of "----" items (under the standard mean) and the fields they fill.
// Fields from 10000 up are artwork and media descriptors: recognised, never
// stored.
constexpr ReverseDNSName kReverseDNSNames[] = {
    {"CONDUCTOR", 23},
    {"ArtworkDesc", 10001},
    {"ArtworkDescriptor", 10000},
    {"MEDIA", 10003},
    {"MOOD", 32},
    {"LABEL", field::Label},
    {"FILETYPE", 31},
    {"ENCODING", field::Encoder},
    {"LENGTH", 47},
    {"ENCODINGTIME", field::EncodingTime},
    {"ORIGINAL ARTIST", 27},
    {"REMIXER", 24},
    {"LYRICIST", 25},
    {"ORIGINAL LYRICIST", 28},
    {"INVOLVEDPEOPLE", 44},
    {"MUSICIANCREDITS", 48},
    {"KEY", 45},
    {"LANGUAGE", field::Language},
    {"ORIGINAL YEAR", field::OrigReleaseTime},
    {"RELEASETIME", field::ReleaseTime},
    {"TAGGINGTIME", field::TaggingTime},
    {"ORIGINAL ALBUM", 26},
    {"ORIGINAL FILENAME", 29},
    {"SET SUBTITLE", 22},
    {"ISRC", 37},
    {"URL_OFFICIAL_ARTIST_SITE", field::OfficialArtistURL},
    {"COMMENT", field::Comments},
    {"COPYRIGHT URL", field::CopyrightInfoURL},
    {"OFFICIAL_AUDIO_FILE_URL", field::OfficialAudioFileURL},
    {"OFFICIAL_AUDIO_SOURCE_URL", field::OfficialAudioSourceURL},
    {"OFFICIAL_RADIO_URL", field::OfficialRadioURL},
    {"LABEL_URL", field::PublisherURL},
    {"PAYMENT_URL", field::PaymentURL},
    {"COMMERCIAL_INFO_URL", field::CommercialInfoURL},
    {"RADIO_STATION", 35},
    {"PRODUCED_NOTICE", 38},
    {"STATION_OWNER", 36},
    {"SKIPWHENSHUFFLING", 60},
    {"PLAYCOUNT", field::PlayCount},
    {"RATING", field::Rating},
    {"ITUNES_START_TIME", 61},
    {"ITUNES_STOP_TIME", 62},
    {"ITUNES_VOLUME_ADJUSTMENT", 63},
    {"PUBLISHER", 66},
    {"CATALOGNUMBER", 67},
    {"PRICEPAID", field::PricePaid},
    {"TERMSOFUSE", field::TermsOfUse},
    {"LYRIC", field::Lyrics},
    {"UFID", field::UniqueFileId},
    {"iTunEXTC", 80},  // Classification
    {nullptr, kNoField},
};
static_assert(std::size(kReverseDNSNames) == 51);

// Fields 0 to 89 hold one value each; list fields are not filled from items.
constexpr bool isSingleField(uint64_t field) {
    return field <= uint64_t(kLastSingleField);
}

// Item values are read whole. Real writers keep text items to kilobytes and
// pictures to a few megabytes; a larger value is refused with one line rather
// than held in memory (a text would be held twice, raw and decoded).
constexpr uint64_t kMaxValueBytes = 16 * 1024 * 1024;

bool valueWithinBudget(Atom& atom, uint64_t length) {
    if (length <= kMaxValueBytes) return true;
    const std::string owner =
        atom.tag().allocStringFromTag(atom.parent() ? atom.parent()->type() : atom.type());
    atom.tag().logError(kContainer, atom.offset(),
                        "'" + owner + "' atom '" + atom.tag().allocStringFromTag(atom.type()) + "' holds " +
                            std::to_string(length) + " bytes, more than the " +
                            std::to_string(kMaxValueBytes) + " read for one value; it was not checked");
    return false;
}

ByteSpan tail(const Bytes& b, size_t from) {
    return from < b.size() ? ByteSpan(b).subspan(from) : ByteSpan();
}

bool containsURLIgnoringCase(const std::string& s) {
    std::string lower(s);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return lower.find("url") != std::string::npos;
}

}  // namespace

int M4AItems::getHandlerForAtom(uint32_t type) {
    for (const auto& row : kKnownItems) {
        if (row.type != type) continue;
        ilst_.setAccess(row.field);
        return row.kind;
    }
    return kUnknown;
}

void M4AItems::getKnownTags() {
    ilst_.getChildren();
    if (!ilst_.children()) return;
    for (const auto& child : *ilst_.children()) {
        if (ilst_.fatalPosted()) break;
        Atom& item = *child;
        const int kind = getHandlerForAtom(item.type());
        const uint64_t field = ilst_.access();
        switch (kind) {
            case kText:
            case kText2:
                getText(item, field);
                break;
            case kFlag:
            case kFlag2:
                extractBool(item);
                break;
            case kPair:
                getPair(item);
                break;
            case kNumericGenre:
                getNumericGenre(item);
                break;
            case kNumber:
                getNumber(item);
                break;
            case kArtwork:
                getArtwork(item);
                break;
            case kIgnored:
                break;
            case kReverseDNS:
                getRDNS(item);
                break;
            case kAdvisoryRating:
                getAdvisoryRating(item);
                break;
            case kCountryCode:
                getCC(item, field);
                break;
            case kMediaKind:
                processStik(item);
                break;
            case kNumber32:
                getNumber32(item, field);
                break;
            default:
                processUnhandled(item);
                break;
        }
    }
}

std::optional<Bytes> M4AItems::getDataContents(Atom& data, uint64_t minimum) {
    Tag& tag = data.tag();
    if (data.type() != fourcc("data")) {
        tag.logError(kContainer, data.offset(), kMissingData);
        return std::nullopt;
    }
    if (data.size() < minimum + data.headerSize()) {
        tag.logError(kContainer, data.offset(), kInsufficientData);
        return std::nullopt;
    }
    if (!valueWithinBudget(data, data.size() - data.headerSize())) return std::nullopt;
    auto contents = data.extractData(data.size() - data.headerSize(), data.headerSize());
    if (!contents) data.logReadError(data.offset());
    return contents;
}

std::optional<Bytes> M4AItems::singleValue(Atom& item, uint64_t minimum, std::string_view tooManyChildren,
                                           bool mulDataWaives) {
    if (!item.getChildren() || !item.children()) return std::nullopt;
    const auto& children = *item.children();
    if (children.size() > 1 && !mulDataWaives) {
        item.logContainerError(tooManyChildren);
        return std::nullopt;
    }
    if (children.empty()) return std::nullopt;
    return getDataContents(*children.front(), minimum);
}

void M4AItems::checkIntegerItem(Atom& item, uint64_t minimum, std::string_view tooManyChildren,
                                std::string_view badQualifier) {
    auto contents = singleValue(item, minimum, tooManyChildren, false);
    if (!contents) return;
    const uint32_t qualifier = be32(contents->data());
    if (qualifier != 0 && qualifier != 21) item.logContainerError(badQualifier);
}

void M4AItems::getText(Atom& item, uint64_t field) {
    Tag& tag = item.tag();
    auto contents = singleValue(item, 8, kTooManyChildren, tag.settings().boolFromKey("MPEG4_MulData"));
    if (!contents) return;
    // Text is qualifier 1 (UTF-8); podcast URLs are also written as binary
    // and genres as qualifier 18.
    const uint32_t qualifier = be32(contents->data());
    const bool accepted = qualifier == 1 || (qualifier == 0 && field == uint64_t(field::PodcastURL)) ||
                          (qualifier == 18 && field == uint64_t(field::Genre));
    if (!accepted) {
        item.logContainerError(kInvalidQualifier);
        return;
    }
    auto text = text::decodeUTF8(tail(*contents, 8));
    if (!text) {
        item.logContainerError(kNotUTF8);
        return;
    }
    // Comments, lyrics and ratings are checked here but never stored.
    if (isSingleField(field)) tag.setivalue(int64_t(field), item.type(), std::move(*text), item.offset());
}

void M4AItems::extractBool(Atom& item) {
    checkIntegerItem(item, 9, kTooManyChildren, kInvalidQualifier);
}

void M4AItems::getPair(Atom& item) {
    auto contents = singleValue(item, 14, kTooManyChildren, false);
    if (!contents) return;
    if (be32(contents->data()) != 0) item.logContainerError(kInvalidQualifier);
}

void M4AItems::getValProto(Atom& item) {
    checkIntegerItem(item, 9, kInvalidNumberOfChildren, kInvalidQualifier);
}

void M4AItems::getCC32(Atom& item) {
    checkIntegerItem(item, 12, kTooManyChildren, kInvalidQualifier);
}

void M4AItems::processStik(Atom& item) {
    checkIntegerItem(item, 9, kTooManyChildren, kInvalidStikQualifier);
}

void M4AItems::getArtwork(Atom& item) {
    Tag& tag = item.tag();
    item.getChildren();
    if (!item.children()) return;
    for (const auto& child : *item.children()) {
        Atom& data = *child;
        if (data.type() != fourcc("data")) {
            item.logContainerError(kCovrMissingData);
            return;
        }
        if (data.size() < 16) {
            tag.logError(kContainer, item.offset(), kCovrInsufficient);
            continue;
        }
        // Header, qualifier and locale; the qualifier names the picture type.
        const uint64_t header = data.headerSize();
        if (!valueWithinBudget(data, data.size())) continue;
        auto head = data.extractData(header + 8, 0);
        // A 64-bit header leaves a 16- to 23-byte child without room for the
        // qualifier and locale: its picture length would be negative.
        std::optional<Bytes> picture;
        if (head && data.size() >= header + 8)
            picture = data.extractData(data.size() - 8 - header, header + 8);
        if (!picture) {
            data.logReadError(data.offset());
            return;
        }
        const uint32_t qualifier = be32(head->data() + header);
        const char* mime = qualifier == 13 ? "image/jpeg" : qualifier == 14 ? "image/png" : "image/";
        // Only whether the picture decodes is asked; the answer is not logged
        // for MPEG-4 artwork.
        (void)tag.validateImage(picture->data(), picture->size(), mime);
    }
}

void M4AItems::getRDNS(Atom& item) {
    Tag& tag = item.tag();
    if (!item.getChildren() || !item.children()) return;
    const auto& children = *item.children();

    enum : unsigned { kMean = 1, kName = 2, kData = 4 };
    unsigned found = 0;
    bool duplicate = false, foreignMean = false, badValue = false;
    std::optional<std::string> mean, name, value;
    for (const auto& child : children) {
        if (!valueWithinBudget(*child, child->size())) return;
        auto whole = child->extractData(child->size(), 0);
        if (!whole) {
            child->logReadError(child->offset());
            return;
        }
        const uint64_t header = child->headerSize();
        // Each part has 4 version and flag bytes before its text.
        if (child->size() < header + 4) continue;
        switch (child->type()) {
            case fourcc("mean"):
                if (found & kMean) {
                    duplicate = true;
                    break;
                }
                found |= kMean;
                mean = text::decodeUTF8(tail(*whole, header + 4));
                if (!mean || !text::equalsCaseInsensitive(*mean, kStandardMean)) foreignMean = true;
                break;
            case fourcc("name"):
                if (found & kName) {
                    duplicate = true;
                    break;
                }
                found |= kName;
                name = text::decodeUTF8(tail(*whole, header + 4));
                break;
            case fourcc("data"):
                found |= kData;
                // Values under another writer's mean are not read.
                if (foreignMean) break;
                // The value follows the 8-byte type indicator and locale.
                value =
                    child->size() >= header + 8 ? text::decodeUTF8(tail(*whole, header + 8)) : std::nullopt;
                if (!value) badValue = true;
                break;
            default:
                break;
        }
    }

    auto part = [](const std::optional<std::string>& s) { return s ? " (" + *s + ")" : std::string(); };
    if (duplicate || found != (kMean | kName | kData)) {
        tag.logError(kContainer, item.offset(),
                     fillPlaceholders(kRDNSFormatErrors, {part(name), part(mean)}));
        return;
    }
    if (children.size() >= 4 && !tag.settings().boolFromKey("MPEG4_MulData")) {
        tag.logError(kContainer, item.offset(),
                     fillPlaceholders(kRDNSMultipleData, {part(name), part(mean)}));
        return;
    }
    // An unreadable name is treated like a name holding "URL": dropped.
    if (foreignMean || badValue || !value || !name) return;

    const uint32_t header = fourcc("----");
    auto storeUserText = [&] {
        tag.setimulvalue(field::UserDefinedText, header, *value, *name, std::nullopt, item.offset());
    };
    for (const auto& row : kReverseDNSNames) {
        if (!row.name) break;
        if (*name != row.name) continue;
        if (row.field == uint64_t(field::UserDefinedText))
            storeUserText();
        else if (isSingleField(row.field))
            tag.setivalue(int64_t(row.field), header, *value, item.offset());
        // Everything else (list fields, descriptors) is dropped.
        return;
    }
    // Unknown names: links are dropped, other texts kept as user text.
    if (containsURLIgnoringCase(*name) || value->starts_with("http")) return;
    storeUserText();
}

void M4AItems::getIdentification(Atom& name) {
    if (!valueWithinBudget(name, name.contentSize())) return;
    auto contents = name.extractData(name.contentSize(), name.headerSize());
    if (!contents || contents->empty()) return;
    const auto zero = std::find(contents->begin(), contents->end(), uint8_t(0));
    const size_t length = size_t(zero - contents->begin());
    if (length == 0) return;
    name.tag().setivalue(field::Identification, fourcc("IDEN"),
                         text::decodeUTF8OrLatin1(ByteSpan(contents->data(), length)),
                         name.offset() + name.headerSize());
}

}  // namespace sondrel
