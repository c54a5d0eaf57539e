#pragma once
// A seekable byte stream: a file, or a block of memory. Used for whole-store
// persistence and wherever bytes are moved in bulk. Not thread-safe; the owner
// serialises access.
#include <cstdint>
#include "LxPublicExport.h"

enum LxSeekOrigin { kLxSeekBegin = 0, kLxSeekCurrent = 1, kLxSeekEnd = 2 };

class LXPUBLIC_API ILxStream {
public:
    virtual ~ILxStream();

    virtual bool IsOpen() const = 0;
    // Reads up to bytes bytes; returns how many were read (0 at the end, or on error).
    virtual int Read(void* buffer, int bytes) = 0;
    // Writes bytes bytes; returns how many were written (fewer on error).
    virtual int Write(const void* buffer, int bytes) = 0;
    // Moves the position; a position past the end is allowed (a later write
    // fills the gap with zeros). False for a negative result or a closed stream.
    virtual bool Seek(int64_t offset, LxSeekOrigin origin) = 0;
    virtual int64_t GetPosition() const = 0;
    // Current length in bytes, including anything buffered but not yet written out.
    virtual int64_t GetLength() const = 0;
    // True when the position is at or past the end.
    virtual bool IsEndOfStream() const { return GetPosition() >= GetLength(); }
    // Cuts the stream at the current position (past the end: extends it with zeros).
    virtual bool Truncate() = 0;
    // Hands buffered bytes to the operating system.
    virtual bool Flush() = 0;
    // Flush, then ask the operating system to put the bytes on the disk.
    virtual bool Sync() { return Flush(); }
    virtual void Close() = 0;
    // Failed transfers since the stream was opened, as the OS (or a full disk)
    // reported them; reaching the end of the data is not a failure. A failed
    // write means the file no longer holds what its writer meant it to.
    virtual int64_t GetReadFailures() const { return 0; }
    virtual int64_t GetWriteFailures() const { return 0; }

    // Copies up to bytes bytes from source's position to this stream's position;
    // both move on by what was copied, which is returned (fewer when source ends
    // or a write fails). This copies in large blocks; file streams copy from a
    // file inside the operating system where it can.
    virtual int64_t CopyFrom(ILxStream& source, int64_t bytes);
    // The same copy seen from the source: streams made of parts override it so
    // that each part reaches target.CopyFrom on its own.
    virtual int64_t CopyTo(ILxStream& target, int64_t bytes) { return target.CopyFrom(*this, bytes); }
    // For a file that is forced to disk once it is whole (a save): when on, what
    // is written is handed to the disk as it comes, so that the final Sync has
    // little left to wait for. A hint; streams that cannot do it ignore it.
    virtual void SetWriteBehind(bool on) { (void)on; }

    // Little-endian 32-bit helpers for stream formats; false on a short transfer
    // (the value is then 0 after a read).
    bool ReadInt32(int32_t& value);
    bool WriteInt32(int32_t value);
};
