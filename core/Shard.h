#pragma once
// Splitting the work list among N processes (on N machines, or N array jobs
// of a scheduler). The sorted list of folders is cut into N contiguous runs
// of about the same number of files; a folder is never split, and a folder
// larger than a share stays whole in the run where it starts. Each run is
// therefore a contiguous piece of the single run's log, and the pieces in
// order 0..N-1 are that log.
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sondrel {

struct ShardPart {
    unsigned index = 0;  // 0 to count-1
    unsigned count = 1;
};

// The most processes one list is cut for.
constexpr unsigned kMaxShards = 100000;

// "K/N" with 0 <= K < N <= kMaxShards; nullopt otherwise.
std::optional<ShardPart> parseShard(const std::string& text);

// The folders [first, last) of shard `part`, given the file count of each
// folder in list order. A folder belongs to the run its first file falls in
// when the files are cut into `count` equal shares.
std::pair<size_t, size_t> shardRun(const std::vector<uint64_t>& folderSizes, ShardPart part);

}  // namespace sondrel
