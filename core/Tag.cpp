#include "core/Tag.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "codes/ProblemCodes.h"
#include "core/FieldTable.h"
#include "core/FieldValidator.h"
#include "core/FormatTable.h"
#include "core/ImageValidator.h"
#include "core/LogWriter.h"
#include "core/Settings.h"
#include "core/Text.h"

namespace sondrel {

namespace {
constexpr const char* kUnsupported =
    "File must be aif, aifc, aiff, ape, dff, dsf, flac, mp3, m4a, m4b, m4v, mp4, oga, ogg, opus, wav or wv";
constexpr const char* kNoFileInfo = "Cannot query file info";
constexpr const char* kOwnerEmbedded = "Owner information is embedded";
constexpr const char* kIdentificationEmbedded = "Identification information is embedded";
constexpr const char* kInternalError = "The check of this file stopped on an internal error";
constexpr const char* kOutOfMemory = "The check of this file ran out of memory and stopped";

// A file's problem list is capped. Real files draw at most a few hundred
// lines, but a crafted file can draw one per few bytes, and every line is held
// until the file is written. Past the cap problems are only counted and one
// closing line says how many were dropped. Spilling the lines to a temporary
// file would keep them all, but would turn a hostile file into a log of tens
// of millions of lines that nobody reads; a cap keeps the log useful too.
constexpr size_t kMaxProblems = 100000;
// List fields (user texts, comments) keep at most this many entries each,
// and the texts stored for all items of a file at most this many bytes;
// real tags stay far below both.
constexpr size_t kMaxListEntries = 10000;
constexpr uint64_t kMaxStoredBytes = 16 * 1024 * 1024;

uint64_t textSize(const std::optional<std::string>& s) {
    return s ? s->size() : 0;
}

std::atomic<AudioVerifier> gAudioVerifier{nullptr};

const FieldRow* rowFor(int64_t index) {
    if (index < 0 || index > kTerminatorRow) return nullptr;
    return &kFieldTable[size_t(index)];
}
}  // namespace

void setAudioVerifier(AudioVerifier verifier) {
    gAudioVerifier.store(verifier);
}

Tag::Tag(std::string path, const Settings& settings) : path_(std::move(path)), settings_(settings) {
    getTheTag();
}

Tag::Tag(std::string path, const Settings& settings, Bytes contents)
    : path_(std::move(path)), settings_(settings), memoryContents_(std::move(contents)) {
    getTheTag();
}

Tag::Tag(std::string path, const Settings& settings, NoAnalysis)
    : path_(std::move(path)), settings_(settings) {}

Tag::~Tag() = default;

void Tag::getTheTag() {
    const FormatEntry* entry = formatForPath(path_);
    if (!entry) {
        logError(kContainer, 0, kUnsupported);
        return;
    }
    // Checkers report problems as data and do not throw; only resource
    // exhaustion can land here. The file's list says so and the scan goes on.
    try {
        if (CheckerFactory make = checkerFor(entry->format))
            lowLevelRep_ = make(path_, *this);
        else
            logError(kFile, 0, kInternalError);
    } catch (const std::bad_alloc&) {
        logError(kFile, 0, kOutOfMemory);
    } catch (const std::exception&) {
        logError(kFile, 0, kInternalError);
    }
    tagType_ = entry->tagType;
    verifyAudio(entry->format);
    recordDateAndPrivacy();
    if (droppedProblems_ > 0) {
        std::string closing =
            fmt::format("Problem list stopped after {} lines: {} more problems in this file were not logged",
                        kMaxProblems, droppedProblems_);
        const uint16_t code = codes::classify(closing);
        errors_->push_back(LogError{kFile, firstDroppedAt_, std::move(closing), code});
    }
}

void Tag::verifyAudio(Format format) {
    AudioVerifier verifier = gAudioVerifier.load();
    if (!verifier) return;
    const std::string tier = settings_.stringFromKey("Verify");
    if (tier.empty() || tier == "off") return;
    try {
        verifier(*this, format);
    } catch (const std::exception&) {
        logError(kFile, 0, kInternalError);
    }
}

void Tag::recordDateAndPrivacy() {
    if (!memoryContents_) {
        if (auto date = modificationDate(path_))
            modDate_ = *date;
        else
            logError(kFile, 0, kNoFileInfo);
    }
    if (settings_.boolFromKey("LogPriv")) {
        if (ivalueExists(field::Owner)) logError(kPrivacy, 0, kOwnerEmbedded);
        if (ivalueExists(field::Identification)) logError(kPrivacy, 0, kIdentificationEmbedded);
    }
}

void Tag::logError(uint32_t type, uint64_t offset, std::string reason) {
    if (!errors_) {
        errors_.emplace();
        errors_->reserve(5);
    }
    if (errors_->size() >= kMaxProblems) {
        if (droppedProblems_++ == 0) firstDroppedAt_ = offset;
        return;
    }
    const uint16_t code = codes::classify(reason);
    errors_->push_back(LogError{type, offset, std::move(reason), code});
}

void Tag::logError(const TagItem& item, std::string_view text) {
    const FieldRow* row = rowFor(item.tagIndex);
    std::string name = row ? row->displayName : "";
    std::string code = allocStringFromTag(item.fourCC);
    if (item.desc)
        logError(kTagProblem, item.offset, fmt::format("'{}' ({}) [{}] {}", code, name, *item.desc, text));
    else
        logError(kTagProblem, item.offset, fmt::format("'{}' ({}) {}", code, name, text));
}

std::unique_ptr<FileHandle> Tag::setupFile(uint64_t& fileSize) {
    std::unique_ptr<FileHandle> h;
    if (memoryContents_) {
        h = FileHandle::fromMemory(*memoryContents_);
    } else {
        std::string error;
        errno = 0;
        h = FileHandle::openForReading(path_, error);
        if (!h) {
            openError_ = errno;
            logError(kFile, 0, error.empty() ? "Unknown error opening file" : error);
            return nullptr;
        }
    }
    fileSize_ = h->seekToEnd();
    fileSize = fileSize_;
    h->seekToOffset(0);
    return h;
}

std::string Tag::allocIDString(uint32_t code) {
    return text::fourCCString(code);
}

bool Tag::withinStoreBudget(uint64_t size, uint64_t offset) {
    if (size <= kMaxStoredBytes - storedBytes_) {
        storedBytes_ += size;
        return true;
    }
    if (!storeBudgetSpent_) {
        storeBudgetSpent_ = true;
        logError(kContainer, offset,
                 fmt::format("Metadata items of this file exceed {} bytes; later items were not checked",
                             kMaxStoredBytes));
    }
    return false;
}

void Tag::setivalue(int64_t index, uint32_t header, std::optional<std::string> value, uint64_t offset) {
    const FieldRow* row = rowFor(index);
    if (!row || !row->key) return;
    auto it = values_.find(row->key);
    if (it == values_.end()) {
        if (withinStoreBudget(sizeof(TagItem) + textSize(value), offset))
            values_.emplace(row->key, TagItem(index, header, std::move(value), offset));
    } else {
        it->second.bumpCount();
    }
}

void Tag::setimulvalue(int64_t index, uint32_t header, std::optional<std::string> value,
                       std::optional<std::string> desc, std::optional<std::string> lang, uint64_t offset) {
    const FieldRow* row = rowFor(index);
    if (!row || !row->key) return;
    auto it = values_.find(row->key);
    if (it == values_.end()) it = values_.emplace(row->key, TagItem(index, header, std::nullopt, 0)).first;
    TagItem& list = it->second;
    if (list.items && list.items->size() >= kMaxListEntries) {
        if (list.droppedChildren++ == 0)
            logError(kContainer, offset,
                     fmt::format("'{}' ({}) has more than {} entries; later ones were not checked",
                                 allocStringFromTag(header), row->displayName, kMaxListEntries));
        return;
    }
    if (!withinStoreBudget(sizeof(TagItem) + textSize(value) + textSize(desc) + textSize(lang), offset))
        return;
    list.addChild(TagItem(index, header, std::move(value), std::move(desc), std::move(lang), offset));
}

const TagItem* Tag::item(int64_t index) const {
    const FieldRow* row = rowFor(index);
    if (!row || !row->key) return nullptr;
    auto it = values_.find(row->key);
    return it == values_.end() ? nullptr : &it->second;
}

TagItem* Tag::item(int64_t index) {
    return const_cast<TagItem*>(std::as_const(*this).item(index));
}

bool Tag::ivalueExists(int64_t index) const {
    const TagItem* i = item(index);
    return i && i->value && !i->value->empty();
}

void Tag::validateFields(bool fromMPEG4) {
    FieldValidator(*this).validateFields(fromMPEG4);
}

std::optional<std::string> Tag::validateImage(const uint8_t* bytes, size_t length,
                                              std::string_view mimeType) {
    return ImageValidator::validateImage(bytes, length, mimeType, imageBudget_);
}

}  // namespace sondrel
