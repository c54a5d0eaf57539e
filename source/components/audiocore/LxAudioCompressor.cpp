#include "LxAudioCompressor.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>
#include "LxAudioFile.h"
#include "LxCodecVorbis.h"
#include "LxDataStream.h"
#include "LxPCMDataStream.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/LxAssert.h"
#include "LxPublic/LxLock.h"
#include "LxPublic/LxRecursiveLock.h"

static const char* const kSourceFile = "source/components/audiocore/LxAudioFile";

namespace {
// Pages encoded per thread in one batch of CompressAllPagesInParallel: enough
// to even out pages of different lengths, little enough to report progress often.
constexpr int kPagesPerThreadInBatch = 4;

// One raw page taken for encoding outside the store's lock.
struct PageToEncode {
    uint32_t position = 0;
    LxPCMData record;
    std::vector<unsigned char> pcm;
    std::vector<unsigned char> encoded;
    int encodedBytes = 0;
};
}  // namespace

LxAudioCompressor::LxAudioCompressor(LxAudioFile& file) : store(file) {}

bool LxAudioCompressor::HasPagesToCompress() {
    LxRecursiveLock guard(store.lock);
    if (!store.Pcm()) return false;
    int size = store.Pcm()->GetSize();
    LxPCMData record;
    for (int page = static_cast<int>(store.Pcm()->GetCompressCursor()); page + kLxPageRecordBytes <= size;
         page += kLxPageRecordBytes) {
        if (store.Pcm()->ReadPageHeader(page, record) && record.codec == kLxPageCodecRaw &&
            record.pcmBytes <= kLxMaxPageBytes && record.pcmBytes >= 0) {
            return true;
        }
    }
    return false;
}

int LxAudioCompressor::CompressAllPages(ILxGeneralProgressCallBack* progress) {
    int total = 0, cursor = 0;
    {
        LxRecursiveLock guard(store.lock);
        if (!store.Pcm()) return 0;
        total = store.Pcm()->GetSize() / kLxPageRecordBytes;
        cursor = static_cast<int>(store.Pcm()->GetCompressCursor()) / kLxPageRecordBytes;
    }
    if (progress) progress->BeginTask("kLxCompressingAudio", total, 0);
    int compressed = 0;
    for (;;) {
        {
            LxRecursiveLock guard(store.lock);
            if (!store.Pcm() || store.Pcm()->GetCompressCursor() >= static_cast<uint32_t>(store.Pcm()->GetSize())) break;
        }
        int before = cursor;
        if (CompressOnePage()) ++compressed;
        {
            LxRecursiveLock guard(store.lock);
            cursor = store.Pcm() ? static_cast<int>(store.Pcm()->GetCompressCursor()) / kLxPageRecordBytes : total;
        }
        // A page the compressor cannot take (a damaged channel count) keeps the
        // cursor where it is; calling again would spin for ever.
        if (cursor == before) break;
        if (progress) {
            progress->ReportProgress(cursor);
            if (progress->IsCancelled()) break;
        }
    }
    if (progress) progress->EndTask();
    return compressed;
}

