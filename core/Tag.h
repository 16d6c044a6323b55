#pragma once
// The per-file record. Creating it runs the whole analysis of one file: the
// checker for the file's extension is chosen from the format table and run to
// completion; it reports every problem and stores every metadata item here.
// Afterwards the record adds the modification date and, when asked, privacy
// findings. The problem list is the program's product: one log line each.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Bytes.h"
#include "core/FileHandle.h"
#include "core/ImageValidator.h"
#include "core/LogError.h"
#include "core/TagItem.h"

namespace sondrel {

class Settings;

// Base of every format checker; the record keeps the checker that analysed it.
class Checker {
  public:
    virtual ~Checker() = default;
};

class Tag;
enum class Format;

// Verification of the audio itself (checksums, counts, decoding) lives outside
// the core; a front end installs it at start. The record calls it after the
// checker whenever the "Verify" option is not "off", with the file's format.
using AudioVerifier = void (*)(Tag& tag, Format format);
void setAudioVerifier(AudioVerifier verifier);

class Tag {
  public:
    // Analyses the file at `path` (the whole analysis runs inside).
    Tag(std::string path, const Settings& settings);
    // Analyses `contents` as if it were the file at `path` (no file system
    // access: the modification date stays empty and no date problem is logged).
    Tag(std::string path, const Settings& settings, Bytes contents);
    // A record that runs no checker: for checkers and validators under test.
    struct NoAnalysis {};
    Tag(std::string path, const Settings& settings, NoAnalysis);
    ~Tag();
    Tag(const Tag&) = delete;
    Tag& operator=(const Tag&) = delete;

    // --- read by the scan and the log writer
    uint32_t tagType() const { return tagType_; }
    const std::string& path() const { return path_; }
    const std::string& modDate() const { return modDate_; }
    // Absent (nullopt) until the first problem is reported.
    const std::optional<std::vector<LogError>>& errors() const { return errors_; }
    size_t errorCount() const { return errors_ ? errors_->size() : 0; }
    // Hands the problem list over (the scan keeps it until the file is logged).
    std::optional<std::vector<LogError>> takeErrors() { return std::move(errors_); }
    uint64_t fileSize() const { return fileSize_; }
    // errno of an open that failed (0 when the file was opened, or refused as
    // not a regular file): the file could not be checked at all.
    int openError() const { return openError_; }
    const Settings& settings() const { return settings_; }
    Checker* lowLevelRep() const { return lowLevelRep_.get(); }

    // --- the checker interface
    void logError(uint32_t type, uint64_t offset, std::string reason);
    // An item-level problem (code 3) at the item's offset:
    // "'%@' (%@) [%@] %@" with a description (even empty), else "'%@' (%@) %@".
    void logError(const TagItem& item, std::string_view text);
    // Opens the file for reading and learns its length (also stored in
    // fileSize()). On failure logs a code-0 problem at offset 0 and returns null.
    std::unique_ptr<FileHandle> setupFile(uint64_t& fileSize);
    std::string allocStringFromTag(uint32_t code) const { return allocIDString(code); }
    static std::string allocIDString(uint32_t code);

    // --- metadata items (index = field table row)
    // First occurrence keeps its text and offset; later ones only count.
    void setivalue(int64_t index, uint32_t header, std::optional<std::string> value, uint64_t offset);
    // List fields: a container item (no text, offset 0) gets one entry per call.
    void setimulvalue(int64_t index, uint32_t header, std::optional<std::string> value,
                      std::optional<std::string> desc, std::optional<std::string> lang, uint64_t offset);
    // True when the field is stored with a present, non-empty text.
    bool ivalueExists(int64_t index) const;
    const TagItem* item(int64_t index) const;
    TagItem* item(int64_t index);
    const std::map<std::string, TagItem>& values() const { return values_; }

    // --- validation of the stored items and of artwork
    void validateFields(bool fromMPEG4);
    // A message for undecodable or mislabelled artwork, or nullopt. The
    // file's pictures share one decoding budget.
    std::optional<std::string> validateImage(const uint8_t* bytes, size_t length, std::string_view mimeType);

  private:
    void getTheTag();
    void verifyAudio(Format format);
    void recordDateAndPrivacy();
    // Counts `size` bytes of stored items; false (with one line for the file)
    // once they would pass the file's budget.
    bool withinStoreBudget(uint64_t size, uint64_t offset);

    uint32_t tagType_ = 0;
    std::string path_;
    std::unique_ptr<Checker> lowLevelRep_;
    std::string modDate_;
    std::optional<std::vector<LogError>> errors_;
    std::map<std::string, TagItem> values_;
    uint64_t fileSize_ = 0;
    int openError_ = 0;
    const Settings& settings_;
    std::optional<Bytes> memoryContents_;
    ImageBudget imageBudget_;
    uint64_t droppedProblems_ = 0, firstDroppedAt_ = 0, storedBytes_ = 0;
    bool storeBudgetSpent_ = false;
};

}  // namespace sondrel
