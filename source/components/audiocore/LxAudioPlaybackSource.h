#pragma once
// What a playback device plays: the clip to read and the key under which the
// controller entered the playback (the clip ID, or 0 for a caller's own
// playable object), which the device hands to its stop function at the end.
#include <memory>
#include "ILxAudioPlaybackClip.h"
#include "LxAudioClip.h"

class LxAudioFile;

class LxAudioPlaybackSource {
public:
    // ownedClip, when given, is the clip made for this playback and clip is its
    // interface; otherwise clip is the caller's object, which must outlive the playback.
    LxAudioPlaybackSource(int clipID, LxAudioFile* audioFile, std::unique_ptr<LxAudioClip> ownedClip,
                          ILxAudioPlaybackClip* clip);
    ~LxAudioPlaybackSource();
    LxAudioPlaybackSource(const LxAudioPlaybackSource&) = delete;
    LxAudioPlaybackSource& operator=(const LxAudioPlaybackSource&) = delete;

    int GetClipID() const { return clipID; }
    ILxAudioPlaybackClip* GetClip() const { return clip; }
    LxAudioFile* GetAudioFile() const { return audioFile; }

private:
    int clipID;
    LxAudioFile* audioFile;
    std::unique_ptr<LxAudioClip> ownedClip;
    ILxAudioPlaybackClip* clip;
};
