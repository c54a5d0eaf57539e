#pragma once
// Plays a short sound file (a RIFF WAVE file: a click, a chime, a recorded
// prompt) on the default output, independently of any project. On Windows the
// system plays it (PlaySoundW); elsewhere the player imports it into a small
// store of its own and plays it on the playback device. One sound at a time:
// a new one stops the one still playing.
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include "LxAudioCoreExport.h"
#include "LxPublic/LxCallBack.h"
#include "LxPublic/LxFile.h"

class LxAudioController;

class LXAUDIOCORE_API LxShortAudioPlayer {
public:
    LxShortAudioPlayer();
    // Stops the sound still playing.
    ~LxShortAudioPlayer();
    LxShortAudioPlayer(const LxShortAudioPlayer&) = delete;
    LxShortAudioPlayer& operator=(const LxShortAudioPlayer&) = delete;

    // Starts the sound and returns at once, or, with wait, returns after its
    // end. False when the file cannot be read as a sound or nothing could play it.
    bool Play(const LxFile& soundFile, bool wait = false);
    void Stop();

private:
#if !defined(_WIN32)
    static void OnPlayback(LxCallBack& callBack, void* context);
    // The clip of a file already imported, or a new import; -1 when it cannot be read.
    int ClipOf(const LxFile& soundFile);

    std::unique_ptr<LxAudioController> controller;
    std::map<LxString, int> clips;
    std::mutex mutex;
    std::condition_variable stopped;
    int playing = -1;
    bool started = false;
    bool ended = true;
#endif
};
