#pragma once
// The stream a project is saved through: a pass-through over the new project
// file that counts the bytes written. For crash tests it can stop half-way:
// with LXAUDIO_TEST_SAVE_PAUSE_BYTES=N in the environment the save announces
// "save paused" on stderr after N bytes and sleeps, so that a test can kill the
// process at a known point of the save.
#include <cstdint>
#include <memory>
#include "LxAudioCore.h"
#include "LxPublic/LxFailureWatch.h"

class LxCliSaveStream : public ILxStream {
public:
    explicit LxCliSaveStream(std::unique_ptr<ILxReadWriteStream> file);
    ~LxCliSaveStream() override;

    bool IsOpen() const override;
    int Read(void* buffer, int bytes) override;
    int Write(const void* buffer, int bytes) override;
    bool Seek(int64_t offset, LxSeekOrigin origin) override;
    int64_t GetPosition() const override;
    int64_t GetLength() const override;
    bool Truncate() override;
    bool Flush() override;
    bool Sync() override;
    void Close() override;
    // Passed to the file, so that a member is copied into it inside the system.
    int64_t CopyFrom(ILxStream& source, int64_t bytes) override;
    void SetWriteBehind(bool on) override;

    // True once any write came back short (a full disk, an I/O error), or the
    // file counted a failed write that no return value showed (a buffered
    // write-back on a flush).
    bool WriteFailed() const { return writeFailed || targetFailures.Failed(); }

    // The test pause point in bytes, -1 when none is asked for.
    static int64_t PausePoint();
    // Announces the pause on stderr and sleeps (until the test kills the process).
    static void Pause(int64_t bytesWritten);

private:
    // Counts what a transfer wrote of what it was asked to, and pauses for a test.
    void Wrote(int64_t done, int64_t asked);

    std::unique_ptr<ILxReadWriteStream> target;
    int64_t written = 0;
    int64_t pauseAfter = -1;
    bool writeFailed = false;
    LxFailureWatch targetFailures;
};
