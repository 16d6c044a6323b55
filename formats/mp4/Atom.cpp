#include "formats/mp4/Atom.h"

#include <cinttypes>
#include <cstdio>
#include <string>

#include "core/LogError.h"
#include "core/Tag.h"

namespace sondrel {

namespace {

constexpr char kReadError[] = "Read error";
constexpr char kOverflowsContainer[] = "'%@' Atom overflows container";
// Filled in two steps: the numbers first (the doubled percent signs become
// single ones), then the container's and the child's types.
constexpr char kOverflows[] =
    "'%%@-%%@' atom overflows. size=%" PRIu64 ", next offset=%" PRIu64 ", container end=%" PRIu64;
constexpr char kTooSmall[] = "Atom too small";
constexpr char kTruncated[] = "'%@' overflows file size (truncated)";
constexpr char kRtngLength[] = "'rtng' atom has invalid length";
constexpr char kNoAtoms[] = "No atoms in file";
constexpr char kMissingFtyp[] = "Missing ftyp atom";
constexpr char kLooksLikeMP3[] =
    "The file starts with an ID3 marker. More than likely the file is an mp3 file.  Try changing the "
    "filename extension to .mp3";

// Atoms kept per file. Real files hold a few hundred, item lists included;
// the walk stops keeping atoms beyond this many, so that a file made of
// millions of tiny atoms cannot make the check hold them all.
constexpr uint64_t kMaxAtoms = 100000;

bool isPadding(uint32_t type) {
    return type == fourcc("free") || type == fourcc("skip") || type == fourcc("wide");
}

// Bytes before the first child that belong to the atom's own fields: the
// version and flags of "meta"; version, flags and entry count of "stsd"; the
// sound sample-entry fields of "mp4a" and "drms".
uint64_t childSkip(uint32_t type) {
    switch (type) {
        case fourcc("meta"):
            return 4;
        case fourcc("stsd"):
            return 8;
        case fourcc("mp4a"):
        case fourcc("drms"):
            return 28;
        default:
            return 0;
    }
}

}  // namespace

std::string fillPlaceholders(std::string_view format, std::initializer_list<std::string_view> args) {
    std::string out;
    auto next = args.begin();
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size() && format[i + 1] == '@') {
            if (next != args.end()) out += *next++;
            ++i;
        } else {
            out += format[i];
        }
    }
    return out;
}

Atom::Atom(Tag& tag, Atom* parent, uint32_t type, uint64_t offset, uint64_t size, bool is64, FileHandle& file)
    : tag_(&tag), parent_(parent), type_(type), offset_(offset), fileHandle_(&file), newOffset_(offset) {
    setSize(size);
    setIs64(is64);
}

void Atom::setIs64(bool is64) {
    is64_ = is64;
    contentOffset_ = headerSize_ = is64 ? 16 : 8;
    contentSize_ = size_ - headerSize_;
}

void Atom::logContainerError(std::string_view format) {
    tag_->logError(kContainer, offset_, fillPlaceholders(format, {tag_->allocStringFromTag(type_)}));
}

void Atom::logContainerError(std::string_view format, uint32_t other) {
    tag_->logError(
        kContainer, offset_,
        fillPlaceholders(format, {tag_->allocStringFromTag(type_), tag_->allocStringFromTag(other)}));
}

void Atom::logReadError(uint64_t at) {
    tag_->logError(kFile, at, kReadError);
    for (Atom* a = this; a; a = a->parent_) a->fatalPosted_ = true;
}

void Atom::logOverflow(uint32_t childType, uint64_t childSize, uint64_t nextOffset, uint64_t end) {
    char format[160];
    std::snprintf(format, sizeof format, kOverflows, childSize, nextOffset, end);
    logContainerError(format, childType);
}

std::optional<Bytes> Atom::extractData(uint64_t length, uint64_t ofs) {
    // Offsets wrap on purpose: the root starts 8 bytes before the file.
    const uint64_t pos = offset_ + ofs;
    if (!fits(tag_->fileSize(), pos, length)) return std::nullopt;
    return fileHandle_->readDataAtOffset(pos, length);
}

