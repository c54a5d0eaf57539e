#pragma once
// Kinds of audio effect; the values are stored in clip records.
enum LxAudioEffectEnum : int {
    LxAudioEffectUnknown = 0,
    LxAudioEffectVolume = 1,
    LxAudioEffectFadeIn = 2,
    LxAudioEffectFadeOut = 3,
    LxAudioEffectNone = 4,
};
