// Micro-benchmarks of the engine's hot paths, next to the libraries a user would
// pick instead where there is one:
//   Resample/*   48000 -> 44100 stereo float, 120 s: LxAudioResampler, libsoxr
//                (HQ, VHQ) and libsamplerate (SINC_BEST, SINC_MEDIUM), all fed
//                the same signal in chunks of 4096 frames; the *_Mono rows
//                (LxAudioResampler, libsoxr HQ) the first channel alone. The
//                others are single-threaded; LxAudioResampler may share a big
//                call with a second thread.
//   Read/*       GetNextPCMData, stereo, from raw pages, 100 ms per call, with
//                unit gain and with a gain of 0.5.
//   Edit/*       Delete, InsertAt, AddEffect and Undo of LxAudioEditableClip on a
//                clip of 1000 ranges, 2 hours and 1 minute long (mono).
//   Thumbnail/*  LoadThumbnail of the 2-hour clip, with the store's thumbnail
//                cache empty (cold) and filled (warm).
//   Codec/*      one stereo page through the store's Vorbis page codec, and
//                through libvorbis set up as `oggenc -b 128` sets it up.
// The store lives in the system temporary directory (TMPDIR).
#include <benchmark/benchmark.h>
#include <samplerate.h>
#include <soxr.h>
#include <vorbis/vorbisenc.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>
#include "BenchSignal.h"
#include "LxAudioCore.h"
#include "LxCodecVorbis.h"

