#pragma once
// One atom (box) of an MPEG-4 file: a 32-bit big-endian size and a
// four-character type, optionally followed by a 64-bit size, then content.
// Children are read once, on demand, from the atom's content; only their
// headers are read while walking. The checker makes a synthetic "root" atom
// whose content is exactly the whole file.
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Bytes.h"
#include "core/FileHandle.h"

namespace sondrel {

class Tag;

// "No field": an item that is recognised but never stored.
inline constexpr uint64_t kNoField = ~uint64_t(0);

class Atom {
  public:
    Atom(Tag& tag, Atom* parent, uint32_t type, uint64_t offset, uint64_t size, bool is64, FileHandle& file);
    Atom(const Atom&) = delete;
    Atom& operator=(const Atom&) = delete;

    // Builds the children once; true when the walk ended cleanly. A second
    // call returns true whatever the first walk found.
    bool getChildren();
    Atom* findChild(uint32_t type);
    Atom* findChild(uint32_t type, size_t& count);
    // On the root, after its walk: the first atom must be "ftyp".
    bool verifyRoot();
    // The advice that a file with an MPEG-4 extension is most likely MP3.
    void lookForID3(std::string_view message);

    // Type 1 at this atom's offset; each "%@" of the format is filled in turn
    // with this atom's type and then `other`.
    void logContainerError(std::string_view format);
    void logContainerError(std::string_view format, uint32_t other);
    // A read failure: "Read error" (type 0) at `at`, and this atom and all its
    // ancestors learn that a read failed below them.
    void logReadError(uint64_t at);

    // `length` bytes at `offset` + `ofs`; nullopt unless all could be read.
    std::optional<Bytes> extractData(uint64_t length, uint64_t ofs);

    Tag& tag() const { return *tag_; }
    Atom* parent() const { return parent_; }
    uint32_t type() const { return type_; }
    uint64_t offset() const { return offset_; }
    uint64_t size() const { return size_; }
    uint64_t contentOffset() const { return contentOffset_; }
    uint64_t headerSize() const { return headerSize_; }
    uint64_t contentSize() const { return contentSize_; }
    bool is64() const { return is64_; }
    FileHandle& fileHandle() const { return *fileHandle_; }
    // Null until the first getChildren().
    const std::vector<std::unique_ptr<Atom>>* children() const { return children_ ? &*children_ : nullptr; }
    uint64_t access() const { return access_; }
    void setAccess(uint64_t field) { access_ = field; }
    int64_t sizeAdjustment() const { return sizeAdjustment_; }
    uint64_t newSize() const { return newSize_; }
    uint64_t newFreeSpace() const { return newFreeSpace_; }
    uint64_t newOffset() const { return newOffset_; }
    uint32_t hdlrType() const { return hdlrType_; }
    void setHdlrType(uint32_t t) { hdlrType_ = t; }
    bool fatalPosted() const { return fatalPosted_; }
    bool getChildrenSoftError() const { return getChildrenSoftError_; }

  private:
    // The size must be known before the header form is chosen.
    void setSize(uint64_t size) { size_ = size; }
    void setIs64(bool is64);
    // False (with one line for the file) once the file's atom budget is spent.
    bool withinAtomBudget(uint64_t at);
    void logOverflow(uint32_t childType, uint64_t childSize, uint64_t nextOffset, uint64_t end);

    Tag* tag_;
    Atom* parent_;
    uint32_t type_;
    uint64_t offset_;
    uint64_t size_ = 0;
    uint64_t contentOffset_ = 8;
    uint64_t headerSize_ = 8;
    uint64_t contentSize_ = 0;
    bool is64_ = false;
    std::optional<std::vector<std::unique_ptr<Atom>>> children_;
    FileHandle* fileHandle_;
    uint64_t access_ = kNoField;
    // Bookkeeping for a rewritten layout; only the offset is ever set.
    int64_t sizeAdjustment_ = 0;
    uint64_t newSize_ = 0;
    uint64_t newFreeSpace_ = 0;
    uint64_t newOffset_;
    uint32_t hdlrType_ = 0;
    bool fatalPosted_ = false;
    bool getChildrenSoftError_ = false;
    // On the root: atoms kept so far in the whole tree.
    uint64_t atomsKept_ = 0;
    bool atomBudgetSpent_ = false;
};

// Fills each "%@" of `format` in turn with the next argument; the arguments
// themselves are never scanned for placeholders.
std::string fillPlaceholders(std::string_view format, std::initializer_list<std::string_view> args);

}  // namespace sondrel
