#pragma once
// A member's bytes when the member is read in place from a saved project: the
// first baseLength bytes are read from the project file (at baseOffset), and
// whatever is written from baseLength on goes into the member's own file at the
// same positions (the span below baseLength stays a hole there). Loading a
// project then copies nothing: reading a page reads the project file itself.
//
// The project file is only ever read. A write below baseLength, or a cut
// inside it, first copies the base into the own file (Materialize), after
// which the stream is the own file alone. Reads and writes happen under the
// store's lock, so the base, which the members of one load share, is used by
// one of them at a time (each seeks before it reads).
#include <cstdint>
#include <memory>
#include "LxPublic/ILxReadWriteStream.h"

class LxInPlaceStream : public ILxReadWriteStream {
public:
    LxInPlaceStream(std::unique_ptr<ILxReadWriteStream> own, std::shared_ptr<ILxReadWriteStream> base,
                    int64_t baseOffset, int64_t baseLength);
    ~LxInPlaceStream() override;

    bool IsOpen() const override;
    int Read(void* buffer, int bytes) override;
    int Write(const void* buffer, int bytes) override;
    bool Seek(int64_t offset, LxSeekOrigin origin) override;
    int64_t GetPosition() const override { return position; }
    int64_t GetLength() const override;
    bool Truncate() override;
    bool Flush() override;
    bool Sync() override;
    void Close() override;
    int64_t GetReadFailures() const override;
    int64_t GetWriteFailures() const override;
    int64_t CopyFrom(ILxStream& source, int64_t bytes) override;
    int64_t CopyTo(ILxStream& target, int64_t bytes) override;

    // Copies the base into the own file and leaves the project file; false
    // (and the stream as it was) when the copy fails.
    bool Materialize();
    // Hands the own file over, for a member that wraps it anew; the stream is
    // left without one (closed).
    std::unique_ptr<ILxReadWriteStream> TakeOwn() { return std::move(own); }
    std::shared_ptr<ILxReadWriteStream> GetBase() const { return base; }
    int64_t GetBaseOffset() const { return baseOffset; }
    int64_t GetBaseLength() const { return baseLength; }

private:
    std::unique_ptr<ILxReadWriteStream> own;
    std::shared_ptr<ILxReadWriteStream> base;  // null once materialized, or cut to nothing
    int64_t baseOffset = 0;
    int64_t baseLength = 0;
    int64_t position = 0;
    // Failures of a base that was let go, so that the counts never go back.
    int64_t droppedReadFailures = 0;
};
