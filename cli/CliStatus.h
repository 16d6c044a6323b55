#pragma once
// Progress for the command line: one self-overwriting line on standard error
// when it is a terminal. The line is fitted to the terminal's width (read
// again at every draw, so a resized window is followed), a long path is
// shortened in the middle, and the line is erased before anything else is
// printed and at the end, so nothing of it stays on screen. Drawing is
// throttled so that a fast scan does not spend its time redrawing.
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace sondrel {

class CliStatus {
  public:
    explicit CliStatus(bool enabled);
    // A phase with a path ("Examining folder", PATH); always drawn.
    void showPath(const std::string& label, const std::string& path);
    // Files begun of the total, with percentage, rate and time left; drawn at
    // most ~10 times a second. Thread-safe, like every member.
    void showProgress(uint64_t done, uint64_t total);
    // Erases the progress line.
    void clear();

    // `text` cut to `width` columns by putting "…" in its middle (exposed for tests).
    static std::string elideMiddle(const std::string& text, size_t width);
    // The progress text fitted to `width` columns.
    static std::string progressText(uint64_t done, uint64_t total, double seconds, size_t width);

  private:
    void draw(const std::string& line);
    size_t columns() const;

    bool enabled_;
    bool drawn_ = false;
    std::mutex mutex_;
    std::chrono::steady_clock::time_point last_{};
    std::chrono::steady_clock::time_point analysisStart_{};
    bool analysing_ = false;
};

}  // namespace sondrel
