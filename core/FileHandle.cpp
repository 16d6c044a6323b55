#include "core/FileHandle.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string_view>

namespace sondrel {

namespace {

constexpr uint64_t kMarkerBlock = 10240;

std::string describeNonRegular(mode_t mode) {
    if (S_ISDIR(mode)) return "The item is a folder, not a file";
    if (S_ISFIFO(mode)) return "The item is a FIFO (named pipe), not a regular file";
    if (S_ISSOCK(mode)) return "The item is a socket, not a regular file";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "The item is a device, not a regular file";
    return "The item is not a regular file";
}

// The guard of mapped views. Each live view has a slot holding its address
// range; the SIGBUS handler looks the faulting address up there. When it lies
// in a view (the file was cut shorter while mapped), the pages from there to
// the end of the view are replaced by zeros, the slot is marked lost and the
// faulting read is repeated, now reading zeros. Any other SIGBUS goes to the
// handler that was there before, or ends the program as it would have. The
// handler touches only lock-free atomics and calls mmap, a plain system call.
struct ViewSlot {
    std::atomic<bool> used{false};
    std::atomic<uintptr_t> begin{0}, end{0};
    std::atomic<bool> lost{false};
};
constexpr int kViewSlots = 64;
ViewSlot gViewSlots[kViewSlots];
uintptr_t gPageSize = 4096;
struct sigaction gPreviousBusHandler {};

void onBusError(int sig, siginfo_t* info, void* context) {
    const uintptr_t address = uintptr_t(info->si_addr);
    for (ViewSlot& slot : gViewSlots) {
        const uintptr_t begin = slot.begin.load();
        const uintptr_t end = slot.end.load();
        if (begin == 0 || address < begin || address >= end) continue;
        const uintptr_t page = address & ~(gPageSize - 1);
        void* zeros = ::mmap(reinterpret_cast<void*>(page), end - page, PROT_READ,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
        if (zeros == MAP_FAILED) break;
        slot.lost.store(true);
        return;
    }
    if ((gPreviousBusHandler.sa_flags & SA_SIGINFO) && gPreviousBusHandler.sa_sigaction) {
        gPreviousBusHandler.sa_sigaction(sig, info, context);
    } else if (gPreviousBusHandler.sa_handler != SIG_DFL && gPreviousBusHandler.sa_handler != SIG_IGN) {
        gPreviousBusHandler.sa_handler(sig);
    } else {
        // Returning repeats the fault, which now ends the program as usual.
        ::signal(sig, SIG_DFL);
    }
}

bool installBusGuard() {
    static std::once_flag once;
    static bool installed = false;
    std::call_once(once, [] {
        const long page = ::sysconf(_SC_PAGESIZE);
        if (page > 0) gPageSize = uintptr_t(page);
        struct sigaction sa {};
        sa.sa_sigaction = onBusError;
        sa.sa_flags = SA_SIGINFO;
        sigemptyset(&sa.sa_mask);
        installed = ::sigaction(SIGBUS, &sa, &gPreviousBusHandler) == 0;
    });
    return installed;
}

int claimViewSlot(const void* view, uint64_t mappedLength) {
    for (int i = 0; i < kViewSlots; ++i) {
        bool expected = false;
        if (!gViewSlots[i].used.compare_exchange_strong(expected, true)) continue;
        gViewSlots[i].lost.store(false);
        gViewSlots[i].end.store(uintptr_t(view) + mappedLength);
        gViewSlots[i].begin.store(uintptr_t(view));
        return i;
    }
    return -1;
}

void freeViewSlot(int i) {
    gViewSlots[i].begin.store(0);
    gViewSlots[i].end.store(0);
    gViewSlots[i].used.store(false);
}

}  // namespace

std::unique_ptr<FileHandle> FileHandle::openForReading(const std::string& path, std::string& error) {
    // O_NONBLOCK keeps open() of a FIFO from waiting for a writer; the
    // fstat below then refuses everything that is not a regular file.
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        const char* msg = std::strerror(errno);
        error = msg && *msg ? msg : "Unknown error opening file";
        return nullptr;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        const char* msg = std::strerror(errno);
        error = msg && *msg ? msg : "Unknown error opening file";
        ::close(fd);
        return nullptr;
    }
    if (!S_ISREG(st.st_mode)) {
        error = describeNonRegular(st.st_mode);
        ::close(fd);
        return nullptr;
    }
    std::unique_ptr<FileHandle> h(new FileHandle());
    h->fd_ = fd;
    h->ownsFd_ = true;
    h->readAhead_ = true;
    return h;
}

std::unique_ptr<FileHandle> FileHandle::openForWriting(const std::string& path, std::string& error) {
    // O_NONBLOCK keeps open() of a FIFO without a reader from waiting
    // forever (it fails with ENXIO instead); writes then block as usual.
    int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        error = std::strerror(errno);
        return nullptr;
    }
    int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0) {
        int err = errno;
        error = std::strerror(err);
        ::close(fd);
        errno = err;
        return nullptr;
    }
    std::unique_ptr<FileHandle> h(new FileHandle());
    h->fd_ = fd;
    h->ownsFd_ = true;
    h->sequential_ = ::lseek(fd, 0, SEEK_CUR) < 0;
    return h;
}

