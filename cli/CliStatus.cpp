#include "cli/CliStatus.h"

#include <cstdio>

namespace sondrel {

CliStatus::CliStatus(bool enabled) : enabled_(enabled) {}

void CliStatus::show(const std::string& text, bool important) {
    if (!enabled_) return;
    std::lock_guard lock(mutex_);
    auto now = std::chrono::steady_clock::now();
    if (!important && now - last_ < std::chrono::milliseconds(50)) return;
    last_ = now;
    // Carriage return and "erase line" keep the status on one line.
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void CliStatus::clear() {
    if (!enabled_) return;
    std::lock_guard lock(mutex_);
    if (drawn_) std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn_ = false;
}

}  // namespace sondrel
