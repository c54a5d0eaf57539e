#include "LxPageDecodeAhead.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include "LxCodecVorbis.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxLock.h"
#include "LxPublic/LxQuietReports.h"

LxPageDecodeAhead::LxPageDecodeAhead() { Start(); }

LxPageDecodeAhead::~LxPageDecodeAhead() {
    {
        LxLock guard(mutex);
        stopping = true;
    }
    changed.notify_all();
    Join();
}

bool LxPageDecodeAhead::Decodable(const LxPCMData& record) {
    return record.codec == kLxPageCodecVorbis && (record.channels == 1 || record.channels == 2) &&
           record.pcmBytes > 0 && record.pcmBytes <= kLxMaxPageBytes && record.dataRange.Size() > 0;
}

bool LxPageDecodeAhead::SameKey(const Key& a, const Key& b) {
    const LxPCMData& x = a.record;
    const LxPCMData& y = b.record;
    return a.pageID == b.pageID && a.pageEpoch == b.pageEpoch && x.codec == y.codec && x.pcmBytes == y.pcmBytes &&
           x.dataRange.start == y.dataRange.start && x.dataRange.end == y.dataRange.end && x.channels == y.channels &&
           x.sampleRate == y.sampleRate && x.bitsPerSample == y.bitsPerSample;
}

bool LxPageDecodeAhead::Holds(const Key& wanted) {
    LxLock guard(mutex);
    return state != State::kEmpty && SameKey(key, wanted);
}

void LxPageDecodeAhead::Begin(const Key& page, std::vector<unsigned char> bytes) {
    if (!Decodable(page.record)) return;
    {
        LxLock guard(mutex);
        if (state == State::kWaiting || state == State::kDecoding) return;
        key = page;
        stored = std::move(bytes);
        state = State::kWaiting;
    }
    changed.notify_all();
}

bool LxPageDecodeAhead::Take(const Key& wanted, void* buffer, int bufferBytes, int& bytesRead) {
    LxLock guard(mutex);
    if (state == State::kEmpty || !SameKey(key, wanted)) return false;
    while (state == State::kWaiting || state == State::kDecoding) changed.Wait(guard);
    const bool usable = state == State::kDecoded && bufferBytes >= key.record.pcmBytes;
    if (usable) {
        std::memcpy(buffer, pcm.data(), static_cast<size_t>(pcmBytes));
        bytesRead = pcmBytes;
    }
    state = State::kEmpty;
    return usable;
}

void LxPageDecodeAhead::Run() {
    LxLock guard(mutex);
    for (;;) {
        while (!stopping && state != State::kWaiting) changed.Wait(guard);
        if (stopping) return;
        state = State::kDecoding;
        guard.Unlock();
        const bool clean = Decode();
        guard.Relock();
        state = clean ? State::kDecoded : State::kFailed;
        changed.notify_all();
    }
}

bool LxPageDecodeAhead::Decode() {
    // Nothing else changes the page's fields while it is being decoded.
    const int channels = key.record.channels;
    std::unique_ptr<LxCodec>& codec = codecs[channels - 1];
    LxQuietReports quiet;
    const int64_t reportsBefore = LxAssertReportCount();
    if (!codec) codec = std::make_unique<LxCodecVorbis>(channels);
    pcm.resize(static_cast<size_t>(kLxMaxPageBytes));
    const int got = codec->Decode(stored.data(), static_cast<int>(stored.size()), reinterpret_cast<short*>(pcm.data()),
                                  key.record.pcmBytes);
    pcmBytes = std::clamp(got, 0, key.record.pcmBytes);
    return LxAssertReportCount() == reportsBefore;
}
