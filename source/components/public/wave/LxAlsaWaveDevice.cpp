#include "LxAlsaWaveDevice.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace {

// Set up the PCM for interleaved 16-bit transfers in 100 ms periods, with room
// for a few periods: the file plugin skips its input when asked for more than
// its buffer holds, and a deeper buffer only adds latency.
int Configure(snd_pcm_t* pcm, bool input, const LxWaveFormat& format) {
    if (format.bitsPerSample != 16 || format.channels < 1) return kLxWaveBadFormat;
    snd_pcm_hw_params_t* hw = nullptr;
    snd_pcm_hw_params_alloca(&hw);
    if (snd_pcm_hw_params_any(pcm, hw) < 0) return kLxWaveError;
    if (snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED) < 0) return kLxWaveBadFormat;
    if (snd_pcm_hw_params_set_format(pcm, hw, SND_PCM_FORMAT_S16_LE) < 0) return kLxWaveBadFormat;
    if (snd_pcm_hw_params_set_channels(pcm, hw, static_cast<unsigned>(format.channels)) < 0) return kLxWaveBadFormat;
    unsigned rate = static_cast<unsigned>(format.framesPerSecond);
    if (snd_pcm_hw_params_set_rate_near(pcm, hw, &rate, nullptr) < 0 ||
        rate != static_cast<unsigned>(format.framesPerSecond)) {
        return kLxWaveBadFormat;
    }
    snd_pcm_uframes_t period = LxAlsaWaveDevice::kPeriodFrames;
    int direction = 0;
    snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, &direction);
    snd_pcm_uframes_t bufferFrames = LxAlsaWaveDevice::kPeriodFrames * LxAlsaWaveDevice::kPeriods;
    snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &bufferFrames);
    if (snd_pcm_hw_params(pcm, hw) < 0) return kLxWaveBadFormat;

    snd_pcm_sw_params_t* sw = nullptr;
    snd_pcm_sw_params_alloca(&sw);
    if (snd_pcm_sw_params_current(pcm, sw) == 0) {
        // Start as soon as there is something to play (or someone reads).
        snd_pcm_sw_params_set_start_threshold(pcm, sw, 1);
        snd_pcm_sw_params_set_avail_min(pcm, sw, input ? period : 1);
        snd_pcm_sw_params(pcm, sw);
    }
    return snd_pcm_prepare(pcm) < 0 ? kLxWaveError : kLxWaveOk;
}

}  // namespace

int LxAlsaWaveDevice::Open(const LxString& name, bool isInput, const LxWaveFormat& format, LxWaveEvent& event,
                           std::unique_ptr<LxWaveDevice>& device) {
    snd_pcm_t* pcm = nullptr;
    // Opened non-blocking so that a busy device fails at once instead of
    // waiting; transfers block.
    int error = snd_pcm_open(&pcm, name.c_str(), isInput ? SND_PCM_STREAM_CAPTURE : SND_PCM_STREAM_PLAYBACK,
                             SND_PCM_NONBLOCK);
    if (error < 0) return error == -EBUSY ? kLxWaveAllocated : kLxWaveBadDeviceID;
    int result = snd_pcm_nonblock(pcm, 0) < 0 ? kLxWaveError : Configure(pcm, isInput, format);
    if (result != kLxWaveOk) {
        snd_pcm_close(pcm);
        return result;
    }
    device.reset(new LxAlsaWaveDevice(pcm, name, isInput, format, event));
    return kLxWaveOk;
}

LxAlsaWaveDevice::LxAlsaWaveDevice(snd_pcm_t* handle, const LxString& name, bool isInput,
                                   const LxWaveFormat& waveFormat, LxWaveEvent& doneEvent)
    : pcm(handle), pcmName(name), input(isInput), format(waveFormat), event(doneEvent) {
    thread = std::thread([this] { Run(); });
}

LxAlsaWaveDevice::~LxAlsaWaveDevice() {
    bool stillOpen = false;
    {
        std::lock_guard<std::mutex> lock(mutex);
        stillOpen = open;
    }
    if (!stillOpen) return;
    RunCommand(kReset);
    RunCommand(kQuit);
    if (thread.joinable()) thread.join();
    snd_pcm_close(pcm);
}

