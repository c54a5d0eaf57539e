#pragma once
// Results of the wave driver calls. The values are those of the Windows
// multimedia API, so that the WinMM driver passes its results through unchanged
// and the device logic reads the same numbers on every platform.
enum LxWaveResult : int {
    kLxWaveOk = 0,
    kLxWaveError = 1,
    kLxWaveBadDeviceID = 2,
    kLxWaveAllocated = 4,
    kLxWaveInvalidHandle = 5,
    kLxWaveNoDriver = 6,
    kLxWaveNoMemory = 7,
    kLxWaveInvalidParameter = 11,
    kLxWaveBadFormat = 32,
    // Close refused: buffers are still queued (reset the device first).
    kLxWaveStillPlaying = 33,
    kLxWaveUnprepared = 34,
};
