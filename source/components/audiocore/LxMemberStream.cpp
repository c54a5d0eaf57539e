#include "LxMemberStream.h"

#include <algorithm>
#include <vector>
#include "LxAudioConstants.h"
#include "LxInPlaceStream.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxFileUtil.h"
#include "LxPublic/LxStreamUtil.h"
#include "LxPublic/LxZipUpdateInfo.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";

namespace {

// Copies bytes from one stream to another (inside the system when both are
// files); returns the bytes copied.
int64_t CopyBlocks(ILxStream& from, ILxStream& to, int64_t bytes) { return bytes > 0 ? from.CopyTo(to, bytes) : 0; }

LxFile ChunkFile(const LxFile& directory, const LxString& name, int number) {
    LxString fileName = name;
    fileName.AppendNumber(number);
    return directory.GetChild(fileName);
}

// Number of chunk files of a saved member: NAME0 holds it when there are two
// or more; otherwise there is at most NAME1.
int ReadChunkCount(const LxFile& directory, const LxString& name) {
    std::unique_ptr<ILxReadWriteStream> countFile = LxStreamUtil::CreateFileStreamRead(ChunkFile(directory, name, 0));
    if (!countFile) return 1;
    int32_t count = 1;
    if (!countFile->ReadInt32(count)) return 1;
    return count;
}

}  // namespace

LxMemberStream::LxMemberStream(const LxFile& memberFile, const LxString& memberName)
    : stream(LxStreamUtil::CreateFileStreamReadWrite(memberFile, 3, kLxStreamBufferArgument, kLxStreamBufferArgument)),
      file(memberFile),
      name(memberName) {}

LxMemberStream::~LxMemberStream() {
    stream.reset();
    file.Delete();
}

int LxMemberStream::GetSize() {
    if (!stream) return 0;
    int64_t position = stream->GetPosition();
    stream->Seek(0, kLxSeekEnd);
    int64_t size = stream->GetPosition();
    stream->Seek(position, kLxSeekBegin);
    return static_cast<int>(std::min<int64_t>(size, INT32_MAX));
}

int64_t LxMemberStream::GetRoom() {
    // GetSize never reads more than kMaxBytes.
    return stream ? kMaxBytes - GetSize() : 0;
}

bool LxMemberStream::CheckRoomFor(int64_t count) {
    if (count <= GetRoom()) return true;
    ++roomRefusals;
    LxAssertFailed(("the store is full: " + name.str() + " would pass 2 GiB").c_str(),
                   "source/components/audiocore/LxMemberStream", __LINE__);
    return false;
}

void LxMemberStream::Flush() {
    if (stream) stream->Flush();
}

void LxMemberStream::Close() {
    if (stream) stream->Close();
    ContentsReplaced();
}

void LxMemberStream::Truncate() {
    if (!stream) return;
    stream->Seek(0, kLxSeekBegin);
    stream->Truncate();
    ContentsReplaced();
}

bool LxMemberStream::MoveTo(const LxFile& target) {
    if (!stream) return false;
    stream->Flush();
    // A member read in place keeps its project file across the move.
    std::shared_ptr<ILxReadWriteStream> base;
    int64_t baseOffset = 0, baseLength = 0;
    if (auto* inPlace = dynamic_cast<LxInPlaceStream*>(stream.get())) {
        base = inPlace->GetBase();
        baseOffset = inPlace->GetBaseOffset();
        baseLength = inPlace->GetBaseLength();
    }
    stream.reset();
    bool moved = file.RenameTo(target);
    if (moved) file = target;
    stream = LxStreamUtil::CreateFileStreamReadWrite(file, 3, kLxStreamBufferArgument, kLxStreamBufferArgument);
    if (stream && base) stream = std::make_unique<LxInPlaceStream>(std::move(stream), base, baseOffset, baseLength);
    ContentsReplaced();
    return moved && stream != nullptr;
}

