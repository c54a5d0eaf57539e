#include "LxClipRecord.h"

#include <algorithm>
#include <cstdint>
#include "LxAudioClipSource.h"
#include "LxAudioConstants.h"
#include "LxAudioFile.h"
#include "LxReportSites.h"
#include "LxPublic/ILxReadWriteStream.h"

namespace {

// Smallest record of one range: four page fields and the effect count.
constexpr int64_t kMinRangeRecordBytes = 20;

}  // namespace

void LxClipRecord::ReadRanges(ILxReadWriteStream& stream, LxAudioFile* store, std::vector<LxPageRange>& ranges) {
    stream.SetWriting(false);
    int32_t count = 0;
    stream.Xfer(count);
    ranges.clear();
    if (count < 1) return;
    // A count from a damaged record must not size anything beyond what the stream holds.
    int64_t room = (stream.GetLength() - stream.GetPosition()) / kMinRangeRecordBytes;
    if (count > room) {
        LxReportAt("clip record longer than its stream", LxReportSites::kClipRecordLongerThanStream);
        count = static_cast<int32_t>(std::max<int64_t>(room, 0));
    }
    ranges.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count && !stream.IsEndOfStream(); ++i) {
        LxPageRange range(store);
        range.Serialize(stream);
        ranges.push_back(range);
    }
}

void LxClipRecord::WriteRanges(ILxReadWriteStream& stream, std::vector<LxPageRange>& ranges) {
    stream.SetWriting(true);
    auto count = static_cast<int32_t>(ranges.size());
    stream.Xfer(count);
    for (LxPageRange& range : ranges) range.Serialize(stream);
}

int LxClipRecord::BytesOf(const std::vector<LxPageRange>& ranges) {
    int bytes = 0;
    for (const LxPageRange& range : ranges) bytes += range.WorthInBytes();
    return bytes;
}

int LxClipRecord::FramesOf(const std::vector<LxPageRange>& ranges) {
    int frames = 0;
    for (const LxPageRange& range : ranges) frames += range.WorthInFrames();
    return frames;
}

int LxClipRecord::WorthInBytes() const { return BytesOf(ranges); }

int LxClipRecord::WorthInFrames() const { return FramesOf(ranges); }

void LxClipRecord::ReadFromStream(ILxReadWriteStream& stream) { ReadRanges(stream, store, ranges); }

void LxClipRecord::WriteToStream(ILxReadWriteStream& stream) {
    WriteRanges(stream, ranges);
    int32_t source = LX_AUDIO_CLIP_SOURCE_OTHER;
    stream.Xfer(source);
}

bool LxClipRecord::CopyRange(const LxPageRange& range, LxAudioFile& target, LxPageRange& copied) {
    LxAudioFile* source = range.GetAudioFile();
    if (source == nullptr || range.startPage < 0 || range.endPage < range.startPage) return false;
    int firstCopy = -1, lastCopy = -1;
    for (int page = range.startPage; page <= range.endPage; page += kLxPageRecordBytes) {
        int made = source->CopyPageTo(page, target);
        // A page the target refused (no room, say) leaves the range incomplete.
        if (made == -1) return false;
        if (firstCopy == -1) firstCopy = made;
        lastCopy = made;
    }
    if (firstCopy == -1 || lastCopy == -1) return false;
    copied = range;
    copied.SetAudioFile(&target);
    copied.startPage = firstCopy;
    copied.endPage = lastCopy;
    return true;
}

void LxClipRecord::ApplyCorrection(std::vector<LxPageRange>& ranges, const std::map<int, int>& pageShift) {
    if (pageShift.empty()) return;
    for (LxPageRange& range : ranges) {
        auto it = pageShift.upper_bound(range.startPage);
        if (it == pageShift.begin()) continue;
        --it;
        range.startPage -= it->second;
        range.endPage -= it->second;
    }
}
