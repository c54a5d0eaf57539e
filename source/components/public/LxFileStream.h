#pragma once
// A buffered read-write file stream. The store makes many small seeks and
// 4-byte transfers; they are served from one 64 KiB window over the file, and
// only moves outside the window, or transfers larger than it, reach the OS.
#include <cstdint>
#include <vector>
#include "LxNativeFile.h"
#include "LxPublic/ILxReadWriteStream.h"

class LxFileStream : public ILxReadWriteStream {
public:
    static constexpr int64_t kBufferBytes = 65536;

    LxFileStream() = default;
    ~LxFileStream() override;

    bool Open(const LxFile& file, LxNativeFile::OpenMode mode);

    bool IsOpen() const override { return native.IsOpen(); }
    int Read(void* buffer, int bytes) override;
    int Write(const void* buffer, int bytes) override;
    bool Seek(int64_t offset, LxSeekOrigin origin) override;
    int64_t GetPosition() const override { return position; }
    int64_t GetLength() const override { return size; }
    bool Truncate() override;
    bool Flush() override;
    bool Sync() override;
    void Close() override;
    int64_t GetReadFailures() const override { return readFailures; }
    int64_t GetWriteFailures() const override { return writeFailures; }
    // From another file stream, inside the operating system (LxNativeFile::CopyTo).
    int64_t CopyFrom(ILxStream& source, int64_t bytes) override;
    void SetWriteBehind(bool on) override { writeBehind = on; }

private:
    // Writes the dirty part of the window to the file.
    bool WriteBack();
    // The one door to the disk for writes: a full disk (or an injected one) cuts them short.
    int64_t WriteToDisk(int64_t offset, const void* buffer, int64_t bytes);
    // With write-behind on: starts the disk on what was written up to end once
    // enough has gathered since the last start.
    void WroteUpTo(int64_t end);

    LxNativeFile native;
    bool writable = false;
    std::vector<unsigned char> window;
    int64_t windowStart = 0;  // file offset of window[0]
    int64_t windowBytes = 0;  // valid bytes from windowStart
    int64_t dirtyLo = 0;      // dirty span inside the window, empty when equal
    int64_t dirtyHi = 0;
    int64_t position = 0;
    int64_t size = 0;         // logical size, counting bytes not yet written back
    int64_t readFailures = 0;
    int64_t writeFailures = 0;
    // After a failed seek the position is not where the caller believes: every
    // transfer fails until a seek succeeds, rather than touching the wrong bytes.
    bool lostPosition = false;
    bool writeBehind = false;
    int64_t writtenBehind = 0;  // the disk was started on everything before this offset
};
