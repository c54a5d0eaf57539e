#pragma once
// The PCM format a wave device is opened with: integer samples, interleaved.
struct LxWaveFormat {
    int channels = 1;
    int framesPerSecond = 44100;
    int bitsPerSample = 16;

    int BlockAlign() const { return channels * (bitsPerSample / 8); }
    int BytesPerSecond() const { return framesPerSecond * BlockAlign(); }
};
