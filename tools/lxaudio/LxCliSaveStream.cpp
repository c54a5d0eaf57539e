#include "LxCliSaveStream.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

LxCliSaveStream::LxCliSaveStream(std::unique_ptr<ILxReadWriteStream> target)
    : target_(std::move(target)),
      pauseAfter_(PausePoint()),
      targetFailures_([this] { return target_ ? target_->GetWriteFailures() : 0; }) {}

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

bool LxCliSaveStream::IsOpen() const { return target_ && target_->IsOpen(); }

int LxCliSaveStream::Read(void* buffer, int bytes) { return target_ ? target_->Read(buffer, bytes) : 0; }

int LxCliSaveStream::Write(const void* buffer, int bytes) {
    if (!target_) return 0;
    int done = target_->Write(buffer, bytes);
    if (done > 0) written_ += done;
    if (done != bytes) writeFailed_ = true;
    if (pauseAfter_ >= 0 && written_ >= pauseAfter_) {
        pauseAfter_ = -1;
        // Put the half-written bytes on disk, as a crash after a partial
        // write-back would leave them.
        target_->Flush();
        Pause(written_);
    }
    return done;
}

bool LxCliSaveStream::Seek(int64_t offset, LxSeekOrigin origin) { return target_ && target_->Seek(offset, origin); }

int64_t LxCliSaveStream::GetPosition() const { return target_ ? target_->GetPosition() : 0; }

int64_t LxCliSaveStream::GetLength() const { return target_ ? target_->GetLength() : 0; }

bool LxCliSaveStream::Truncate() { return target_ && target_->Truncate(); }

bool LxCliSaveStream::Flush() { return target_ && target_->Flush(); }

bool LxCliSaveStream::Sync() { return target_ && target_->Sync(); }

void LxCliSaveStream::Close() {
    if (target_) target_->Close();
}
