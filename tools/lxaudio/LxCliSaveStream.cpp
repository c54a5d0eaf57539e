#include "LxCliSaveStream.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

LxCliSaveStream::LxCliSaveStream(std::unique_ptr<ILxReadWriteStream> file)
    : target(std::move(file)),
      pauseAfter(PausePoint()),
      targetFailures([this] { return target ? target->GetWriteFailures() : 0; }) {}

int64_t LxCliSaveStream::PausePoint() {
    const char* pause = std::getenv("LXAUDIO_TEST_SAVE_PAUSE_BYTES");
    if (!pause) return -1;
    char* end = nullptr;
    long long bytes = std::strtoll(pause, &end, 10);
    return end != pause && bytes >= 0 ? bytes : -1;
}

void LxCliSaveStream::Pause(int64_t bytesWritten) {
    std::fprintf(stderr, "lxaudio: save paused after %lld bytes\n", static_cast<long long>(bytesWritten));
    std::fflush(stderr);
    std::this_thread::sleep_for(std::chrono::seconds(120));
}

LxCliSaveStream::~LxCliSaveStream() { Close(); }

bool LxCliSaveStream::IsOpen() const { return target && target->IsOpen(); }

int LxCliSaveStream::Read(void* buffer, int bytes) { return target ? target->Read(buffer, bytes) : 0; }

int LxCliSaveStream::Write(const void* buffer, int bytes) {
    if (!target) return 0;
    int done = target->Write(buffer, bytes);
    Wrote(done, bytes);
    return done;
}

int64_t LxCliSaveStream::CopyFrom(ILxStream& source, int64_t bytes) {
    if (!target) return 0;
    // Up to the pause point, then the rest, so that a test's pause comes where it asked.
    int64_t done = 0;
    if (pauseAfter >= 0 && written + bytes > pauseAfter) {
        const int64_t first = std::max<int64_t>(0, pauseAfter - written);
        done = target->CopyFrom(source, first);
        Wrote(done, first);
        if (done != first) return done;
    }
    const int64_t rest = target->CopyFrom(source, bytes - done);
    Wrote(rest, bytes - done);
    return done + rest;
}

void LxCliSaveStream::SetWriteBehind(bool on) {
    if (target) target->SetWriteBehind(on);
}

void LxCliSaveStream::Wrote(int64_t done, int64_t asked) {
    if (done > 0) written += done;
    if (done != asked) writeFailed = true;
    if (pauseAfter >= 0 && written >= pauseAfter) {
        pauseAfter = -1;
        // Put the half-written bytes on disk, as a crash after a partial
        // write-back would leave them.
        target->Flush();
        Pause(written);
    }
}

bool LxCliSaveStream::Seek(int64_t offset, LxSeekOrigin origin) { return target && target->Seek(offset, origin); }

int64_t LxCliSaveStream::GetPosition() const { return target ? target->GetPosition() : 0; }

int64_t LxCliSaveStream::GetLength() const { return target ? target->GetLength() : 0; }

bool LxCliSaveStream::Truncate() { return target && target->Truncate(); }

bool LxCliSaveStream::Flush() { return target && target->Flush(); }

bool LxCliSaveStream::Sync() { return target && target->Sync(); }

void LxCliSaveStream::Close() {
    if (target) target->Close();
}
