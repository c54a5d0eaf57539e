#pragma once
// Output channels of a merged stream: mono, stereo, or (any other value but 0)
// chosen by the stream from its clips.
enum LxMergedOutputChannelsEnum : int {
    LxMergedOutputInvalid = 0,
    LxMergedOutputMono = 1,
    LxMergedOutputStereo = 2,
    LxMergedOutputChoose = 3,
};