std::unique_ptr<FileHandle> FileHandle::borrowDescriptor(int fd) {
    std::unique_ptr<FileHandle> h(new FileHandle());
    h->fd_ = fd;
    h->ownsFd_ = false;
    return h;
}

std::unique_ptr<FileHandle> FileHandle::fromMemory(Bytes contents) {
    std::unique_ptr<FileHandle> h(new FileHandle());
    h->isMemory_ = true;
    h->memory_ = std::move(contents);
    return h;
}

FileHandle::~FileHandle() {
    unmap();
    if (ownsFd_ && fd_ >= 0) ::close(fd_);
}

ByteSpan FileHandle::mapWhole() {
    if (isMemory_) return ByteSpan(memory_);
    if (view_) return ByteSpan(view_, size_t(viewSize_));
    if (fd_ < 0 || !readAhead_) return {};
    const uint64_t size = length();
    if (size == 0 || size > uint64_t(SIZE_MAX / 2) || !installBusGuard()) return {};
    void* view = ::mmap(nullptr, size_t(size), PROT_READ, MAP_PRIVATE, fd_, 0);
    if (view == MAP_FAILED) return {};
    const uint64_t mapped = (size + gPageSize - 1) & ~uint64_t(gPageSize - 1);
    const int slot = claimViewSlot(view, mapped);
    if (slot < 0) {
        ::munmap(view, size_t(size));
        return {};
    }
    ::madvise(view, size_t(size), MADV_SEQUENTIAL);
    view_ = static_cast<const uint8_t*>(view);
    viewSize_ = size;
    viewSlot_ = slot;
    viewReleased_ = 0;
    return ByteSpan(view_, size_t(viewSize_));
}

bool FileHandle::viewLost() const {
    return viewSlot_ >= 0 && gViewSlots[viewSlot_].lost.load(std::memory_order_relaxed);
}

void FileHandle::moveViewWindow(uint64_t offset, uint64_t ahead) {
    if (!view_ || offset >= viewSize_) return;
    const uint64_t end = offset & ~uint64_t(gPageSize - 1);
    if (end > viewReleased_) {
        ::madvise(const_cast<uint8_t*>(view_) + viewReleased_, size_t(end - viewReleased_), MADV_DONTNEED);
        viewReleased_ = end;
    }
#ifdef MADV_POPULATE_READ
    // Fails harmlessly on kernels without it (and on pages cut off the file).
    ::madvise(const_cast<uint8_t*>(view_) + end, size_t(std::min(ahead, viewSize_ - end)),
              MADV_POPULATE_READ);
#else
    (void)ahead;
#endif
}

void FileHandle::unmap() {
    if (!view_) return;
    // The slot is given up first: the view is this thread's alone, so no
    // fault on it can come between.
    freeViewSlot(viewSlot_);
    ::munmap(const_cast<uint8_t*>(view_), size_t(viewSize_));
    view_ = nullptr;
    viewSize_ = 0;
    viewSlot_ = -1;
}

uint64_t FileHandle::length() const {
    if (isMemory_) return memory_.size();
    if (fd_ < 0) return 0;
    struct stat st {};
    if (::fstat(fd_, &st) != 0) return 0;
    return st.st_size < 0 ? 0 : uint64_t(st.st_size);
}

