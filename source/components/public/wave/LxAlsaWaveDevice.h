#pragma once
// A PCM of the ALSA driver (either direction) with a driver thread of its own.
// The thread takes the queued buffers in order and writes (reads) each one with
// a blocking snd_pcm_writei (snd_pcm_readi), recovering from under- and
// overruns without losing a queued buffer. A recorded buffer is done when it is
// full; a played buffer is done once the PCM has played past its last frame
// (its delay says so), so that resetting after the last done buffer cuts
// nothing that was still to be heard. Every snd_pcm call after open is made on
// the driver thread; the device calls hand it commands and wait for them.
#include <alsa/asoundlib.h>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include "LxPublic/LxString.h"
#include "LxPublic/wave/LxWaveDevice.h"
#include "LxPublic/wave/LxWaveEvent.h"
#include "LxPublic/wave/LxWaveFormat.h"

class LxAlsaWaveDevice : public LxWaveDevice {
public:
    static constexpr snd_pcm_uframes_t kPeriodFrames = 4410;
    static constexpr snd_pcm_uframes_t kPeriods = 4;

    static int Open(const LxString& pcmName, bool input, const LxWaveFormat& format, LxWaveEvent& event,
                    std::unique_ptr<LxWaveDevice>& device);
    ~LxAlsaWaveDevice() override;

    int Prepare(LxWaveHeader& header) override;
    int Unprepare(LxWaveHeader& header) override;
    int Queue(LxWaveHeader& header) override;
    int Start() override;
    int Stop() override;
    int Reset() override;
    int GetPosition(uint32_t& frames) override;
    int Close() override;
    bool IsDone(const LxWaveHeader& header) const override;
    uint32_t GetBytesRecorded(const LxWaveHeader& header) const override;

    const LxString& GetPcmName() const { return pcmName; }

private:
    enum Command { kNone, kStop, kReset, kQuit };
    struct Queued {
        LxWaveHeader* header;
        // Output: frame count of everything written up to the end of this buffer (0 until written).
        uint64_t endFrame;
        bool written;
    };

    LxAlsaWaveDevice(snd_pcm_t* pcm, const LxString& name, bool input, const LxWaveFormat& format,
                     LxWaveEvent& event);
    int RunCommand(Command command);
    void Run();
    void HandleCommand(std::unique_lock<std::mutex>& lock);
    void RunOutput(std::unique_lock<std::mutex>& lock);
    void RunInput(std::unique_lock<std::mutex>& lock);
    // Blocking transfer of a whole buffer; the frames moved (fewer on a hard error).
    snd_pcm_uframes_t Transfer(unsigned char* data, snd_pcm_uframes_t frames);
    // Output: marks done the written buffers that the PCM has played.
    void CompletePlayed();
    void MarkDone(LxWaveHeader& header);

    snd_pcm_t* pcm;
    const LxString pcmName;
    const bool input;
    const LxWaveFormat format;
    LxWaveEvent& event;

    std::mutex mutex;
    std::condition_variable wake;
    std::condition_variable commandDone;
    std::deque<Queued> queue;
    Command command = kNone;
    int commandResult = 0;
    bool started = false;
    bool open = true;
    bool failed = false;
    uint64_t framesWritten = 0;
    std::atomic<uint64_t> framesPlayed{0};
    std::thread thread;
};