bool LxMemberStream::ReadInPlace(const std::shared_ptr<ILxReadWriteStream>& project, int64_t offset, int length) {
    if (!stream) return false;
    Truncate();
    if (auto* inPlace = dynamic_cast<LxInPlaceStream*>(stream.get())) stream = inPlace->TakeOwn();
    if (!stream) {
        stream = LxStreamUtil::CreateFileStreamReadWrite(file, 3, kLxStreamBufferArgument, kLxStreamBufferArgument);
        if (!stream) return false;
    }
    if (length > 0) stream = std::make_unique<LxInPlaceStream>(std::move(stream), project, offset, length);
    ContentsReplaced();
    return true;
}

int LxMemberStream::ReadAt(int64_t position, void* buffer, int bytes) {
    if (!stream || position < 0 || bytes <= 0) return 0;
    const int64_t size = GetSize();
    if (position >= size) return 0;
    stream->Seek(position, kLxSeekBegin);
    stream->SetWriting(false);
    return stream->Read(buffer, static_cast<int>(std::min<int64_t>(bytes, size - position)));
}

bool LxMemberStream::WriteTo(ILxStream& out) {
    int32_t length = stream ? GetSize() : 0;
    if (!out.WriteInt32(length)) return false;
    if (length == 0) return true;
    stream->Seek(0, kLxSeekBegin);
    stream->SetWriting(false);
    return CopyBlocks(*stream, out, length) == length;
}

bool LxMemberStream::ReadFrom(ILxStream& in, int length) {
    if (!stream) return false;
    Truncate();
    stream->SetWriting(true);
    const bool complete = CopyBlocks(in, *stream, length) == length;
    ContentsReplaced();
    return complete;
}

void LxMemberStream::CountChunkWrite(ILxReadWriteStream* out) {
    // A chunk file that could not be opened, or took less than it was given,
    // leaves a directory that would load damaged.
    if (out == nullptr || !out->Sync() || out->GetWriteFailures() > 0) ++chunkWriteFailures;
}

int64_t LxMemberStream::GetFailures(bool writes) const {
    if (!stream) return 0;
    return writes ? stream->GetWriteFailures() : stream->GetReadFailures();
}

