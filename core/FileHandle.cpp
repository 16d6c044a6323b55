#include "core/FileHandle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
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
    if (ownsFd_ && fd_ >= 0) ::close(fd_);
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
