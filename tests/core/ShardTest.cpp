#include "core/Shard.h"

#include <gtest/gtest.h>

namespace sondrel {
namespace {

// Each row: folder sizes, shard count, and the [first, last) folder run of
// every shard in turn.
struct Row {
    std::vector<uint64_t> sizes;
    unsigned count;
    std::vector<std::pair<size_t, size_t>> runs;
};

TEST(Shard, RunsAreContiguousWholeFoldersInBalancedShares) {
    const Row rows[] = {
        {{5, 5, 5, 5}, 2, {{0, 2}, {2, 4}}},
        {{5, 5, 5, 5}, 1, {{0, 4}}},
        // A folder larger than a share stays whole where it starts; the
        // shares it covers are empty.
        {{1, 30, 1, 1}, 3, {{0, 2}, {2, 2}, {2, 4}}},
        {{2, 2}, 5, {{0, 1}, {1, 1}, {1, 2}, {2, 2}, {2, 2}}},
        {{}, 3, {{0, 0}, {0, 0}, {0, 0}}},
    };
    for (const auto& row : rows)
        for (unsigned k = 0; k < row.count; ++k)
            EXPECT_EQ(shardRun(row.sizes, {k, row.count}), row.runs[k]) << "shard " << k << "/" << row.count;
}

TEST(Shard, ParsesOnlyIndexBelowCount) {
    EXPECT_EQ(parseShard("0/1")->count, 1u);
    EXPECT_EQ(parseShard("6/7")->index, 6u);
    for (const char* bad : {"1/1", "0/0", "-1/3", "1", "1/", "/3", "a/3", "1/3x", "0/100001"})
        EXPECT_FALSE(parseShard(bad)) << bad;
}

}  // namespace
}  // namespace sondrel