int LxAlsaWaveDevice::Prepare(LxWaveHeader& header) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    if (header.data == nullptr) return kLxWaveInvalidParameter;
    header.flags |= LxWaveHeader::kPrepared;
    return kLxWaveOk;
}

int LxAlsaWaveDevice::Unprepare(LxWaveHeader& header) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    if (header.flags & LxWaveHeader::kInQueue) return kLxWaveStillPlaying;
    header.flags &= ~LxWaveHeader::kPrepared;
    return kLxWaveOk;
}

int LxAlsaWaveDevice::Queue(LxWaveHeader& header) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    if (!(header.flags & LxWaveHeader::kPrepared)) return kLxWaveUnprepared;
    if (header.flags & LxWaveHeader::kInQueue) return kLxWaveStillPlaying;
    header.bytesRecorded = 0;
    header.flags = LxWaveHeader::kPrepared | LxWaveHeader::kInQueue;
    queue.push_back({&header, 0, false});
    wake.notify_all();
    return kLxWaveOk;
}

int LxAlsaWaveDevice::Start() {
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    // The first read starts the capture.
    if (input) started = true;
    wake.notify_all();
    return kLxWaveOk;
}

int LxAlsaWaveDevice::Stop() { return input ? RunCommand(kStop) : kLxWaveOk; }

int LxAlsaWaveDevice::Reset() { return RunCommand(kReset); }

int LxAlsaWaveDevice::GetPosition(uint32_t& frames) {
    std::lock_guard<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    frames = static_cast<uint32_t>(framesPlayed.load());
    return kLxWaveOk;
}

int LxAlsaWaveDevice::Close() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!open) return kLxWaveInvalidHandle;
        if (!queue.empty()) return kLxWaveStillPlaying;
    }
    RunCommand(kQuit);
    if (thread.joinable()) thread.join();
    snd_pcm_close(pcm);
    return kLxWaveOk;
}

bool LxAlsaWaveDevice::IsDone(const LxWaveHeader& header) const {
    return (header.flags.load() & LxWaveHeader::kDone) != 0;
}

uint32_t LxAlsaWaveDevice::GetBytesRecorded(const LxWaveHeader& header) const {
    return header.bytesRecorded.load();
}

int LxAlsaWaveDevice::RunCommand(Command wanted) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!open) return kLxWaveInvalidHandle;
    commandDone.wait(lock, [this] { return command == kNone; });
    command = wanted;
    wake.notify_all();
    commandDone.wait(lock, [this] { return command == kNone; });
    if (wanted == kQuit) open = false;
    return commandResult;
}

void LxAlsaWaveDevice::Run() {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        if (command == kQuit) {
            commandResult = kLxWaveOk;
            command = kNone;
            commandDone.notify_all();
            return;
        }
        if (command != kNone) {
            HandleCommand(lock);
        } else if (input) {
            RunInput(lock);
        } else {
            RunOutput(lock);
        }
    }
}

void LxAlsaWaveDevice::HandleCommand(std::unique_lock<std::mutex>&) {
    // Stop and reset drop what the PCM holds and leave it ready to start again.
    started = false;
    snd_pcm_drop(pcm);
    int prepared = snd_pcm_prepare(pcm);
    if (command == kReset) {
        bool any = !queue.empty();
        for (Queued& entry : queue) {
            entry.header->bytesRecorded = 0;
            MarkDone(*entry.header);
        }
        queue.clear();
        framesWritten = 0;
        framesPlayed = 0;
        if (any) event.Set();
    }
    failed = prepared < 0;
    commandResult = kLxWaveOk;
    command = kNone;
    commandDone.notify_all();
}

