#include "cli/CliStatus.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cstdio>

namespace sondrel {

namespace {

// Columns a UTF-8 text takes, counting each character as one (continuation
// bytes take none).
size_t columnsOf(const std::string& s, size_t from = 0, size_t to = std::string::npos) {
    size_t n = 0;
    to = std::min(to, s.size());
    for (size_t i = from; i < to; ++i)
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) ++n;
    return n;
}

// The byte offset where the `count`-th character begins.
size_t byteOfColumn(const std::string& s, size_t count) {
    size_t n = 0;
    for (size_t i = 0; i < s.size(); ++i) {
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) {
            if (n == count) return i;
            ++n;
        }
    }
    return s.size();
}

std::string duration(double seconds) {
    const auto s = static_cast<uint64_t>(seconds + 0.5);
    if (s >= 3600) return fmt::format("{}:{:02}:{:02}", s / 3600, s / 60 % 60, s % 60);
    return fmt::format("{}:{:02}", s / 60, s % 60);
}

}  // namespace

CliStatus::CliStatus(bool enabled) : enabled_(enabled) {}

std::string CliStatus::elideMiddle(const std::string& text, size_t width) {
    const size_t have = columnsOf(text);
    if (have <= width) return text;
    if (width == 0) return {};
    const size_t keep = width - 1;  // the ellipsis takes one column
    const size_t head = keep / 2, tail = keep - head;
    return text.substr(0, byteOfColumn(text, head)) + "\u2026" + text.substr(byteOfColumn(text, have - tail));
}

std::string CliStatus::progressText(uint64_t done, uint64_t total, double seconds, size_t width) {
    const double fraction = total ? double(done) / double(total) : 0.0;
    std::string line = fmt::format("Analyzing file {} of {}  {:.0f}%", done, total, fraction * 100);
    if (seconds >= 1.0 && done > 0) {
        const double rate = double(done) / seconds;
        line += fmt::format("  {:.0f} files/s  {} left", rate, duration(double(total - done) / rate));
    }
    return elideMiddle(line, width);
}

size_t CliStatus::columns() const {
    winsize ws{};
    // One column is left free: writing the last one makes some terminals wrap.
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 1) return ws.ws_col - 1;
    return 79;
}

void CliStatus::draw(const std::string& line) {
    // Carriage return and "erase line" keep the status on one line.
    std::fprintf(stderr, "\r\033[K%s", line.c_str());
    std::fflush(stderr);
    drawn_ = true;
}

void CliStatus::showPath(const std::string& label, const std::string& path) {
    if (!enabled_) return;
    std::lock_guard lock(mutex_);
    const size_t width = columns();
    const size_t labelWidth = columnsOf(label) + 1;
    last_ = std::chrono::steady_clock::now();
    if (labelWidth >= width)
        draw(elideMiddle(label, width));
    else
        draw(label + " " + elideMiddle(path, width - labelWidth));
}

void CliStatus::showProgress(uint64_t done, uint64_t total) {
    if (!enabled_) return;
    std::lock_guard lock(mutex_);
    const auto now = std::chrono::steady_clock::now();
    if (!analysing_) {
        analysing_ = true;
        analysisStart_ = now;
    } else if (done < total && now - last_ < std::chrono::milliseconds(100)) {
        return;
    }
    last_ = now;
    draw(progressText(done, total, std::chrono::duration<double>(now - analysisStart_).count(), columns()));
}

void CliStatus::clear() {
    if (!enabled_) return;
    std::lock_guard lock(mutex_);
    if (drawn_) std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn_ = false;
}

}  // namespace sondrel
