#pragma once
// The file a capture journal is kept in: every captured buffer as it arrived,
// so that a recording can be rebuilt after the process that made it is gone.
//
// Layout (little-endian):
//   header, 24 bytes: "LXCJ", version (u32, 1), start time (i64, milliseconds
//       since 1970-01-01 UTC), reserved (u32, 0), CRC-32 of the 20 bytes before;
//   buffer record, 32 bytes + data: "LXCB", data bytes (u32), channels (u16),
//       bits per sample (u16), frames per second (u32), volume (f32),
//       time stamp (u64, the capture's 100 ns ticks), CRC-32 of the 28 bytes
//       before and of the data; then the data (signed 16-bit PCM);
//   end record, 12 bytes: "LXCE", clip ID (i32) the capture was stored as,
//       CRC-32 of the 8 bytes before.
// A record is appended whole and handed to the operating system at once; a
// record cut short by a kill, or damaged, ends what the journal is taken to hold.
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>
#include "LxAudioConstants.h"
#include "LxAudioInterruptedRecording.h"
#include "LxPublic/ILxReadWriteStream.h"
#include "LxPublic/LxFile.h"

class LxAudioCaptureData;

class LxAudioCaptureJournalFile {
public:
    static constexpr const char* kSuffix = ".lxcj";
    // A buffer record larger than this is damage (devices hand over 100 ms).
    static constexpr uint32_t kMaxBufferBytes = 1u << 22;

    struct Buffer {
        std::vector<unsigned char> pcm;
        int channels = 1;
        int bitsPerSample = 16;
        int framesPerSecond = kLxFrameRate;
        float volume = 1.0f;
    };

    LxAudioCaptureJournalFile() = default;
    ~LxAudioCaptureJournalFile();
    LxAudioCaptureJournalFile(const LxAudioCaptureJournalFile&) = delete;
    LxAudioCaptureJournalFile& operator=(const LxAudioCaptureJournalFile&) = delete;

    // --- writing ------------------------------------------------------------------
    // Creates the file with its header, forced to disk. False when it cannot.
    bool Create(const LxFile& journalFile, int64_t startTimeMS);
    // Appends one buffer record and hands it to the operating system.
    bool AppendBuffer(const LxAudioCaptureData& item);
    bool AppendEnd(int clipID);
    // Forces what was appended to stable storage.
    bool Sync();
    void Close();
    const LxFile& GetFile() const { return file; }
    // Audio bytes appended so far.
    int64_t GetAudioBytes() const { return audioBytes; }

    // --- reading ------------------------------------------------------------------
    // Reads a journal: its header into info (start time, ended), then every
    // intact buffer record in order, handing each to visit (when set) and
    // counting its frames into info. damageOffset receives the byte position
    // where the intact records end when something other than a clean end or a
    // record cut short at the end of the file stops the reading (a read that
    // failed included; -1 otherwise).
    // False when the header itself cannot be read (info.readable is then false).
    static bool Read(const LxFile& file, LxAudioInterruptedRecording& info,
                     const std::function<void(const Buffer&)>& visit, int64_t& damageOffset);

private:
    bool WriteRecord(const std::vector<unsigned char>& bytes);

    LxFile file;
    std::unique_ptr<ILxReadWriteStream> stream;
    int64_t audioBytes = 0;
};
