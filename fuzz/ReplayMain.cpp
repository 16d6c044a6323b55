// Runs a fuzz target's entry point over files without libFuzzer: the seed
// corpus and saved crash inputs in the normal test run, and any corpus in the
// coverage build. Arguments are files or folders (read recursively);
// `--skip <list>` names inputs to pass over, one path ending per line.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

// Targets with a custom mutator call libFuzzer's own; replaying never
// mutates, so this stands in for it.
extern "C" size_t LLVMFuzzerMutate(uint8_t*, size_t size, size_t) {
    return size;
}

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    std::vector<std::string> skips;
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--skip" && i + 1 < argc) {
            std::ifstream list(argv[++i]);
            for (std::string line; std::getline(list, line);)
                if (!line.empty() && line[0] != '#') skips.push_back(line);
            continue;
        }
        std::error_code ec;
        if (fs::is_directory(arg, ec)) {
            for (const auto& e : fs::recursive_directory_iterator(arg, ec))
                if (e.is_regular_file()) inputs.push_back(e.path());
        } else if (fs::is_regular_file(arg, ec)) {
            inputs.push_back(arg);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    size_t run = 0, skipped = 0;
    for (const auto& path : inputs) {
        const std::string name = path.generic_string();
        if (path.filename().string()[0] == '.' || path.filename() == "README") continue;
        const bool skip = std::any_of(skips.begin(), skips.end(), [&](const std::string& s) {
            return name.size() >= s.size() && name.compare(name.size() - s.size(), s.size(), s) == 0;
        });
        if (skip) {
            std::printf("skipped (listed): %s\n", name.c_str());
            ++skipped;
            continue;
        }
        std::ifstream f(path, std::ios::binary);
        const std::vector<uint8_t> data((std::istreambuf_iterator<char>(f)),
                                        std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(data.data(), data.size());
        ++run;
    }
    std::printf("%zu inputs run, %zu skipped\n", run, skipped);
    return run == 0 && skipped == 0 ? 1 : 0;
}