bool LxAudioCompressor::CompressOnePage() {
    LxLock compressorGuard(store.compressorMutex);
    LxRecursiveLock guard(store.lock);
    std::vector<unsigned char> input(kLxMaxPageBytes);
    if (!store.Pcm() || store.Pcm()->GetCompressCursor() >= static_cast<uint32_t>(store.Pcm()->GetSize())) return false;
    uint32_t cursor = store.Pcm()->GetCompressCursor();
    LxPCMData record;
    store.Pcm()->ReadPageHeader(static_cast<int>(cursor), record);
    // Silent, already compressed and damaged pages are skipped, one per call.
    if (record.codec != kLxPageCodecRaw || record.pcmBytes > kLxMaxPageBytes || record.pcmBytes < 0) {
        store.Pcm()->SetCompressCursor(store.Pcm()->GetCompressCursor() + kLxPageRecordBytes);
        return false;
    }
    int stored = std::clamp(record.dataRange.Size(), 0, kLxMaxPageBytes);
    int got = store.Raw()->Read(record.dataRange, input.data(), stored);
    if (got < record.pcmBytes) {
        LxAssertFailed("", kSourceFile, __LINE__);
        store.Pcm()->SetCompressCursor(store.Pcm()->GetCompressCursor() + kLxPageRecordBytes);
        return false;
    }
    LxCodec* codec = store.Pcm()->GetCodec(record.channels);
    if (codec == nullptr) {
        LxAssertFailed("Not implemented", "source/components/audiocore/LxPCMDataStream", __LINE__);
        return false;
    }
    LxPCMDataStream* encodedFor = store.Pcm();

    // The slow part runs without the store's lock, so that editing, capture and
    // playback go on meanwhile.
    guard.Unlock();
    std::vector<unsigned char> output(kLxMaxPageBytes);
    int encoded = codec->Encode(reinterpret_cast<const short*>(input.data()), record.pcmBytes, output.data(),
                                kLxMaxPageBytes);
    guard.Relock();

    // The page must still be the one that was encoded: a load or a clear while
    // the lock was released replaced it.
    LxPCMData now;
    if (store.Pcm() != encodedFor || !store.Pcm()->ReadPageHeader(static_cast<int>(cursor), now) ||
        now.codec != record.codec || now.dataRange != record.dataRange || now.pcmBytes != record.pcmBytes) {
        return false;
    }
    if (encoded <= 0) {
        // The codec reported why; the page stays raw.
        store.Pcm()->SetCompressCursor(cursor + kLxPageRecordBytes);
        return false;
    }
    if (!store.Enc()->CheckRoomFor(encoded)) {
        // No room for it in "enc.lxa" (reported): the page stays raw.
        store.Pcm()->SetCompressCursor(cursor + kLxPageRecordBytes);
        return false;
    }
    record.codec = kLxPageCodecVorbis;
    record.dataRange = store.Enc()->Append(output.data(), encoded);
    store.Pcm()->GetStream()->Seek(cursor, kLxSeekBegin);
    store.Pcm()->WritePageHeader(record);
    store.Pcm()->SetCompressCursor(cursor + kLxPageRecordBytes);
    return true;
}

