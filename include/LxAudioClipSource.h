#pragma once
// Where a clip's audio came from; stored with the clip.
enum LX_AUDIO_CLIP_SOURCE : int {
    LX_AUDIO_CLIP_SOURCE_OTHER = 0,      // loaded by ID, or made by editing or merging
    LX_AUDIO_CLIP_SOURCE_RECORDING = 1,  // captured from a sound card
    LX_AUDIO_CLIP_SOURCE_IMPORT = 2,     // imported from a file
};
