#include "core/PathPredicates.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <vector>

#include "core/FormatTable.h"
#include "core/Text.h"

namespace sondrel {

namespace {

bool hasFormat(std::string_view name, Format f) {
    for (const auto& e : formatTable())
        if (e.format == f)
            for (const char* ext : e.extensions)
                if (isFileWithExtension(name, ext)) return true;
    return false;
}

// Folder extensions that make a folder a package (opaque bundle) rather than
// a folder to walk.
constexpr const char* kPackageExtensions[] = {".app",  ".bundle", ".framework", ".plugin",
                                              ".kext", ".pkg",    ".mpkg",      ".photoslibrary",
                                              ".band", ".logicx", ".rtfd"};

}  // namespace

bool isFileWithExtension(std::string_view name, std::string_view extension) {
    return text::endsWithCaseInsensitive(name, extension);
}
bool isMP3File(std::string_view n) {
    return hasFormat(n, Format::MP3);
}
bool isM4AFile(std::string_view n) {
    return hasFormat(n, Format::MPEG4);
}
bool isFlacFile(std::string_view n) {
    return hasFormat(n, Format::FLAC);
}
bool isAiffFile(std::string_view n) {
    return hasFormat(n, Format::AIFF);
}
bool isDsfFile(std::string_view n) {
    return hasFormat(n, Format::DSF);
}
bool isDffFile(std::string_view n) {
    return hasFormat(n, Format::DFF);
}
bool isWavFile(std::string_view n) {
    return hasFormat(n, Format::WAV);
}
bool isOGG(std::string_view n) {
    return hasFormat(n, Format::Ogg);
}
bool isWV(std::string_view n) {
    return hasFormat(n, Format::WavPack);
}
bool isAPE(std::string_view n) {
    return hasFormat(n, Format::APE);
}
bool isAudioFile(std::string_view n) {
    return formatForPath(n) != nullptr;
}
bool isPlistFile(std::string_view n) {
    return isFileWithExtension(n, ".plist");
}

bool isPathClean(const std::string& path) {
    struct stat st {};
    if (path.empty() || ::lstat(path.c_str(), &st) != 0) return false;
    std::string name = lastComponent(path);
    if (!name.empty() && name[0] == '.') return false;  // invisible
    if (S_ISDIR(st.st_mode)) {
        for (const char* ext : kPackageExtensions)
            if (isFileWithExtension(name, ext)) return false;  // package or application
    }
    return true;
}

bool isPathVolume(const std::string& path) {
    struct stat st {
    }, parent{};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return false;
    std::string up = path == "/" ? "/" : parentFolder(path);
    if (::lstat(up.c_str(), &parent) != 0) return false;
    return path == "/" || st.st_dev != parent.st_dev;
}

bool isPathApplication(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) return isFileWithExtension(path, ".app");
    return S_ISDIR(st.st_mode) && isFileWithExtension(lastComponent(path), ".app");
}

std::optional<std::string> fullPathIfResolvable(const std::string& path) {
    std::string p = path;
    if (p.empty() || p[0] != '/') {
        // getcwd with no buffer allocates what the path needs, however deep.
        std::unique_ptr<char, decltype(&std::free)> cwd(::getcwd(nullptr, 0), &std::free);
        if (!cwd || cwd.get()[0] != '/') return std::nullopt;
        p = std::string(cwd.get()) + "/" + p;
    }
    std::vector<std::string> parts;
    size_t i = 0;
    while (i <= p.size()) {
        size_t j = p.find('/', i);
        if (j == std::string::npos) j = p.size();
        std::string part = p.substr(i, j - i);
        if (part == "..") {
            if (!parts.empty()) parts.pop_back();
        } else if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        i = j + 1;
    }
    std::string out;
    for (const auto& part : parts) out += "/" + part;
    return out.empty() ? "/" : out;
}

std::string fullPath(const std::string& path) {
    if (auto full = fullPathIfResolvable(path)) return *full;
    return fullPathIfResolvable("/" + path).value_or("/");
}

std::string parentFolder(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
    auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace sondrel
