#pragma once
// The engine's fixed facts, each written once: the one format of the store,
// the thumbnail step, the reserved silent pages, and the arguments every
// member and project file stream is opened with.
#include "LxPCMData.h"

// Every page of the store, every capture and playback, every import's output:
// 44100 frames per second, 16-bit samples.
constexpr int kLxFrameRate = 44100;
constexpr float kLxFrameRateF = 44100.0f;
constexpr int kLxBitsPerSample = 16;
// Frames per thumbnail point (one min/max pair).
constexpr int kLxThumbnailFrames = 90;
// A whole number of frames of 8-, 16- and 24-bit mono and stereo: captured and
// appended PCM is cut to a multiple of it.
constexpr int kLxWholeFrameBlockBytes = 180;
// Every store begins with five silent mono pages of kLxMaxPageBytes (ten
// seconds), page IDs 0 to 144, from which clips cut their silence.
constexpr int kLxReservedSilentPages = 5;
constexpr int kLxLastReservedPage = (kLxReservedSilentPages - 1) * kLxPageRecordBytes;
constexpr int kLxFirstOrdinaryPage = kLxReservedSilentPages * kLxPageRecordBytes;
// The two buffer arguments every file stream of the engine and the tool is
// opened with (LxStreamUtil::CreateFileStreamReadWrite).
constexpr int kLxStreamBufferArgument = 0x3f3f3f3f;