int LxMemberStream::SaveChunks(const LxFile& directory, int start, LxZipUpdateInfo* info) {
    int size = GetSize();
    if (!stream) return size;
    int previousCount = ReadChunkCount(directory, name);
    int chunk = 0;  // number of the last chunk file written
    if (start > 0) {
        if (start > size) {
            LxAssertFailed("", kSourceFile, __LINE__);
            return size;
        }
        chunk = start / kChunkBytes;
        int offset = start % kChunkBytes;
        // What the last save left must still be there: the partly written chunk
        // with exactly offset bytes, or else the last full chunk. Appending to
        // anything else would leave a member that loads damaged, so it is saved
        // whole instead.
        LxFile partial = ChunkFile(directory, name, chunk + 1);
        bool intact = offset != 0 ? partial.GetLength() == offset
                                  : ChunkFile(directory, name, chunk).GetLength() == kChunkBytes;
        if (!intact) {
            LxAssertFailed("", kSourceFile, __LINE__);
            return SaveChunks(directory, 0, info);
        }
        stream->Seek(start, kLxSeekBegin);
        stream->SetWriting(false);
        if (offset != 0) {
            int bytes = std::min(kChunkBytes - offset, size - start);
            // Nothing to append, nothing changed: the chunk is not touched, and a
            // host that packs the directory need not store it again.
            if (bytes > 0) {
                // Complete the partly written chunk by appending to it.
                std::unique_ptr<ILxReadWriteStream> out =
                    LxStreamUtil::CreateFileStreamReadWrite(partial, 3, kLxStreamBufferArgument, kLxStreamBufferArgument);
                if (out) {
                    out->Seek(offset, kLxSeekBegin);
                    out->Truncate();
                    out->SetWriting(true);
                    CopyBlocks(*stream, *out, bytes);
                }
                CountChunkWrite(out.get());
                if (info) info->changedFiles.push_back(partial.GetName());
            }
            ++chunk;
        }
    } else {
        stream->Seek(0, kLxSeekBegin);
        stream->SetWriting(false);
    }
    // The rest goes into fresh chunk files.
    int64_t position = stream->GetPosition();
    while (position < size) {
        ++chunk;
        LxFile target = ChunkFile(directory, name, chunk);
        bool existed = target.Exists();
        std::unique_ptr<ILxReadWriteStream> out =
            LxStreamUtil::CreateFileStreamReadWrite(target, kLxStreamWrite, kLxStreamBufferArgument, kLxStreamBufferArgument);
        int64_t bytes = std::min<int64_t>(kChunkBytes, size - position);
        if (out) {
            out->SetWriting(true);
            CopyBlocks(*stream, *out, bytes);
        }
        CountChunkWrite(out.get());
        position += bytes;
        stream->Seek(position, kLxSeekBegin);
        if (info) (existed ? info->changedFiles : info->addedFiles).push_back(target.GetName());
    }
    LxFile countFile = ChunkFile(directory, name, 0);
    if (chunk < 2) {
        if (countFile.Exists()) {
            countFile.Delete();
            if (info) info->deletedFiles.push_back(countFile.GetName());
        }
    } else {
        // Written on every save of two or more chunks, and reported as every chunk file written.
        bool existed = countFile.Exists();
        std::unique_ptr<ILxReadWriteStream> out =
            LxStreamUtil::CreateFileStreamReadWrite(countFile, kLxStreamWrite, kLxStreamBufferArgument, kLxStreamBufferArgument);
        if (out) out->WriteInt32(chunk);
        CountChunkWrite(out.get());
        if (info) (existed ? info->changedFiles : info->addedFiles).push_back(countFile.GetName());
    }
    // Chunks left over from a longer earlier save. The count comes from a file,
    // so it does not size the loop: chunks are numbered without gaps, and the
    // first one missing ends the leftovers.
    for (int stale = chunk + 1; stale <= previousCount; ++stale) {
        LxFile old = ChunkFile(directory, name, stale);
        if (!old.Exists()) break;
        old.Delete();
        if (info) info->deletedFiles.push_back(old.GetName());
    }
    return size;
}

bool LxMemberStream::CheckChunks(const LxFile& directory, const LxString& name, int64_t& total) {
    total = 0;
    bool counted = ChunkFile(directory, name, 0).Exists();
    int count = ReadChunkCount(directory, name);
    // NAME0 exists only for two or more chunks, and 32-bit positions cannot
    // name more than 2047 of them.
    if (counted && (count < 2 || count > INT32_MAX / kChunkBytes)) return false;
    for (int number = 1; number <= count; ++number) {
        int64_t length = ChunkFile(directory, name, number).GetLength();
        if (length < 0) return !counted && number == 1;  // no NAME1 alone: an empty member
        // Every chunk but the last is full; the last holds at least a byte
        // unless it is the only one.
        if (length > kChunkBytes || (number < count && length != kChunkBytes) || (counted && length == 0)) {
            return false;
        }
        total += length;
    }
    return total <= INT32_MAX;
}

