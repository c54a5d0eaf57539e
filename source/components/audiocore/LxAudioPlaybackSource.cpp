#include "LxAudioPlaybackSource.h"

LxAudioPlaybackSource::LxAudioPlaybackSource(int key, LxAudioFile* file, std::unique_ptr<LxAudioClip> owned,
                                             ILxAudioPlaybackClip* playable)
    : clipID(key), audioFile(file), ownedClip(std::move(owned)), clip(playable) {}

LxAudioPlaybackSource::~LxAudioPlaybackSource() = default;
