#pragma once
// An open WinMM wave device (HWAVEIN or HWAVEOUT). Each prepared LxWaveHeader
// carries a WAVEHDR of its own in driverData, over the header's bytes; the done
// flag and the recorded byte count are read from it.
#include <windows.h>
#include <mmsystem.h>

#include <map>
#include "LxPublic/wave/LxWaveDevice.h"

class LxWinMMWaveDevice : public LxWaveDevice {
public:
    LxWinMMWaveDevice(HWAVEIN input, HWAVEOUT output);
    ~LxWinMMWaveDevice() override;

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

    HWAVEIN GetInputHandle() const { return input; }

private:
    MMRESULT PrepareNative(WAVEHDR* native);
    MMRESULT UnprepareNative(WAVEHDR* native);

    HWAVEIN input;
    HWAVEOUT output;
    bool open = true;
    // Every WAVEHDR prepared and not yet unprepared, with the header that holds
    // it, so that closing can let go of them.
    std::map<WAVEHDR*, LxWaveHeader*> prepared;
    void ForgetPrepared();
};
