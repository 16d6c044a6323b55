#pragma once
// Positioned, exception-free access to one file. Every read returns data only
// when exactly the requested number of bytes was read; anything else is
// "none" (std::nullopt), so that a checker treats a short or failed read as
// one more problem to log. A handle is backed either by a POSIX descriptor
// (pread/pwrite, never a per-byte system call) or by bytes held in memory, so
// tests can check files that exist only in memory.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "core/Bytes.h"

namespace sondrel {

class FileHandle {
  public:
    static constexpr uint64_t kNotFound = ~uint64_t(0);

    // Opens a regular file read-only. Anything else (a FIFO, a socket, a
    // device, a folder) is refused without ever blocking; `error` then holds
    // a sentence fit for the log.
    static std::unique_ptr<FileHandle> openForReading(const std::string& path, std::string& error);
    // Opens (without creating) a file for writing. A destination that cannot
    // be positioned (a pipe, a FIFO, a terminal) is written sequentially. On
    // failure errno tells why.
    static std::unique_ptr<FileHandle> openForWriting(const std::string& path, std::string& error);
    // Wraps a standard stream descriptor (for example 1 for standard output) without owning it.
    static std::unique_ptr<FileHandle> borrowDescriptor(int fd);
    static std::unique_ptr<FileHandle> fromMemory(Bytes contents);

    ~FileHandle();
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;

    // Current length of the file (memory: of the buffer).
    uint64_t length() const;

    std::optional<Bytes> readDataAtOffset(uint64_t offset, uint64_t length);
    // Reads into a caller's buffer; true only when exactly `length` bytes were read.
    bool readInto(uint64_t offset, uint8_t* out, uint64_t length);
    std::optional<Bytes> readToEndFromOffset(uint64_t offset);
    std::optional<Bytes> readDataSize(uint64_t length);
    bool seekToOffset(uint64_t offset);
    uint64_t seekToEnd();
    uint64_t position() const { return position_; }

    // On failure errno tells why.
    bool writeDataObj(ByteSpan data);
    bool writeDataAtOffset(ByteSpan data, uint64_t offset);
    bool truncateFileHere();
    bool truncateFileAtOfs(uint64_t offset);
    bool flush();
    bool synchronize();
    bool closeTheFile();

    // The whole file as one read-only view mapped into memory, so that a walk
    // over every byte costs no copy into a buffer; memory handles hand out
    // their buffer. Empty when the file is empty or cannot be mapped: the
    // caller then reads. The view covers the length the file had when it was
    // mapped and lives until the handle is closed.
    //
    // A file cut shorter while it is mapped must not end the program (the
    // processor would raise SIGBUS on the lost pages): a guard maps zeros in
    // their place and marks the view lost. A caller checks viewLost() after
    // using bytes of the view and treats a lost view as a failed read there.
    ByteSpan mapWhole();
    bool viewLost() const;
    // A walk through the view has reached `offset`: the pages before it leave
    // the resident set (they stay in the page cache and map again if
    // touched), and the next `ahead` bytes are mapped in one call rather
    // than one fault at a time.
    void moveViewWindow(uint64_t offset, uint64_t ahead);

    // First offset in [start, stop) at which `marker` lies wholly before stop,
    // searched in 10240-byte blocks that overlap by marker length - 1; a block
    // whose read comes back short ends the search. kNotFound when absent.
    uint64_t spanForMarker(const uint8_t* marker, uint64_t markerLength, uint64_t startOffset,
                           uint64_t stopOffset);

  private:
    FileHandle() = default;
    // Files opened for reading serve small reads (headers walked one after
    // another, often millions of them) from one read-ahead block, so walking
    // a file costs a system call per block rather than per header.
    static constexpr uint64_t kSmallRead = 4096;
    static constexpr size_t kReadAhead = 64 * 1024;
    bool cached(uint64_t offset, uint64_t length) const;
    void fillCache(uint64_t offset);
    int fd_ = -1;
    bool ownsFd_ = false;
    bool sequential_ = false;
    bool isMemory_ = false;
    Bytes memory_;
    uint64_t position_ = 0;
    bool readAhead_ = false;
    Bytes cache_;
    uint64_t cacheAt_ = 0;
    void unmap();
    const uint8_t* view_ = nullptr;
    uint64_t viewSize_ = 0;
    uint64_t viewReleased_ = 0;
    int viewSlot_ = -1;  // the guard's record of the mapping
};

}  // namespace sondrel
