#pragma once
// Verification of the audio itself, beyond the containers and tags that the
// format checkers read. Two tiers:
//   quick  the integrity data a format carries (frame CRCs, block checksums,
//          sample counts), checked at the speed of reading, without decoding;
//   full   quick, then every frame decoded with the format's own library.
// Findings are "Audio" problems in the file's record, each at the byte offset
// of the damaged frame, page or block and, where known, with the time in the
// audio. A ruined file cannot flood the log: only the first findings are
// listed, then one line counts the rest.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sondrel {

class Tag;
enum class Format;

namespace verify {

enum class Tier { Off, Quick, Full };

// "off", "quick" or "full" (the "Verify" option); nullopt for anything else.
std::optional<Tier> parseTier(std::string_view text);

// Installs the verifier into the record; front ends call it once at start.
void install();

// Runs the verification the record's "Verify" option asks for.
void verifyFile(Tag& tag, Format format);

// The decoder libraries the verification uses and their versions, one
// "name version" per line: a change of decoder can change a verdict, so a
// cache of results keys on it. Asking loads the decoders module; when it
// cannot be loaded the answer says so.
std::string libraryVersions();
// The same, from inside the module.
std::string decoderLibraryVersions();

// "hh:mm:ss.mmm" for a position of `samples` at `rate` samples per second
// (rounded down to the millisecond).
std::string formatTime(uint64_t samples, uint32_t rate);

// Collects one file's findings into its record, bounded.
class Findings {
  public:
    static constexpr size_t kListed = 10;

    explicit Findings(Tag& tag) : tag_(tag) {}
    ~Findings() { finish(); }
    Findings(const Findings&) = delete;
    Findings& operator=(const Findings&) = delete;

    void add(uint64_t offset, std::string message);
    // Findings so far, listed or not.
    uint64_t count() const { return count_; }
    // Writes the line that counts the findings not listed (once).
    void finish();

  private:
    Tag& tag_;
    uint64_t count_ = 0;
    uint64_t firstUnlisted_ = 0;
    bool finished_ = false;
};

}  // namespace verify
}  // namespace sondrel