void LxAlsaWaveDevice::RunOutput(std::unique_lock<std::mutex>& lock) {
    if (failed) {
        // The PCM is gone: buffers are handed back unplayed, so that whoever
        // plays reaches its end instead of waiting for ever.
        bool any = !queue.empty();
        for (Queued& entry : queue) MarkDone(*entry.header);
        queue.clear();
        if (any) event.Set();
        wake.wait(lock);
        return;
    }
    auto next = std::find_if(queue.begin(), queue.end(), [](const Queued& entry) { return !entry.written; });
    if (next == queue.end()) {
        if (queue.empty()) {
            wake.wait(lock);
        } else {
            // Everything is written: look again when some of it has been played.
            wake.wait_for(lock, std::chrono::milliseconds(10));
            CompletePlayed();
        }
        return;
    }
    LxWaveHeader* header = next->header;
    auto frames = static_cast<snd_pcm_uframes_t>(header->bufferLength / static_cast<uint32_t>(format.BlockAlign()));
    lock.unlock();
    snd_pcm_uframes_t moved = Transfer(header->data, frames);
    lock.lock();
    framesWritten += moved;
    // Only this thread removes entries, so the buffer is still queued.
    for (Queued& entry : queue) {
        if (entry.header == header) {
            entry.written = true;
            entry.endFrame = framesWritten;
            break;
        }
    }
    if (moved < frames) failed = true;
    CompletePlayed();
}

void LxAlsaWaveDevice::RunInput(std::unique_lock<std::mutex>& lock) {
    if (!started || queue.empty() || failed) {
        wake.wait(lock);
        return;
    }
    LxWaveHeader* header = queue.front().header;
    auto frames = static_cast<snd_pcm_uframes_t>(header->bufferLength / static_cast<uint32_t>(format.BlockAlign()));
    lock.unlock();
    snd_pcm_uframes_t moved = Transfer(header->data, frames);
    lock.lock();
    if (moved == 0) {
        // Nothing could be read: the buffer stays queued, and stays empty,
        // rather than coming back as an empty recording.
        failed = true;
        return;
    }
    queue.pop_front();
    header->bytesRecorded = static_cast<uint32_t>(moved) * static_cast<uint32_t>(format.BlockAlign());
    framesPlayed += moved;
    MarkDone(*header);
    event.Set();
}

snd_pcm_uframes_t LxAlsaWaveDevice::Transfer(unsigned char* data, snd_pcm_uframes_t frames) {
    const auto blockAlign = static_cast<size_t>(format.BlockAlign());
    snd_pcm_uframes_t done = 0;
    int recoveries = 0;
    while (done < frames) {
        unsigned char* at = data + done * blockAlign;
        snd_pcm_sframes_t n = input ? snd_pcm_readi(pcm, at, frames - done) : snd_pcm_writei(pcm, at, frames - done);
        if (n > 0) {
            done += static_cast<snd_pcm_uframes_t>(n);
            continue;
        }
        if (n == 0 || n == -EAGAIN) {
            if (++recoveries > 1000) break;
            continue;
        }
        // An underrun (overrun) or a suspend: recover and carry on with the same buffer.
        if ((n == -EPIPE || n == -ESTRPIPE || n == -EINTR) && ++recoveries <= 100 &&
            snd_pcm_recover(pcm, static_cast<int>(n), 1) == 0) {
            continue;
        }
        break;
    }
    return done;
}

void LxAlsaWaveDevice::CompletePlayed() {
    uint64_t played = framesWritten;
    snd_pcm_sframes_t delay = 0;
    snd_pcm_state_t state = snd_pcm_state(pcm);
    if (state == SND_PCM_STATE_RUNNING || state == SND_PCM_STATE_DRAINING) {
        if (snd_pcm_delay(pcm, &delay) == 0 && delay > 0) {
            played = framesWritten > static_cast<uint64_t>(delay) ? framesWritten - static_cast<uint64_t>(delay) : 0;
        }
    } else if (state == SND_PCM_STATE_PREPARED && framesWritten > 0) {
        // Written but not started (a recovery left it prepared): start it.
        snd_pcm_start(pcm);
        if (snd_pcm_delay(pcm, &delay) == 0 && delay > 0) {
            played = framesWritten > static_cast<uint64_t>(delay) ? framesWritten - static_cast<uint64_t>(delay) : 0;
        }
    }
    // In any other state (an underrun) everything written has been played.
    framesPlayed = played;
    bool any = false;
    while (!queue.empty() && queue.front().written && queue.front().endFrame <= played) {
        MarkDone(*queue.front().header);
        queue.pop_front();
        any = true;
    }
    if (any) event.Set();
}

void LxAlsaWaveDevice::MarkDone(LxWaveHeader& header) {
    header.flags = (header.flags & ~LxWaveHeader::kInQueue) | LxWaveHeader::kDone;
}
