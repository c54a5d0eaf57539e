#pragma once
// The recording mixer of a WinMM wave-in device: its wave-in destination line,
// whose source lines are the recording sources. Selecting a line sets the
// destination's multiplexer (or mixer) control; a line's volume is its own
// volume control, or the destination's when it has none.
#include <windows.h>
#include <mmsystem.h>

#include <memory>
#include <vector>
#include "LxPublic/LxString.h"
#include "LxPublic/wave/LxWaveMixer.h"
#include "LxPublic/wave/LxWaveResult.h"

class LxWinMMWaveMixer : public LxWaveMixer {
public:
    // The mixer of an open wave-in handle, or of wave-in device deviceIndex; null when there is none.
    static std::unique_ptr<LxWinMMWaveMixer> OpenForHandle(HWAVEIN input);
    static std::unique_ptr<LxWinMMWaveMixer> OpenForDevice(unsigned deviceIndex);
    ~LxWinMMWaveMixer() override;

    int SelectRecordingLine(unsigned line) override;
    int SetRecordingLineVolume(unsigned line, float volume) override;
    int GetRecordingLineVolume(unsigned line, float& volume) override;
    std::vector<LxString> GetRecordingLineNames();

private:
    static std::unique_ptr<LxWinMMWaveMixer> Open(UINT_PTR id, DWORD flags);
    explicit LxWinMMWaveMixer(HMIXER handle);
    bool Destination(MIXERLINEW& line);
    bool Source(unsigned index, MIXERLINEW& line);
    bool Control(DWORD lineID, DWORD type, MIXERCONTROLW& control);

    HMIXER mixer;
};