int LxMemberStream::LoadChunksChecked(const LxFile& directory, const std::vector<uint32_t>* savedLengths,
                                      std::vector<LxAudioDamage>& findings) {
    if (!stream) return 0;
    Truncate();
    stream->SetWriting(true);
    const std::string member = name.str();
    auto note = [&](int chunk, const std::string& what) {
        findings.push_back({member, chunk, member + std::to_string(chunk), what});
    };
    // 32-bit positions cannot name more than 2047 chunks.
    constexpr int kMaxChunks = INT32_MAX / kChunkBytes;
    const LxFile countFile = ChunkFile(directory, name, 0);
    const bool counted = countFile.Exists();
    const int written = ReadChunkCount(directory, name);
    int count = 0;
    if (savedLengths) {
        count = static_cast<int>(savedLengths->size());
        if (count >= 2 && !counted) {
            note(0, "missing");
        } else if (count >= 2 && (written != count || countFile.GetLength() != 4)) {
            note(0, "says " + std::to_string(written) + " chunks, " + std::to_string(count) + " saved");
        } else if (count < 2 && counted) {
            note(0, "should not be there: " + std::to_string(count) + " chunk file(s) saved");
        }
    } else if (counted && (written < 2 || written > kMaxChunks || countFile.GetLength() != 4)) {
        note(0, "holds an impossible count (" + std::to_string(written) + ")");
        while (count < kMaxChunks && ChunkFile(directory, name, count + 1).Exists()) ++count;
    } else {
        count = written;
    }
    std::vector<unsigned char> zeros(kCopyBlockBytes, 0);
    int64_t total = 0;
    for (int number = 1; number <= count; ++number) {
        const LxFile chunk = ChunkFile(directory, name, number);
        const int64_t length = chunk.GetLength();
        int64_t expected = -1;  // unknown: the last chunk of a member saved without a record
        if (savedLengths) {
            expected = (*savedLengths)[static_cast<size_t>(number - 1)];
        } else if (number < count) {
            expected = kChunkBytes;
        }
        if (length < 0) {
            if (!savedLengths && !counted && number == 1) break;  // no chunk at all: an empty member
            note(number, "missing");
        } else if (expected >= 0 && length != expected) {
            note(number, "holds " + std::to_string(length) + " bytes, " + std::to_string(expected) +
                             (savedLengths ? " saved" : " expected"));
        } else if (length > kChunkBytes) {
            note(number, "holds " + std::to_string(length) + " bytes, more than a chunk can");
        }
        const int64_t take = std::min<int64_t>({std::max<int64_t>(length, 0), kChunkBytes,
                                                expected >= 0 ? expected : kChunkBytes});
        if (total + std::max(take, expected) > INT32_MAX) {
            note(number, "lies beyond the largest member there can be");
            break;
        }
        if (take > 0) {
            std::unique_ptr<ILxReadWriteStream> in = LxStreamUtil::CreateFileStreamRead(chunk);
            const int64_t copied = in ? CopyBlocks(*in, *stream, take) : 0;
            if (copied != take) note(number, "cannot be read");
            total += copied;
        }
        // Zeros in place of what is missing, so that later chunks keep their offsets.
        for (int64_t padded = total; expected >= 0 && padded < int64_t{number - 1} * kChunkBytes + expected;) {
            const int n = static_cast<int>(
                std::min<int64_t>(kCopyBlockBytes, int64_t{number - 1} * kChunkBytes + expected - padded));
            const int put = stream->Write(zeros.data(), n);
            if (put <= 0) break;
            padded += put;
            total = padded;
        }
    }
    // Without a record, a chunk beyond the count means that the count file or
    // the chunks are wrong; with one, it is a stray file that nothing reads.
    if (!savedLengths && ChunkFile(directory, name, count + 1).Exists()) {
        note(count + 1, "lies beyond the count of chunk files");
    }
    stream->Flush();
    ContentsReplaced();
    return static_cast<int>(total);
}

int LxMemberStream::LoadChunks(const LxFile& directory) {
    if (!stream) return 0;
    Truncate();
    stream->SetWriting(true);
    int count = ReadChunkCount(directory, name);
    int64_t total = 0;
    for (int number = 1; number <= count; ++number) {
        std::unique_ptr<ILxReadWriteStream> in = LxStreamUtil::CreateFileStreamRead(ChunkFile(directory, name, number));
        if (!in) break;
        int64_t length = in->GetLength();
        if (total + length > INT32_MAX) {
            // A member cannot hold more than 32-bit positions can name.
            LxAssertFailed("member too large to load", kSourceFile, __LINE__);
            break;
        }
        total += CopyBlocks(*in, *stream, length);
    }
    stream->Flush();
    ContentsReplaced();
    return static_cast<int>(total);
}
