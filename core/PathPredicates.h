#pragma once
// Predicates on file names and paths: which names are audio files (a plain,
// case-insensitive suffix test, so "songmp3" is not and "SONG.MP3" is), and
// which folders the walk may enter.
#include <optional>
#include <string>
#include <string_view>

namespace sondrel {

bool isFileWithExtension(std::string_view name, std::string_view extension);
bool isMP3File(std::string_view name);
bool isM4AFile(std::string_view name);
bool isFlacFile(std::string_view name);
bool isAiffFile(std::string_view name);
bool isDsfFile(std::string_view name);
bool isDffFile(std::string_view name);
bool isWavFile(std::string_view name);
bool isOGG(std::string_view name);
bool isWV(std::string_view name);
bool isAPE(std::string_view name);
bool isAudioFile(std::string_view name);
bool isPlistFile(std::string_view name);

// A path is clean when its information can be read (lstat) and it is not
// invisible (name begins with "."), not an application (a folder ending in
// ".app") and not a package (a folder with a bundle extension). Symbolic
// links are clean.
bool isPathClean(const std::string& path);
bool isPathVolume(const std::string& path);
bool isPathApplication(const std::string& path);

// Absolute, lexically normalised ("." and ".." resolved, no trailing slash),
// symbolic links not resolved.
std::string fullPath(const std::string& path);
// The same, but nullopt (errno set) when the path is relative and the working
// folder cannot be found out, instead of guessing one.
std::optional<std::string> fullPathIfResolvable(const std::string& path);
// Parent folder and last component of a full path.
std::string parentFolder(const std::string& path);
std::string lastComponent(const std::string& path);

}  // namespace sondrel
