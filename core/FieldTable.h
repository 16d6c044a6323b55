#pragma once
// The fixed vocabulary of metadata fields shared by every format: 221 rows
// addressed by index, and a terminator row. Only the display name and the
// key are consulted; format mask and attribute bits are carried as data.
#include <array>
#include <cstdint>

namespace sondrel {

struct FieldRow {
    const char* displayName;
    uint32_t formatMask;
    const char* key;  // nullptr for the terminator row
    uint32_t attributes;
    uint32_t reserved;
};

inline constexpr int64_t kFieldCount = 221;      // rows 0..220
inline constexpr int64_t kTerminatorRow = 221;   // no key; nothing is stored under it
inline constexpr int64_t kLastSingleField = 89;  // rows 0..89 hold one value
inline constexpr int64_t kFirstListField = 206;  // rows 206..220 hold entries

extern const std::array<FieldRow, 222> kFieldTable;

// Row indexes used by name in the code.
namespace field {
inline constexpr int64_t Title = 0, Artist = 1, AlbumArtist = 2, Album = 3, Track = 4, Disc = 5, Year = 6,
                         BPM = 7, Grouping = 8, Composer = 9, Genre = 10, Compilation = 11, Copyright = 17,
                         EncodedBy = 18, Encoder = 19, PurchaseDate = 20, Description = 21, Owner = 33,
                         Label = 34, EncodingTime = 39, OrigReleaseTime = 41, ReleaseTime = 42,
                         TaggingTime = 43, Language = 46, CopyrightInfoURL = 49, OfficialAudioFileURL = 50,
                         OfficialAudioSourceURL = 51, OfficialRadioURL = 52, PaymentURL = 53,
                         PublisherURL = 54, PlayCount = 55, PricePaid = 56, Seller = 57, MusicCDId = 58,
                         Identification = 64, PodcastURL = 81, Custom0 = 90, Variable0 = 190, Rating = 206,
                         Comments = 207, Lyrics = 208, TermsOfUse = 209, CommercialInfoURL = 210,
                         OfficialArtistURL = 211, UserDefinedText = 212, UserDefinedURL = 213, Private = 214,
                         GeneralObject = 215, UniqueFileId = 216, RelativeVolume = 217, Equalization = 218,
                         Unhandled = 219, Artwork = 220;
}  // namespace field

}  // namespace sondrel
