#pragma once
// A real signal for the simulated sound card. With LXAUDIO_WAVE_DRIVER=simulated
// the capture device records from a script of PCM held in memory; when
// LXAUDIO_SIMULATED_INPUT names an audio file (any WAV the importer reads, or
// Ogg Vorbis), `record` reads that file as the capture format (16-bit mono at
// 44100 Hz) and feeds it into the script before the capture starts, paced at
// real time: the capture receives one 100 ms buffer every 100 ms, as from a
// microphone, until the file ends (then it receives nothing more). This lets a
// machine without a sound card record, and lets tests and the demo record a
// known signal.
class LxCliAssertLog;

namespace LxCliSimulatedInput {

// Feeds the file named by LXAUDIO_SIMULATED_INPUT when the simulated driver is
// in use; returns the frames fed (0 when none is asked for). A file that cannot
// be read is a failure (LxCliFailure); the variable set for another driver
// gets a note on stderr and is ignored.
long long Feed(LxCliAssertLog& log);

}  // namespace LxCliSimulatedInput