namespace {

// --- resampling ----------------------------------------------------------------------

constexpr int kInRate = 48000;
constexpr int kOutRate = 44100;
constexpr int kResampleSeconds = 120;
constexpr int kChunkFrames = 4096;

const std::vector<float>& ResampleInput(int channels) {
    static const std::vector<float> stereo = lxbench::Signal(7).Float(kInRate * kResampleSeconds, kInRate, 2);
    static const std::vector<float> mono = [] {
        std::vector<float> left(stereo.size() / 2);
        for (size_t i = 0; i < left.size(); ++i) left[i] = stereo[2 * i];
        return left;
    }();
    return channels == 1 ? mono : stereo;
}

size_t ResampleOutputRoom() { return static_cast<size_t>(kOutRate) * kResampleSeconds * 2 + 65536; }

void SetResampleCounters(benchmark::State& state, size_t outputSamples, int channels) {
    const double frames = static_cast<double>(kInRate) * kResampleSeconds;
    state.SetItemsProcessed(static_cast<int64_t>(frames) * state.iterations());
    state.counters["x_realtime"] =
        benchmark::Counter(kResampleSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["out_frames"] = static_cast<double>(outputSamples / static_cast<size_t>(channels));
}

void RunLxAudioResampler(benchmark::State& state, int channels) {
    const std::vector<float>& in = ResampleInput(channels);
    std::vector<float> out(ResampleOutputRoom());
    size_t produced = 0;
    for (auto _ : state) {
        LxAudioResampler resampler(kInRate, kOutRate, channels);
        produced = 0;
        const unsigned chunk = kChunkFrames * static_cast<unsigned>(channels);
        for (size_t pos = 0; pos < in.size(); pos += chunk) {
            const auto n = static_cast<unsigned>(std::min<size_t>(chunk, in.size() - pos));
            const unsigned room = resampler.GetOutputBufferSize(n);
            produced += resampler.Process(in.data() + pos, n, out.data() + produced, room);
        }
        benchmark::DoNotOptimize(out.data());
    }
    SetResampleCounters(state, produced, channels);
}

void BM_Resample_LxAudioResampler(benchmark::State& state) { RunLxAudioResampler(state, 2); }
void BM_Resample_LxAudioResampler_Mono(benchmark::State& state) { RunLxAudioResampler(state, 1); }

void RunSoxr(benchmark::State& state, unsigned long recipe, int channels = 2) {
    const std::vector<float>& in = ResampleInput(channels);
    std::vector<float> out(ResampleOutputRoom());
    size_t produced = 0;
    for (auto _ : state) {
        soxr_error_t error = nullptr;
        const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        const soxr_quality_spec_t quality = soxr_quality_spec(recipe, 0);
        const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
        soxr_t soxr = soxr_create(kInRate, kOutRate, static_cast<unsigned>(channels), &error, &io, &quality, &runtime);
        if (error != nullptr) {
            state.SkipWithError(error);
            return;
        }
        produced = 0;
        const size_t ch = static_cast<size_t>(channels);
        const size_t totalFrames = in.size() / ch;
        for (size_t frame = 0; frame < totalFrames; frame += kChunkFrames) {
            const size_t n = std::min<size_t>(kChunkFrames, totalFrames - frame);
            size_t used = 0, done = 0;
            soxr_process(soxr, in.data() + ch * frame, n, &used, out.data() + produced, (out.size() - produced) / ch,
                         &done);
            produced += ch * done;
        }
        size_t done = 0;
        do {  // flush what the filter still holds
            soxr_process(soxr, nullptr, 0, nullptr, out.data() + produced, (out.size() - produced) / ch, &done);
            produced += ch * done;
        } while (done > 0);
        soxr_delete(soxr);
        benchmark::DoNotOptimize(out.data());
    }
    SetResampleCounters(state, produced, channels);
}

void BM_Resample_SoxrHQ(benchmark::State& state) { RunSoxr(state, SOXR_HQ); }
void BM_Resample_SoxrHQ_Mono(benchmark::State& state) { RunSoxr(state, SOXR_HQ, 1); }
void BM_Resample_SoxrVHQ(benchmark::State& state) { RunSoxr(state, SOXR_VHQ); }

void RunSampleRate(benchmark::State& state, int converter) {
    const std::vector<float>& in = ResampleInput(2);
    std::vector<float> out(ResampleOutputRoom());
    size_t produced = 0;
    for (auto _ : state) {
        int error = 0;
        SRC_STATE* src = src_new(converter, 2, &error);
        if (src == nullptr) {
            state.SkipWithError(src_strerror(error));
            return;
        }
        produced = 0;
        const long totalFrames = static_cast<long>(in.size() / 2);
        long frame = 0;
        bool finished = false;
        while (!finished) {
            SRC_DATA data{};
            const long n = std::min<long>(kChunkFrames, totalFrames - frame);
            data.data_in = in.data() + 2 * frame;
            data.input_frames = n;
            data.data_out = out.data() + produced;
            data.output_frames = static_cast<long>((out.size() - produced) / 2);
            data.end_of_input = frame + n >= totalFrames ? 1 : 0;
            data.src_ratio = static_cast<double>(kOutRate) / kInRate;
            if (src_process(src, &data) != 0) break;
            frame += data.input_frames_used;
            produced += 2 * static_cast<size_t>(data.output_frames_gen);
            finished = data.end_of_input && data.output_frames_gen == 0 && data.input_frames_used == n;
        }
        src_delete(src);
        benchmark::DoNotOptimize(out.data());
    }
    SetResampleCounters(state, produced, 2);
}

void BM_Resample_SrcSincBest(benchmark::State& state) { RunSampleRate(state, SRC_SINC_BEST_QUALITY); }
void BM_Resample_SrcSincMedium(benchmark::State& state) { RunSampleRate(state, SRC_SINC_MEDIUM_QUALITY); }

// --- reading -------------------------------------------------------------------------

constexpr int kReadSeconds = 60;
constexpr int kPageBytes = 176400;

// One controller for the whole run, with a 60-second stereo clip stored twice:
// at unit gain, and at gain 0.5 (the volume effect of its ranges).
struct ReadStore {
    LxAudioController controller;
    int unitClip = -1;
    int gainClip = -1;

    ReadStore() {
        const std::vector<unsigned char> pcm = lxbench::Signal(3).Pcm16(44100 * kReadSeconds, 44100, 2);
        unitClip = Store(pcm, 1.0f);
        gainClip = Store(pcm, 0.5f);
    }

    int Store(const std::vector<unsigned char>& pcm, float volume) {
        auto clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
        clip->AppendPCMData(pcm.data(), static_cast<int>(pcm.size()), 2, 44100, 16, volume);
        return clip->FinishAppendingPCMData(2, 44100, 16, volume);
    }
};

ReadStore& Reads() {
    static ReadStore store;
    return store;
}

void RunRead(benchmark::State& state, bool withGain) {
    ReadStore& store = Reads();
    auto clip = store.controller.GetClip(withGain ? store.gainClip : store.unitClip);
    std::vector<unsigned char> out(17640);  // 100 ms of 16-bit stereo, as a playback device asks
    int64_t total = 0;
    for (auto _ : state) {
        clip->SeekToBeginning();
        int got = 0;
        int64_t bytes = 0;
        do {
            clip->GetNextPCMData(2, out.data(), static_cast<int>(out.size()), got, nullptr, false);
            bytes += got;
        } while (got > 0);
        benchmark::DoNotOptimize(out.data());
        total = bytes;
    }
    if (total != static_cast<int64_t>(kReadSeconds) * kPageBytes) state.SkipWithError("read a wrong byte count");
    state.SetBytesProcessed(total * state.iterations());
    state.counters["x_realtime"] =
        benchmark::Counter(kReadSeconds * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_Read_UnitGain(benchmark::State& state) { RunRead(state, false); }
void BM_Read_Gain(benchmark::State& state) { RunRead(state, true); }

// --- editing and thumbnails --------------------------------------------------------

constexpr int kMonoPageFrames = kPageBytes / 2;  // 88200 frames: 2 s of mono per page
constexpr int kRanges = 1000;

// A mono clip of `pages` full pages of real (non-silent) audio, cut into 1000
// ranges of equal length that follow each other through the pages.
struct EditClip {
    std::unique_ptr<LxAudioClip> clip;
    std::vector<LxPageRange> ranges;
    int frames = 0;
};

EditClip MakeEditClip(LxAudioController& controller, int pages) {
    EditClip made;
    std::vector<unsigned char> page = lxbench::Signal(11).Pcm16(kMonoPageFrames, 44100, 1);
    auto source = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
    for (int p = 0; p < pages; ++p) {
        page[0] = static_cast<unsigned char>(p);  // pages differ, none is silent
        source->AppendPCMData(page.data(), kPageBytes, 1, 44100, 16, 1.0f);
    }
    source->FinishAppendingPCMData(1, 44100, 16, 1.0f);
    const LxPageRange whole = source->GetPageRanges().front();
    const long long totalBytes = static_cast<long long>(pages) * kPageBytes;
    const long long perRange = (totalBytes / kRanges) & ~1LL;
    for (int r = 0; r < kRanges; ++r) {
        const long long from = perRange * r;
        const long long to = r == kRanges - 1 ? totalBytes : perRange * (r + 1);
        const int startPage = whole.startPage + 36 * static_cast<int>(from / kPageBytes);
        const int startOffset = static_cast<int>(from % kPageBytes);
        const int endPage = whole.startPage + 36 * static_cast<int>((to - 1) / kPageBytes);
        const int endOffset = static_cast<int>((to - 1) % kPageBytes) + 1;
        made.ranges.emplace_back(controller.GetAudioFile(), LxAudioVolumeEffect(), startPage, startOffset, endPage,
                                 endOffset);
    }
    made.clip = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
    made.clip->AppendPageRanges(made.ranges);
    made.frames = made.clip->WorthInFrames();
    return made;
}

struct EditStore {
    LxAudioController controller;
    EditClip twoHours;
    EditClip oneMinute;

    EditStore() {
        twoHours = MakeEditClip(controller, 3600);  // 7200 s of mono
        oneMinute = MakeEditClip(controller, 30);   // 60 s
    }
    ~EditStore() {
        twoHours.clip.reset();
        oneMinute.clip.reset();
    }
};

EditStore& Edits() {
    static EditStore store;
    return store;
}

enum class EditOp { Delete, Insert, Effect, Undo };

// Times one operation per iteration (state is reset untimed in between) and
// reports the median of the single operations, in microseconds. Stretches are
// fixed fractions of the clip, so that both clips touch the same number of
// ranges: deletes and inserts 1/720 of the clip (10 s of the 2-hour clip),
// effects 1/12 (10 minutes).
void RunEdit(benchmark::State& state, EditOp op, bool twoHours) {
    EditStore& store = Edits();
    EditClip& subject = twoHours ? store.twoHours : store.oneMinute;
    LxAudioClip& clip = *subject.clip;
    const LxAudioClip source(clip);
    const int frames = subject.frames;
    const int shortStretch = frames / 720;
    const int longStretch = frames / 12;
    uint32_t random = 2463534242u;
    std::vector<double> times;
    bool failed = false;
    for (auto _ : state) {
        random ^= random << 13;
        random ^= random >> 17;
        random ^= random << 5;
        const int at = static_cast<int>(random % static_cast<uint32_t>(frames - longStretch - 2)) + 1;
        clip.ReplaceWith(source);
        LxAudioEditableClip editable(clip);
        if (op == EditOp::Undo) {
            int deleted = 0;
            editable.AddOneUndoRedoDatum();
            editable.Delete(at, at + shortStretch, deleted, false);
            editable.AddOneUndoRedoDatum();
        }
        LxAudioVolumeEffect effect(0.8f, 0.0f, 1.0f);
        bool ok = false;
        const auto start = std::chrono::steady_clock::now();
        switch (op) {
            case EditOp::Delete: {
                int deleted = 0;
                ok = editable.Delete(at, at + shortStretch, deleted, false);
                break;
            }
            case EditOp::Insert: {
                int inserted = 0;
                ok = editable.InsertAt(at, inserted, source, at / 2, at / 2 + shortStretch);
                break;
            }
            case EditOp::Effect:
                ok = editable.AddEffect(at, at + longStretch, effect);
                break;
            case EditOp::Undo:
                ok = editable.Undo();
                break;
        }
        const auto end = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(end - start).count();
        state.SetIterationTime(seconds);
        times.push_back(seconds);
        failed = failed || !ok;
    }
    clip.ReplaceWith(source);
    if (failed) state.SkipWithError("an edit failed");
    std::sort(times.begin(), times.end());
    state.counters["median_us"] = times.empty() ? 0.0 : times[times.size() / 2] * 1e6;
    state.counters["ranges"] = static_cast<double>(source.GetPageRanges().size());
}

void BM_Edit_Delete_2h(benchmark::State& s) { RunEdit(s, EditOp::Delete, true); }
void BM_Edit_Delete_1min(benchmark::State& s) { RunEdit(s, EditOp::Delete, false); }
void BM_Edit_InsertAt_2h(benchmark::State& s) { RunEdit(s, EditOp::Insert, true); }
void BM_Edit_InsertAt_1min(benchmark::State& s) { RunEdit(s, EditOp::Insert, false); }
void BM_Edit_AddEffect_2h(benchmark::State& s) { RunEdit(s, EditOp::Effect, true); }
void BM_Edit_AddEffect_1min(benchmark::State& s) { RunEdit(s, EditOp::Effect, false); }
void BM_Edit_Undo_2h(benchmark::State& s) { RunEdit(s, EditOp::Undo, true); }
void BM_Edit_Undo_1min(benchmark::State& s) { RunEdit(s, EditOp::Undo, false); }

// Cold: a new clip object, and the store's cache of page thumbnails emptied
// before each load (the pages' thumbnails are read from "enc.lxa"). Warm: the
// same clip loads again while the cache holds every page.
void RunThumbnail(benchmark::State& state, bool cold) {
    EditStore& store = Edits();
    LxAudioFile& file = *store.controller.GetAudioFile();
    const EditClip& subject = store.twoHours;
    auto warmClip = std::make_unique<LxAudioClip>(*subject.clip);
    if (!cold) warmClip->LoadThumbnail();
    int points = 0;
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            warmClip.reset();
            file.ReleaseUnusedThumbnails();
            warmClip = std::make_unique<LxAudioClip>(*subject.clip);
            state.ResumeTiming();
        }
        warmClip->LoadThumbnail();
        points = warmClip->GetNumberOfFramesInThumbnail();
        benchmark::DoNotOptimize(points);
    }
    // Each range may lose a point or two to the rounding of its ends.
    if (points + 2 * kRanges < warmClip->ThumbnailWorthInFrames()) state.SkipWithError("thumbnail has too few points");
    state.counters["points"] = points;
    warmClip.reset();
    file.ReleaseUnusedThumbnails();
}

void BM_Thumbnail_2h_Cold(benchmark::State& s) { RunThumbnail(s, true); }
void BM_Thumbnail_2h_Warm(benchmark::State& s) { RunThumbnail(s, false); }

// --- the page codec ----------------------------------------------------------------

// One full stereo page (1 s) through the store's page codec, and through
// libvorbis set up as `oggenc -b 128` sets it up (average bitrate without bitrate
// management), each page a stream of its own. The difference is the price of
// the store's managed mode, in which libvorbis codes every block at all of its
// packet-blob levels and the bitrate manager then keeps one.
const std::vector<unsigned char>& CodecPage() {
    static const std::vector<unsigned char> page = lxbench::Signal(9).Pcm16(44100, 44100, 2);
    return page;
}

void BM_Codec_EncodePage_Store(benchmark::State& state) {
    LxCodecVorbis codec(2);
    std::vector<unsigned char> out(kPageBytes);
    const std::vector<unsigned char>& page = CodecPage();
    int bytes = 0;
    for (auto _ : state) {
        bytes = codec.Encode(reinterpret_cast<const short*>(page.data()), kPageBytes, out.data(), kPageBytes);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["bytes"] = bytes;
}

void BM_Codec_EncodePage_Unmanaged(benchmark::State& state) {
    const std::vector<unsigned char>& page = CodecPage();
    const int frames = kPageBytes / 4;
    long bytes = 0;
    vorbis_info info;
    vorbis_info_init(&info);
    vorbis_encode_setup_managed(&info, 2, 44100, -1, 128000, -1);
    vorbis_encode_ctl(&info, OV_ECTL_RATEMANAGE2_SET, nullptr);
    vorbis_encode_setup_init(&info);
    for (auto _ : state) {
        vorbis_dsp_state dsp;
        vorbis_block block;
        vorbis_analysis_init(&dsp, &info);
        vorbis_block_init(&dsp, &block);
        float** buffer = vorbis_analysis_buffer(&dsp, frames);
        for (int i = 0; i < frames; ++i) {
            for (int c = 0; c < 2; ++c) {
                const auto lo = page[4 * i + 2 * c];
                const auto hi = page[4 * i + 2 * c + 1];
                buffer[c][i] = static_cast<float>(static_cast<int16_t>(lo | (hi << 8))) * 3.0517578125e-05f;
            }
        }
        vorbis_analysis_wrote(&dsp, frames);
        vorbis_analysis_wrote(&dsp, 0);
        bytes = 0;
        while (vorbis_analysis_blockout(&dsp, &block) == 1) {
            vorbis_analysis(&block, nullptr);
            vorbis_bitrate_addblock(&block);
            ogg_packet packet;
            while (vorbis_bitrate_flushpacket(&dsp, &packet) == 1) bytes += packet.bytes;
        }
        vorbis_block_clear(&block);
        vorbis_dsp_clear(&dsp);
    }
    vorbis_info_clear(&info);
    state.counters["bytes"] = static_cast<double>(bytes);
}

void BM_Codec_DecodePage_Store(benchmark::State& state) {
    LxCodecVorbis codec(2);
    std::vector<unsigned char> encoded(kPageBytes);
    const int n = codec.Encode(reinterpret_cast<const short*>(CodecPage().data()), kPageBytes, encoded.data(),
                               kPageBytes);
    std::vector<short> out(kPageBytes / 2);
    int bytes = 0;
    for (auto _ : state) {
        bytes = codec.Decode(encoded.data(), n, out.data(), kPageBytes);
        benchmark::DoNotOptimize(out.data());
    }
    if (bytes != kPageBytes) state.SkipWithError("decoded a wrong byte count");
    state.counters["x_realtime"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

int assertCount = 0;
void CountAssert(const char* message, const char* sourceFile, int line) {
    if (assertCount++ < 5) std::fprintf(stderr, "assertion: %s (%s:%d)\n", message, sourceFile, line);
}

}  // namespace

BENCHMARK(BM_Resample_LxAudioResampler)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->Iterations(1)->Repetitions(3);
BENCHMARK(BM_Resample_SoxrHQ)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(3);
BENCHMARK(BM_Resample_LxAudioResampler_Mono)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->Iterations(1)->Repetitions(3);
BENCHMARK(BM_Resample_SoxrHQ_Mono)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(3);
BENCHMARK(BM_Resample_SoxrVHQ)->Unit(benchmark::kMillisecond)->Iterations(2)->Repetitions(3);
BENCHMARK(BM_Resample_SrcSincBest)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_Resample_SrcSincMedium)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_Read_UnitGain)->Unit(benchmark::kMillisecond)->MinTime(0.5)->Repetitions(3);
BENCHMARK(BM_Read_Gain)->Unit(benchmark::kMillisecond)->MinTime(0.5)->Repetitions(3);
BENCHMARK(BM_Edit_Delete_2h)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Edit_Delete_1min)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Edit_InsertAt_2h)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Edit_InsertAt_1min)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Edit_AddEffect_2h)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Edit_AddEffect_1min)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Edit_Undo_2h)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Edit_Undo_1min)->Unit(benchmark::kMicrosecond)->UseManualTime()->Iterations(300);
BENCHMARK(BM_Thumbnail_2h_Cold)->Unit(benchmark::kMillisecond)->Iterations(10)->Repetitions(3);
BENCHMARK(BM_Thumbnail_2h_Warm)->Unit(benchmark::kMillisecond)->Iterations(10)->Repetitions(3);
BENCHMARK(BM_Codec_EncodePage_Store)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_Codec_EncodePage_Unmanaged)->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_Codec_DecodePage_Store)->Unit(benchmark::kMillisecond)->MinTime(1.0);

int main(int argc, char** argv) {
    LxSetAssertHandler(CountAssert);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (assertCount > 0) std::fprintf(stderr, "%d assertion reports during the run\n", assertCount);
    return assertCount > 0 ? 2 : 0;
}
