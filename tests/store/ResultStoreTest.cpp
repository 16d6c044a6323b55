// The result store under the scan: what is replayed, what is checked again,
// and that a replayed log is the log of a check.
#include "store/ResultStore.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>

#include "core/LogWriter.h"
#include "core/WorkThread.h"
#include "printers/TextPrinter.h"
#include "tests/fixtures/CheckHelpers.h"
#include "tests/fixtures/WavBuilder.h"

namespace sondrel {
namespace {

using fixtures::TempDir;

struct ScanResult {
    std::string log;  // without its first line
    ResultStore::Counts counts;
    std::vector<std::string> warnings;
};

struct StoreSetup {
    std::map<std::string, std::string> options;
    std::string program = "Sondrel 1.0.0 (Build 1)";
    int64_t recheckAfter = -1;
    int64_t settleSeconds = 0;  // the test's files are written just before
};

// One scan of `folder`, through a store at `db` unless `db` is empty.
ScanResult scan(const TempDir& d, const std::string& folder, const std::string& db, const StoreSetup& s = {},
                unsigned jobs = 1) {
    ScanResult r;
    const Settings settings = fixtures::settingsWith(s.options);
    std::unique_ptr<ResultStore> store;
    if (!db.empty())
        store = std::make_unique<ResultStore>(
            StoreOptions{db, ResultStore::fingerprint(settings, s.program, "decoders"), s.recheckAfter,
                         s.settleSeconds, 200, [&](const std::string& path, const std::string& reason) {
                             r.warnings.push_back(path + ": " + reason);
                         }});
    LogWriter log(std::make_unique<TextPrinter>());
    const std::string logPath = d.path() + "/log.txt";
    EXPECT_FALSE(log.openLog(logPath));
    WorkThread w({{folder}, {}}, settings, log, {}, jobs);
    w.setResultCache(store.get());
    w.main();
    log.closeLog();
    if (store) {
        store->flush();
        r.counts = store->counts();
    }
    const std::string all = fixtures::readFile(logPath);
    r.log = all.substr(all.find('\n') + 1);
    return r;
}

// A few files with problems, one of them a WAV whose RIFF size can be made
// wrong without changing the file's size.
Bytes wav(uint32_t riffSize) {
    Bytes b = fixtures::wavFile({fixtures::wavFmtChunk(), fixtures::riffChunk("data", Bytes(64, 0))});
    for (int i = 0; i < 4; ++i) b[4 + size_t(i)] = uint8_t(riffSize >> (8 * i));
    return b;
}

std::string makeTree(const TempDir& d) {
    const uint32_t right = uint32_t(wav(0).size() - 8);
    d.write("tree/a/song.wav", wav(right));
    d.write("tree/a/garbage.mp3", std::string("not an MPEG stream at all"));
    d.write("tree/b/empty.flac", std::string());
    d.write("tree/b/odd.wav", wav(right + 2));
    return d.path() + "/tree";
}

// Unchanged files are replayed with the log of a check until a file, the
// fingerprint or the result's age changes; a file that is no cache of ours is
// named once and left alone.
TEST(ResultStore, ReplaysUnchangedFilesAndChecksChangedOnesAgain) {
    TempDir d;
    const std::string tree = makeTree(d), db = d.path() + "/cache/results.sqlite";
    const ScanResult plain = scan(d, tree, "");
    ASSERT_NE(plain.log.find("odd.wav"), std::string::npos) << plain.log;
    const ScanResult first = scan(d, tree, db);
    EXPECT_EQ(first.log, plain.log);
    EXPECT_EQ(first.counts.misses, 4u);
    EXPECT_EQ(first.counts.stored, 4u);
    for (unsigned jobs : {1u, 2u}) {
        const ScanResult again = scan(d, tree, db, {}, jobs);
        EXPECT_EQ(again.log, plain.log) << jobs;
        EXPECT_EQ(again.counts.hits, 4u) << jobs;
        EXPECT_TRUE(again.warnings.empty());
    }
    // Filters apply on replay: the stored problems are the unfiltered ones.
    // With every file logged, the clean one is replayed too.
    for (const StoreSetup& s :
         {StoreSetup{{{"MinSeverity", "damage"}}}, StoreSetup{{{"LogAllFiles", "true"}}}}) {
        const ScanResult r = scan(d, tree, db, s);
        EXPECT_EQ(r.log, scan(d, tree, "", s).log);
        EXPECT_EQ(r.counts.hits, 4u);
    }

    const std::pair<const char*, StoreSetup> cases[] = {
        {"an option", {{{"LogPriv", "true"}}}},
        {"the verification tier", {{{"Verify", "quick"}}}},
        {"the program version", {{}, "Sondrel 1.0.1 (Build 2)"}},
        {"a recheck age passed", {{}, "Sondrel 1.0.0 (Build 1)", 0}},
    };
    for (const auto& [what, setup] : cases) {
        scan(d, tree, db);
        EXPECT_EQ(scan(d, tree, db).counts.hits, 4u) << what;
        const ScanResult r = scan(d, tree, db, setup);
        EXPECT_EQ(r.counts.hits, 0u) << what;
        EXPECT_EQ(r.log, scan(d, tree, "", setup).log) << what;
    }

    const std::string text = d.write("notes.txt", std::string(4096, 'x')), audio = d.write("song.mp3", "");
    for (const auto& other : {text, audio, tree}) {
        const ScanResult r = scan(d, tree, other);
        EXPECT_EQ(r.log, plain.log) << other;
        ASSERT_EQ(r.warnings.size(), 1u) << other;
        EXPECT_EQ(r.warnings[0].rfind(other + ": result cache not used: ", 0), 0u) << r.warnings[0];
    }
    EXPECT_EQ(fixtures::readFile(text), std::string(4096, 'x'));
    EXPECT_EQ(fixtures::readFile(audio), "");

    // New bytes, same size, the old modification time put back: the change
    // time (and with a copy the inode) still tells.
    scan(d, tree, db);
    const std::string song = tree + "/a/song.wav";
    struct stat before {};
    ASSERT_EQ(::stat(song.c_str(), &before), 0);
    d.write("tree/a/song.wav", wav(7));
    const struct timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, song.c_str(), times, 0), 0);
    const ScanResult changed = scan(d, tree, db);
    EXPECT_EQ(changed.log, scan(d, tree, "").log);
    EXPECT_NE(changed.log.find("song.wav"), std::string::npos) << changed.log;
    EXPECT_EQ(changed.counts.hits, 3u);

    ASSERT_EQ(std::rename((tree + "/b/odd.wav").c_str(), (tree + "/b/renamed.wav").c_str()), 0);
    const ScanResult renamed = scan(d, tree, db);
    EXPECT_EQ(renamed.log, scan(d, tree, "").log);
    EXPECT_NE(renamed.log.find("/b/renamed.wav"), std::string::npos) << renamed.log;
    EXPECT_EQ(renamed.counts.hits, 3u);

    // Files changed just before the scan are not kept.
    TempDir fresh;
    StoreSetup settling;
    settling.settleSeconds = 3;
    EXPECT_EQ(scan(fresh, makeTree(fresh), fresh.path() + "/results.sqlite", settling).counts.stored, 0u);
}

}  // namespace
}  // namespace sondrel
