#include "core/Shard.h"

#include <charconv>

namespace sondrel {

std::optional<ShardPart> parseShard(const std::string& text) {
    const size_t slash = text.find('/');
    if (slash == std::string::npos) return std::nullopt;
    auto number = [](const char* first, const char* last) -> std::optional<unsigned> {
        unsigned v = 0;
        auto [end, ec] = std::from_chars(first, last, v);
        if (first == last || ec != std::errc() || end != last) return std::nullopt;
        return v;
    };
    auto k = number(text.data(), text.data() + slash);
    auto n = number(text.data() + slash + 1, text.data() + text.size());
    if (!k || !n || *n == 0 || *n > kMaxShards || *k >= *n) return std::nullopt;
    return ShardPart{*k, *n};
}

std::pair<size_t, size_t> shardRun(const std::vector<uint64_t>& folderSizes, ShardPart part) {
    uint64_t total = 0;
    for (uint64_t n : folderSizes) total += n;
    // The share a file at position `at` falls in: floor(at * count / total).
    // With count at most kMaxShards the product fits for any list of fewer
    // than 2^46 files.
    auto shareOf = [&](uint64_t at) { return at * part.count / total; };
    size_t first = folderSizes.size(), last = folderSizes.size();
    uint64_t at = 0;
    for (size_t i = 0; i < folderSizes.size(); ++i) {
        const uint64_t share = total ? shareOf(at) : 0;
        if (share == part.index && first == folderSizes.size()) first = i;
        if (share > part.index) {
            last = i;
            break;
        }
        at += folderSizes[i];
    }
    // An empty share (a large folder before it covered it) is an empty run.
    if (first == folderSizes.size()) return {last, last};
    return {first, last};
}

}  // namespace sondrel
