#pragma once
// The recording mixer of an ALSA card (its simple mixer elements). The
// recording source lines are the items of the card's capture source selector
// ("Capture Source", "Input Source") when it has one, otherwise its elements
// with a capture switch. Volumes go to the line's own capture volume, or to the
// card's capture volume when the line has none.
#include <alsa/asoundlib.h>
#include <memory>
#include <vector>
#include "LxPublic/LxString.h"
#include "LxPublic/wave/LxWaveMixer.h"
#include "LxPublic/wave/LxWaveResult.h"

class LxAlsaWaveMixer : public LxWaveMixer {
public:
    // Null when the control device cannot be opened.
    static std::unique_ptr<LxAlsaWaveMixer> Open(const LxString& controlName);
    // The control device that goes with a PCM name ("hw:CARD=x" for a card's PCM,
    // "default" otherwise).
    static LxString ControlNameOfPcm(const LxString& pcmName);
    ~LxAlsaWaveMixer() override;

    int SelectRecordingLine(unsigned line) override;
    int SetRecordingLineVolume(unsigned line, float volume) override;
    int GetRecordingLineVolume(unsigned line, float& volume) override;

    std::vector<LxString> GetRecordingLineNames();
    int SetPlaybackVolume(float volume);
    int GetPlaybackVolume(float& volume);

private:
    explicit LxAlsaWaveMixer(snd_mixer_t* handle);
    snd_mixer_elem_t* SourceSelector();
    std::vector<snd_mixer_elem_t*> SwitchLines();
    snd_mixer_elem_t* CaptureVolumeOf(unsigned line);
    snd_mixer_elem_t* PlaybackVolume();

    snd_mixer_t* mixer;
};