int LxAudioCompressor::CompressAllPagesInParallel(int threads, ILxGeneralProgressCallBack* progress) {
    if (threads < 1) threads = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    if (threads == 1) return CompressAllPages(progress);
    int total = 0;
    {
        LxRecursiveLock guard(store.lock);
        if (!store.Pcm()) return 0;
        total = store.Pcm()->GetSize() / kLxPageRecordBytes;
    }
    if (progress) progress->BeginTask("kLxCompressingAudio", total, 0);
    // Each thread encodes with codecs of its own; the store's codecs stay free
    // for readers (decoding) and for CompressOnePage.
    std::vector<std::unique_ptr<LxCodec>> monoCodecs, stereoCodecs;
    for (int t = 0; t < threads; ++t) {
        monoCodecs.push_back(std::make_unique<LxCodecVorbis>(1));
        stereoCodecs.push_back(std::make_unique<LxCodecVorbis>(2));
    }
    const size_t batchPages = static_cast<size_t>(threads) * kPagesPerThreadInBatch;
    std::vector<PageToEncode> batch;
    int compressed = 0;
    for (;;) {
        LxLock compressorGuard(store.compressorMutex);
        LxRecursiveLock guard(store.lock);
        if (!store.Pcm() || store.Pcm()->GetCompressCursor() >= static_cast<uint32_t>(store.Pcm()->GetSize())) break;
        const uint32_t startCursor = store.Pcm()->GetCompressCursor();
        // The raw pages that follow the cursor, each as CompressOnePage would
        // take it. Any other page (silent, compressed, damaged, short of data)
        // ends the batch, and CompressOnePage deals with it, reports included.
        batch.clear();
        const int size = store.Pcm()->GetSize();
        for (uint32_t at = startCursor;
             batch.size() < batchPages && at + kLxPageRecordBytes <= static_cast<uint32_t>(size);
             at += kLxPageRecordBytes) {
            LxPCMData record;
            if (!store.Pcm()->ReadPageHeader(static_cast<int>(at), record) || record.codec != kLxPageCodecRaw ||
                record.pcmBytes > kLxMaxPageBytes || record.pcmBytes < 0 ||
                store.Pcm()->GetCodec(record.channels) == nullptr) {
                break;
            }
            PageToEncode page;
            page.position = at;
            page.record = record;
            page.pcm.resize(static_cast<size_t>(kLxMaxPageBytes));
            page.encoded.resize(static_cast<size_t>(kLxMaxPageBytes));
            const int stored = std::clamp(record.dataRange.Size(), 0, kLxMaxPageBytes);
            if (store.Raw()->Read(record.dataRange, page.pcm.data(), stored) < record.pcmBytes) break;
            batch.push_back(std::move(page));
        }
        if (batch.empty()) {
            guard.Unlock();
            compressorGuard.Unlock();
            const bool done = CompressOnePage();
            if (done) ++compressed;
            LxRecursiveLock again(store.lock);
            // A page the compressor cannot take keeps the cursor where it is.
            if (!store.Pcm() || store.Pcm()->GetCompressCursor() == startCursor) break;
            if (progress) {
                progress->ReportProgress(static_cast<int>(store.Pcm()->GetCompressCursor()) / kLxPageRecordBytes);
                if (progress->IsCancelled()) break;
            }
            continue;
        }
        LxPCMDataStream* encodedFor = store.Pcm();

        // Encoding runs without the store's lock, as in CompressOnePage.
        guard.Unlock();
        std::atomic<size_t> next{0};
        auto work = [&](int worker) {
            for (size_t i = next++; i < batch.size(); i = next++) {
                PageToEncode& page = batch[i];
                LxCodec* codec = page.record.channels == 1 ? monoCodecs[static_cast<size_t>(worker)].get()
                                                           : stereoCodecs[static_cast<size_t>(worker)].get();
                page.encodedBytes = codec->Encode(reinterpret_cast<const short*>(page.pcm.data()),
                                                  page.record.pcmBytes, page.encoded.data(), kLxMaxPageBytes);
            }
        };
        const int helpers = std::min(threads, static_cast<int>(batch.size())) - 1;
        std::vector<std::thread> workers;
        try {
            for (int t = 1; t <= helpers; ++t) workers.emplace_back(work, t);
        } catch (const std::system_error&) {
            // No thread to be had: the pages not taken are encoded here.
        }
        work(0);
        for (std::thread& worker : workers) worker.join();
        guard.Relock();

        // Written back in page order while each page is still the one encoded (a
        // load or a clear while the lock was released replaced it); the first
        // page found changed, and those after it, are looked at again.
        for (const PageToEncode& page : batch) {
            LxPCMData now;
            if (store.Pcm() != encodedFor || store.Pcm()->GetCompressCursor() != page.position ||
                !store.Pcm()->ReadPageHeader(static_cast<int>(page.position), now) || now.codec != page.record.codec ||
                now.dataRange != page.record.dataRange || now.pcmBytes != page.record.pcmBytes) {
                break;
            }
            // A page for which "enc.lxa" has no room stays raw (reported).
            if (page.encodedBytes > 0 && store.Enc()->CheckRoomFor(page.encodedBytes)) {
                // The codec reported why when it wrote nothing; such a page stays raw.
                LxPCMData record = page.record;
                record.codec = kLxPageCodecVorbis;
                record.dataRange = store.Enc()->Append(page.encoded.data(), page.encodedBytes);
                store.Pcm()->GetStream()->Seek(page.position, kLxSeekBegin);
                store.Pcm()->WritePageHeader(record);
                ++compressed;
            }
            store.Pcm()->SetCompressCursor(page.position + kLxPageRecordBytes);
        }
        if (progress && store.Pcm()) {
            progress->ReportProgress(static_cast<int>(store.Pcm()->GetCompressCursor()) / kLxPageRecordBytes);
            if (progress->IsCancelled()) break;
        }
    }
    if (progress) progress->EndTask();
    return compressed;
}
