#pragma once
// Progress for the command line: one self-overwriting line on standard error
// when it is a terminal, throttled so that a fast scan does not spend its
// time redrawing.
#include <chrono>
#include <mutex>
#include <string>

namespace sondrel {

class CliStatus {
  public:
    explicit CliStatus(bool enabled);
    // Thread-safe; `important` texts are always drawn, others at most ~20 times a second.
    void show(const std::string& text, bool important);
    // Clears the progress line.
    void clear();

  private:
    bool enabled_;
    bool drawn_ = false;
    std::mutex mutex_;
    std::chrono::steady_clock::time_point last_{};
};

}  // namespace sondrel
