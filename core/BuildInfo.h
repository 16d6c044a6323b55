#pragma once
namespace sondrel::build {
extern const char* const kName;          // "Sondrel"
extern const char* const kVersion;       // short version string
extern const char* const kBuild;         // build number
extern const char* const kUserDefaults;  // the "UserDefaults" resource text
}  // namespace sondrel::build