bool Atom::getChildren() {
    getChildrenSoftError_ = false;
    if (children_) return true;
    children_.emplace();
    children_->reserve(10);

    const bool isRoot = parent_ == nullptr;
    // For the root these sums wrap to the file's first byte and its length.
    const uint64_t end = offset_ + size_;
    uint64_t pos = offset_ + contentOffset_ + childSkip(type_);
    if (pos == end) return true;

    auto softError = [this] {
        getChildrenSoftError_ = true;
        return false;
    };
    for (;;) {
        if (pos > end || end - pos < 8) {
            // Item lists customarily end their "udta" with a 4-byte terminator.
            if (type_ == fourcc("udta") && pos <= end && end - pos == 4) return true;
            logContainerError(kOverflowsContainer);
            return softError();
        }
        uint8_t header[16];
        if (!fileHandle_->readInto(pos, header, 8)) {
            logReadError(pos);
            return false;
        }
        uint64_t size = be32(header);
        const uint32_t type = be32(header + 4);
        uint64_t headerLength = 8;
        bool is64 = false;
        if (size == 1) {
            if (end - pos < 16) {
                logOverflow(type, 1, pos + 1, end);
                return softError();
            }
            if (!fileHandle_->readInto(pos, header, 16)) {
                logReadError(pos);
                return false;
            }
            size = be64(header + 8);
            headerLength = 16;
            is64 = true;
        }
        // A last top-level atom of size 0 runs to the end of the file.
        if (size == 0 && isRoot) size = end - pos;
        if (size < headerLength) {
            tag_->logError(kContainer, pos, kTooSmall);
            return softError();
        }
        bool truncated = false;
        if (size > end - pos) {
            if (!isRoot) {
                logOverflow(type, size, pos + size, end);
                return softError();
            }
            size = end - pos;
            truncated = true;
        }
        // A known writer stores a 25-byte rating item as 26 bytes around a
        // 17-byte "data" atom; it is read as the 25 bytes it really has.
        if (type == fourcc("rtng") && size == 26) {
            uint8_t inner[4];
            if (fileHandle_->readInto(pos + 8, inner, 4) && be32(inner) == 17) {
                tag_->logError(kContainer, pos, kRtngLength);
                size = 25;
            }
        }
        // Top-level padding is never looked up: only a first atom is kept, so
        // millions of padding atoms cost no memory.
        if (isRoot && !children_->empty() && isPadding(type)) {
            if (truncated)
                tag_->logError(kContainer, pos,
                               fillPlaceholders(kTruncated, {tag_->allocStringFromTag(type)}));
        } else {
            if (!withinAtomBudget(pos)) return true;
            children_->push_back(std::make_unique<Atom>(*tag_, this, type, pos, size, is64, *fileHandle_));
            if (truncated) children_->back()->logContainerError(kTruncated);
        }
        pos += size;
        if (pos == end) return true;
    }
}

// The count lives on the root. Past the budget one line says so; the
// containers then end their walks early, as if they held no more atoms.
bool Atom::withinAtomBudget(uint64_t at) {
    Atom* root = this;
    while (root->parent_) root = root->parent_;
    if (root->atomsKept_ < kMaxAtoms) {
        ++root->atomsKept_;
        return true;
    }
    if (!root->atomBudgetSpent_) {
        root->atomBudgetSpent_ = true;
        tag_->logError(kContainer, at,
                       "Atom walk stopped after " + std::to_string(kMaxAtoms) +
                           " atoms: more than any real file holds; later atoms were not checked");
    }
    return false;
}

Atom* Atom::findChild(uint32_t type) {
    if (!getChildren()) return nullptr;
    for (auto& child : *children_)
        if (child->type_ == type) return child.get();
    return nullptr;
}

Atom* Atom::findChild(uint32_t type, size_t& count) {
    count = 0;
    if (!getChildren()) return nullptr;
    Atom* first = nullptr;
    for (auto& child : *children_) {
        if (child->type_ != type) continue;
        if (!first) first = child.get();
        ++count;
    }
    return first;
}

bool Atom::verifyRoot() {
    if (!children_ || children_->empty()) {
        tag_->logError(kFatal, 0, kNoAtoms);
        lookForID3(kNoAtoms);
        return false;
    }
    if (children_->front()->type_ != fourcc("ftyp")) {
        lookForID3(kMissingFtyp);
        return false;
    }
    return true;
}

void Atom::lookForID3(std::string_view message) {
    // The three bytes are deliberately not compared with "ID3": a file that
    // has any readable start but no MPEG-4 layout gets the advice.
    uint8_t start[3];
    if (fits(tag_->fileSize(), 0, 3) && fileHandle_->readInto(0, start, 3))
        tag_->logError(kRename, 0, kLooksLikeMP3);
    else
        tag_->logError(kRename, 0, std::string(message));
}

}  // namespace sondrel
