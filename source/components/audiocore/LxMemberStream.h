#pragma once
// One member file of the store, opened for reading and writing for the life of
// the object, and its two saved forms: inside one stream (a 32-bit length and
// the bytes) and as numbered chunk files of at most 1 MiB in a directory. The
// object owns its stream and deletes its file when destroyed.
#include <memory>
#include <vector>
#include "LxAudioDamage.h"
#include "LxPublic/ILxReadWriteStream.h"
#include "LxPublic/LxFile.h"
#include "LxPublic/LxString.h"

class LxZipUpdateInfo;

class LxMemberStream {
public:
    static constexpr int kChunkBytes = 1048576;
    static constexpr int kCopyBlockBytes = 1024;

    // file is the member's path; name ("raw.lxa", ...) names its chunk files.
    LxMemberStream(const LxFile& file, const LxString& name);
    virtual ~LxMemberStream();
    LxMemberStream(const LxMemberStream&) = delete;
    LxMemberStream& operator=(const LxMemberStream&) = delete;

    ILxReadWriteStream* GetStream() const { return stream.get(); }
    const LxString& GetName() const { return name; }
    // Size in bytes; the position is left where it was. 0 without a stream.
    int GetSize();
    // Page records, clip ranges and the saved forms hold a member's positions
    // and length in 32 bits: a member never grows past kMaxBytes.
    static constexpr int64_t kMaxBytes = 2147483647;
    // Bytes the member can still grow by (0 without a stream).
    int64_t GetRoom();
    // Whether count more bytes fit; when they do not, an assertion report says
    // the store is full and names the member.
    bool CheckRoomFor(int64_t count);
    // Times CheckRoomFor said no since the member was made.
    int64_t GetRoomRefusals() const { return roomRefusals; }
    void Flush();
    void Close();
    // Seek to 0 and cut: an empty member.
    void Truncate();
    // Moves the member file to target (closing and reopening the stream around
    // the rename, so that it works on every OS); false, and the member left
    // where it was, when the rename fails.
    bool MoveTo(const LxFile& target);

    // A 32-bit length and the member's bytes.
    virtual bool WriteTo(ILxStream& out);
    // Replaces the member with length bytes of in; the caller has checked that
    // in holds them.
    virtual bool ReadFrom(ILxStream& in, int length);
    // Replaces the member with the length bytes at offset of a saved project,
    // read from there in place (LxInPlaceStream) rather than copied: the project
    // file must not change while the member reads it. What is written to the
    // member from then on goes into its own file.
    bool ReadInPlace(const std::shared_ptr<ILxReadWriteStream>& project, int64_t offset, int length);
    // Saves the member as chunk files NAME1, NAME2, ... (and NAME0 holding their
    // count when there are two or more), starting at byte start (< 1: the whole
    // member). Returns the member's length, which becomes the next start of an
    // incremental save.
    int SaveChunks(const LxFile& directory, int start, LxZipUpdateInfo* info);
    // Replaces the member with the chunk files of directory; returns the bytes read.
    int LoadChunks(const LxFile& directory);
    // Replaces the member with its chunk files in directory, as LoadChunks, but
    // goes on past damage and names it in findings: a missing chunk, or one of
    // the wrong length, is padded with zeros (or cut) to the length it should
    // have, so that the chunks after it keep their places. savedLengths, when
    // given (from an integrity record), are the lengths the chunks were saved
    // with; otherwise every chunk but the last should be 1 MiB, and the count
    // file says how many there are. Returns the bytes loaded.
    int LoadChunksChecked(const LxFile& directory, const std::vector<uint32_t>* savedLengths,
                          std::vector<LxAudioDamage>& findings);
    // Whether directory holds a whole saved member called name: NAME0 absent or
    // holding 2 or more, every chunk up to the count present, all but the last
    // exactly 1 MiB. total receives the member's length.
    static bool CheckChunks(const LxFile& directory, const LxString& name, int64_t& total);

    // Reads up to bytes at position (clamped to the member's end); the bytes read.
    int ReadAt(int64_t position, void* buffer, int bytes);

    // Failed reads or writes of the member's file since it was opened.
    int64_t GetFailures(bool writes) const;
    // Chunk files that failed while being saved, since the member was made.
    int64_t GetChunkWriteFailures() const { return chunkWriteFailures; }

protected:
    void CountChunkWrite(ILxReadWriteStream* out);
    // Called after the member's bytes were replaced wholesale (truncated,
    // loaded) or its file was closed or moved: a subclass that keeps copies of
    // what it read from the file drops them here.
    virtual void ContentsReplaced() {}

    std::unique_ptr<ILxReadWriteStream> stream;
    int64_t chunkWriteFailures = 0;
    LxFile file;
    LxString name;
    int64_t roomRefusals = 0;
};