bool FileHandle::readInto(uint64_t offset, uint8_t* out, uint64_t length) {
    if (isMemory_) {
        if (!fits(memory_.size(), offset, length)) return false;
        std::copy_n(memory_.data() + offset, length, out);
        position_ = offset + length;
        return true;
    }
    if (fd_ < 0) return false;
    if (readAhead_ && length <= kSmallRead) {
        if (!cached(offset, length)) fillCache(offset);
        if (!cached(offset, length)) return false;
        std::copy_n(cache_.data() + (offset - cacheAt_), length, out);
        position_ = offset + length;
        return true;
    }
    uint64_t done = 0;
    while (done < length) {
        if (offset + done > uint64_t(INT64_MAX)) return false;
        ssize_t n = ::pread(fd_, out + done, size_t(std::min<uint64_t>(length - done, 1u << 30)),
                            off_t(offset + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) return false;  // end of file inside the range
        done += uint64_t(n);
    }
    position_ = offset + length;
    return true;
}

bool FileHandle::cached(uint64_t offset, uint64_t length) const {
    return offset >= cacheAt_ && fits(cache_.size(), offset - cacheAt_, length);
}

void FileHandle::fillCache(uint64_t offset) {
    cache_.resize(kReadAhead);
    cacheAt_ = offset;
    size_t done = 0;
    while (done < cache_.size() && offset + done <= uint64_t(INT64_MAX)) {
        ssize_t n = ::pread(fd_, cache_.data() + done, cache_.size() - done, off_t(offset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += size_t(n);
    }
    cache_.resize(done);
}

std::optional<Bytes> FileHandle::readDataAtOffset(uint64_t offset, uint64_t length) {
    // Never allocate for a range the file cannot hold: a hostile size field
    // must not turn into a huge allocation.
    if (!fits(this->length(), offset, length)) return std::nullopt;
    Bytes out(length);
    if (!readInto(offset, out.data(), length)) return std::nullopt;
    return out;
}

std::optional<Bytes> FileHandle::readToEndFromOffset(uint64_t offset) {
    uint64_t len = length();
    if (offset > len) return std::nullopt;
    return readDataAtOffset(offset, len - offset);
}

std::optional<Bytes> FileHandle::readDataSize(uint64_t length) {
    return readDataAtOffset(position_, length);
}

bool FileHandle::seekToOffset(uint64_t offset) {
    if (offset > uint64_t(INT64_MAX)) return false;
    position_ = offset;
    return true;
}

uint64_t FileHandle::seekToEnd() {
    position_ = length();
    return position_;
}

bool FileHandle::writeDataObj(ByteSpan data) {
    if (isMemory_) {
        if (position_ > memory_.size()) memory_.resize(position_);
        size_t end = size_t(position_ + data.size());
        if (end > memory_.size()) memory_.resize(end);
        std::copy(data.begin(), data.end(), memory_.begin() + ptrdiff_t(position_));
        position_ = end;
        return true;
    }
    if (fd_ < 0) return false;
    size_t done = 0;
    while (done < data.size()) {
        // Borrowed descriptors (standard output) and pipes cannot be positioned.
        ssize_t n = ownsFd_ && !sequential_
                        ? ::pwrite(fd_, data.data() + done, data.size() - done, off_t(position_ + done))
                        : ::write(fd_, data.data() + done, data.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (n == 0) {
            errno = EIO;
            return false;
        }
        done += size_t(n);
    }
    position_ += data.size();
    return true;
}

bool FileHandle::writeDataAtOffset(ByteSpan data, uint64_t offset) {
    return seekToOffset(offset) && writeDataObj(data);
}

bool FileHandle::truncateFileHere() {
    return truncateFileAtOfs(position_);
}

bool FileHandle::truncateFileAtOfs(uint64_t offset) {
    if (isMemory_) {
        memory_.resize(size_t(offset));
        return true;
    }
    if (fd_ < 0 || offset > uint64_t(INT64_MAX)) return false;
    return ::ftruncate(fd_, off_t(offset)) == 0;
}

bool FileHandle::flush() {
    return synchronize();
}

bool FileHandle::synchronize() {
    if (isMemory_) return true;
    if (fd_ < 0) return false;
    if (::fsync(fd_) == 0) return true;
    // Pipes, terminals and some devices cannot be synchronised; their data
    // is already handed over, which is all that can be asked of them.
    return errno == EINVAL || errno == EROFS || errno == ENOTSUP;
}

bool FileHandle::closeTheFile() {
    if (isMemory_) return true;
    unmap();
    if (fd_ < 0) return false;
    int rc = ownsFd_ ? ::close(fd_) : 0;
    fd_ = -1;
    return rc == 0;
}

uint64_t FileHandle::spanForMarker(const uint8_t* marker, uint64_t markerLength, uint64_t startOffset,
                                   uint64_t stopOffset) {
    if (markerLength == 0 || markerLength > kMarkerBlock) return kNotFound;
    Bytes block(kMarkerBlock);
    uint64_t pos = startOffset;
    for (;;) {
        if (pos > stopOffset || markerLength > stopOffset - pos) return kNotFound;
        uint64_t size = kMarkerBlock;
        if (size > stopOffset - pos) {
            size = stopOffset - pos;
            if (size < markerLength) return kNotFound;
        }
        if (!readInto(pos, block.data(), size)) return kNotFound;
        auto end = block.begin() + ptrdiff_t(size);
        auto it = std::search(block.begin(), end, marker, marker + markerLength);
        if (it != end) return pos + uint64_t(it - block.begin());
        pos += size - (markerLength - 1);
    }
}

}  // namespace sondrel
