#pragma once
// One ID3v2 frame inside a tag buffer: its header (with v2.2 and obsolete
// v2.3 identifiers mapped to their v2.4 names), its flags, per-frame
// unsynchronisation, and the decoder for its type. Decoders report every
// malformation as "ID3 '<id>' frame: <reason>" (Framing, at the frame's file
// offset) and store what they find as metadata items in the record.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace sondrel {

class Tag;

class ID3Frame {
  public:
    // How the text fields of a frame are encoded (selected by its first body byte).
    enum class Encoding { Latin1, UTF16WithBOM, UTF16BE, UTF8 };

    // Sets up the frame whose header starts at `bytes` (header plus body:
    // `size` bytes, all inside the tag buffer, which the frame may rewrite in
    // place to undo unsynchronisation). `version` is the tag's major version.
    // Null when the frame is refused (a data-length indicator that is 0 or not
    // synchsafe, or bytes that cannot hold a frame header at all).
    static std::unique_ptr<ID3Frame> make(uint8_t* bytes, uint64_t size, uint64_t version, Tag& tag,
                                          uint64_t rawOffset);

    // Decodes the body by frame type; always true (a bad frame never stops the walk).
    bool decodeFrame();

    uint32_t type() const { return type_; }
    uint32_t itype() const { return itype_; }
    uint32_t initialType() const { return initialType_; }
    uint64_t rawOffset() const { return rawOffset_; }
    const uint8_t* bytes() const { return bytes_; }
    uint64_t size() const { return size_; }
    const uint8_t* dataBytes() const { return dataBytes_; }
    uint64_t dataSize() const { return dataSize_; }
    uint64_t flags() const { return flags_; }
    uint64_t version() const { return version_; }
    uint64_t frameGroup() const { return frameGroup_; }
    uint64_t dataIndSize() const { return dataIndSize_; }
    bool decoded() const { return decoded_; }
    bool ignored() const { return ignore_; }
    Encoding encoding() const { return encoding_; }

  private:
    ID3Frame(uint8_t* bytes, uint64_t size, uint64_t version, Tag& tag, uint64_t rawOffset);
    bool configureFrame();
    void logError(std::string_view reason);
    void synchronize();
    void readEncoding();

    // --- strings inside the body (positions relative to dataBytes)
    uint64_t getString8SizeAtOffset(uint64_t pos);
    uint64_t getString16SizeAtOffset(uint64_t pos);
    std::string allocStringFromDataWithOffset(uint64_t pos, uint64_t length, Encoding enc);
    std::optional<std::string> allocStringAtOffset(uint64_t pos, uint64_t& repCount);
    std::optional<std::string> allocSimpleTextStringAtOffset(uint64_t pos, uint64_t& repCount);
    std::optional<std::string> terminatedString(uint64_t pos, uint64_t& repCount, Encoding enc);
    std::string restOfBody(uint64_t pos, Encoding enc);
    std::string mergeStrings(const std::string& s, bool testForTrailingNil);
    std::string getRidOfNils(const std::string& s);

    // --- decoders
    void simpleTextDecode();
    void COMMDecode(int64_t index);
    void UserData(int64_t index);
    void pictureDecode();
    void privDecode();
    void ownerOnlyDecode(int64_t index, uint64_t pos);
    void geobDecode();
    void playcountDecode();
    void urlListDecode(int64_t index);
    void genreDecode();
    void owneDecode();

    Tag* theTag_;
    uint32_t type_ = 0;
    uint32_t itype_ = 0;
    uint32_t initialType_ = 0;
    uint64_t rawOffset_;
    bool wasUnsynchronized_ = false;
    bool decoded_ = false;
    bool configuring_ = true;  // messages name the identifier as read until set-up ends
    uint8_t* bytes_;
    uint64_t size_;
    uint8_t* dataBytes_ = nullptr;
    uint64_t dataSize_ = 0;
    uint64_t flags_ = 0;
    uint64_t version_;
    uint64_t frameGroup_ = 0;
    uint64_t dataIndSize_ = 0;
    Encoding encoding_ = Encoding::Latin1;
    bool ignore_ = false;
};

// Helpers of the frame decoders that need no frame.
namespace id3 {
// Trims space, tab, CR, LF and U+FEFF from both ends.
std::string cleanDesc(std::string_view s);
// True when `s` is all ASCII digits and, read as a number, lies in [low, high].
bool isAllNumeric(std::string_view s, int64_t low, int64_t high);
// "1" for a purchase date whose 8 characters begin with a year 1000-9999, else none.
std::optional<std::string> allocReformatedPurchaseDate(std::string_view date);
// The genre value stored for a TCON text: "Remix", "Cover", "#" for a numeric
// genre reference not above 147, otherwise the text itself.
std::string genreValue(const std::string& merged);
}  // namespace id3

}  // namespace sondrel
