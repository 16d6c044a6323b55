#include "core/Module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <vector>

#include <fmt/format.h>

namespace sondrel::module {

namespace {

struct Registry {
    std::mutex lock;
    // A module's table once loaded or provided; nullptr once it failed.
    std::map<std::string, const void*, std::less<>> tables;
};

Registry& registry() {
    static Registry r;
    return r;
}

// The folder of the running executable, from /proc/self/exe.
std::string programFolder() {
    std::vector<char> buffer(4096);
    const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (n <= 0 || static_cast<size_t>(n) >= buffer.size()) return ".";
    std::string path(buffer.data(), static_cast<size_t>(n));
    const size_t slash = path.rfind('/');
    return slash == std::string::npos || slash == 0 ? std::string("/") : path.substr(0, slash);
}

using Entry = const void* (*)();

const void* load(std::string_view name) {
    const std::string path = pathOf(name);
    // RTLD_NOW: a module that lacks a symbol fails here, with a message,
    // rather than in the middle of a check.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    std::string reason;
    if (handle) {
        const std::string symbol = fmt::format("sondrel_module_{}", name);
        if (auto entry = reinterpret_cast<Entry>(dlsym(handle, symbol.c_str()))) {
            if (const void* t = entry()) return t;
            reason = "the module is from another version of the program";
        } else {
            reason = fmt::format("it has no function {}", symbol);
        }
        dlclose(handle);
    } else {
        // dlerror() starts with the path itself, given once in the message.
        const char* error = dlerror();
        reason = error ? error : "unknown error";
        if (reason.starts_with(path + ": ")) reason.erase(0, path.size() + 2);
    }
    std::fputs(fmt::format("sondrel: cannot load {}: {}\n", path, reason).c_str(), stderr);
    return nullptr;
}

}  // namespace

std::string pathOf(std::string_view name) {
    const std::filesystem::path folder = std::filesystem::path(programFolder()) / ".." / "lib" / "sondrel";
    return (folder.lexically_normal() / fmt::format("{}.so", name)).string();
}

const void* table(std::string_view name) {
    Registry& r = registry();
    std::lock_guard guard(r.lock);
    auto it = r.tables.find(name);
    if (it == r.tables.end()) it = r.tables.emplace(std::string(name), load(name)).first;
    return it->second;
}

void provide(std::string_view name, const void* table) {
    Registry& r = registry();
    std::lock_guard guard(r.lock);
    r.tables.insert_or_assign(std::string(name), table);
}

}  // namespace sondrel::module
