#include "LxCliSaveStream.h"

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
    if (done > 0) written += done;
    if (done != bytes) writeFailed = true;
    if (pauseAfter >= 0 && written >= pauseAfter) {
        pauseAfter = -1;
        // Put the half-written bytes on disk, as a crash after a partial
        // write-back would leave them.
        target->Flush();
        Pause(written);
    }
    return done;
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
