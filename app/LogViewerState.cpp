#include "app/LogViewerState.h"

#include "app/AppDelegate.h"

namespace sondrel::app {

LogViewerState::LogViewerState(AppDelegate& delegate, std::function<void(const QString&)> apply)
    : delegate_(delegate), apply_(std::move(apply)) {}

void LogViewerState::setContents(const QString& text) {
    if (windowLoaded_) {
        pendingContent_.reset();
        apply_(text);
    } else {
        pendingContent_ = text;
    }
}

bool LogViewerState::windowDidLoad() {
    if (windowLoaded_) return false;
    windowLoaded_ = true;
    if (pendingContent_) {
        apply_(*pendingContent_);
        pendingContent_.reset();
    }
    return true;
}

int LogViewerState::fontSize() const {
    return int(delegate_.settings().intFromKey(kFontSizeKey));
}

int LogViewerState::bigger() {
    const int size = fontSize() + 1;
    delegate_.storeInteger(kFontSizeKey, size);
    return size;
}

// A size already at or below the floor stays as it is.
int LogViewerState::smaller() {
    int size = fontSize();
    if (size > kSmallestFontSize) --size;
    delegate_.storeInteger(kFontSizeKey, size);
    return size;
}

}  // namespace sondrel::app
