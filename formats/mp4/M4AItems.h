#pragma once
// The items of an MPEG-4 item list ("ilst"): each child atom names one item
// and holds its value in a "data" child (a 32-bit type indicator, the
// "qualifier", a 32-bit locale, then the value). Items are recognised by a
// fixed table, their framing is checked, and text values are stored in the
// record under field-table indexes for later validation.
#include <cstdint>
#include <optional>
#include <string_view>

#include "core/Bytes.h"
#include "formats/mp4/Atom.h"

namespace sondrel {

class M4AItems {
  public:
    // Decoder kinds, numbered as in the item table.
    enum Kind : int {
        kUnknown = 0,
        kText = 1,
        kFlag = 2,
        kPair = 3,
        kNumericGenre = 4,
        kNumber = 5,
        kArtwork = 6,
        kIgnored = 7,
        kReverseDNS = 8,
        kAdvisoryRating = 9,
        kFlag2 = 10,
        kCountryCode = 11,
        kText2 = 12,
        kMediaKind = 13,
        kNumber32 = 14,
    };

    explicit M4AItems(Atom& ilst) : ilst_(ilst) {}

    // Walks the item list and decodes every item it knows.
    void getKnownTags();
    // The decoder kind for an item type (0 when unknown); keeps the row's
    // field in the item list atom's `access`.
    int getHandlerForAtom(uint32_t type);

    // The content of a "data" atom, or nullopt (logged) when `data` is not a
    // "data" atom, is shorter than `minimum` content bytes, or cannot be read.
    static std::optional<Bytes> getDataContents(Atom& data, uint64_t minimum);
    // The account name a store purchase leaves in the sample entry.
    static void getIdentification(Atom& name);

  private:
    void getText(Atom& item, uint64_t field);
    void extractBool(Atom& item);
    void getPair(Atom& item);
    void getNumericGenre(Atom& item) { getValProto(item); }
    void getNumber(Atom& item) { getValProto(item); }
    void getNumber32(Atom& item, uint64_t /*field*/) { getValProto32(item); }
    void getValProto32(Atom& item) { getValProto(item); }
    void getValProto(Atom& item);
    void getCC(Atom& item, uint64_t /*field*/) { getCC32(item); }
    void getCC32(Atom& item);
    void getAdvisoryRating(Atom& item) { getValProto(item); }
    void getArtwork(Atom& item);
    void getRDNS(Atom& item);
    void processStik(Atom& item);
    void processUnhandled(Atom& /*item*/) {}

    // The common start of the single-value decoders: the item's one "data"
    // child and its contents.
    std::optional<Bytes> singleValue(Atom& item, uint64_t minimum, std::string_view tooManyChildren,
                                     bool mulDataWaives);
    // A single value whose qualifier must be 0 or 21.
    void checkIntegerItem(Atom& item, uint64_t minimum, std::string_view tooManyChildren,
                          std::string_view badQualifier);

    Atom& ilst_;
};

}  // namespace sondrel
