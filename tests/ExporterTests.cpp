// Exporting to WAVE files: byte-exact files at 44100, other rates through the
// resampler, portions and channel changes, progress and cancel, and failures
// that must leave nothing behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numbers>
#include <string>
#include <tuple>
#include <utility>
#include "AssertRecorder.h"
#include "LxAudioController.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxWAVExporter.h"
#include "LxWAVImporter.h"
#include "PcmHelpers.h"
#include "ProgressRecorder.h"
#include "StoreHelpers.h"
#include "TempDir.h"
#include "WavWriter.h"

namespace {

const char* const kExporter = "audiocore/LxAudioExporter";

std::vector<std::string> FilesIn(const LxFile& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(dir.GetPath().str()))) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The 44-byte file of 16-bit PCM at 44100 Hz.
std::vector<uint8_t> Wave16(int channels, const std::vector<int16_t>& pcm) {
    return WavWriter::Pcm(1, static_cast<uint16_t>(channels), 44100, 16, PcmBytes(pcm));
}

// The fields and data of an exported file, whose every header field must be
// what a plain fmt-and-data file of those fields and that data holds.
WavWriter::Parsed ParseWave(const std::vector<uint8_t>& bytes) {
    WavWriter::Parsed w = WavWriter::Parse(bytes);
    EXPECT_EQ(bytes, WavWriter::Pcm(static_cast<uint16_t>(w.tag), static_cast<uint16_t>(w.channels),
                                    static_cast<uint32_t>(w.rate), static_cast<uint16_t>(w.bits), w.data));
    return w;
}

// The samples of a parsed file as floats in [-1, 1).
std::vector<double> Samples(const WavWriter::Parsed& w) {
    std::vector<double> out;
    const size_t step = static_cast<size_t>(w.bits / 8);
    for (size_t i = 0; i + step <= w.data.size(); i += step) {
        const uint8_t* p = &w.data[i];
        if (w.bits == 16) out.push_back(static_cast<int16_t>(p[0] | p[1] << 8) / 32768.0);
        if (w.bits == 24) out.push_back(static_cast<int32_t>(uint32_t(p[0]) << 8 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 24) / 2147483648.0);
        if (w.bits == 32) {
            float f;
            std::memcpy(&f, p, 4);
            out.push_back(f);
        }
    }
    return out;
}

// A playable source without a store: known samples, portions, and optionally
// a single empty pull before the end and small pieces per pull.
class FakeClip : public ILxAudioPlaybackClip {
public:
    FakeClip(std::vector<int16_t> pcm, int channels) : pcm_(std::move(pcm)), channels_(channels) {
        frames_ = static_cast<int>(pcm_.size()) / channels_;
        stop_ = frames_;
    }
    int claimedFrames = -1;  // what WorthInFrames says, when not the real count
    int emptyPullAt = -1;    // the pull (0-based) that delivers nothing
    int pieceFrames = 1 << 30;
    int pulls = 0;

    int WorthInBytes() const override { return WorthInFrames() * channels_ * 2; }
    int WorthInFrames() const override { return claimedFrames >= 0 ? claimedFrames : frames_; }
    float WorthInSeconds() const override { return static_cast<float>(WorthInFrames()) / 44100.0f; }
    int WorthInDeciSeconds() const override { return WorthInFrames() / 4410; }
    void SetPortionToBePlayedBack(int start, int end) override {
        position_ = start - 1;
        stop_ = end == -1 ? frames_ : std::min(end - 1, frames_);
    }
    void SeekToBeginning() override { position_ = 0; }
    void GetNextPCMData(int channels, unsigned char* out, int capacity, int& written, LxPCMData*, bool) override {
        written = 0;
        if (pulls++ == emptyPullAt) return;
        int n = std::min({stop_ - position_, pieceFrames, capacity / (channels * 2)});
        auto* samples = reinterpret_cast<int16_t*>(out);
        for (int i = 0; i < n; ++i, ++position_) {
            const int16_t* frame = &pcm_[static_cast<size_t>(position_ * channels_)];
            for (int c = 0; c < channels; ++c) samples[i * channels + c] = frame[std::min(c, channels_ - 1)];
        }
        written = std::max(n, 0) * channels * 2;
    }

private:
    std::vector<int16_t> pcm_;
    int channels_;
    int frames_ = 0;
    int position_ = 0;
    int stop_ = 0;
};

bool HaveSox() {
#if defined(_WIN32)
    return false;
#else
    return std::system("sox --version > /dev/null 2>&1") == 0;
#endif
}

// A tone of frequency f and amplitude a (of full scale) at rate r, sample i.
double Tone(double f, double a, double r, int i) { return a * std::sin(2.0 * std::numbers::pi * f * i / r); }

}  // namespace

TEST(WavExporter, ExportsAt44100ExactlyWhatWasImported) {
    TempDir tmp;
    LxAudioController controller;
    // 100003 stereo frames: the import keeps whole 180-byte blocks, 100002 frames minus 42.
    std::vector<int16_t> pcm = MakeRamp(100003, 2, 4);
    WriteFileBytes(tmp.Child("in.wav"), WavWriter::File({WavWriter::Fmt(1, 2, 44100, 16), WavWriter::Chunk("LIST", {1, 2, 3}),
                                                         WavWriter::Chunk("data", PcmBytes(pcm))}));
    int id = controller.GetWAVImporter(nullptr, nullptr, false)->Import(tmp.Child("in.wav"));
    ASSERT_GT(id, 0);
    std::vector<int16_t> kept(pcm.begin(), pcm.begin() + static_cast<long>(pcm.size() / 90 * 90));
    ASSERT_EQ(kept.size(), 99990u * 2);

    // The whole file, byte for byte, in each of the three sample formats.
    std::vector<uint8_t> data24, dataFloat;
    for (int16_t s : kept) {
        uint32_t v = static_cast<uint32_t>(s) << 8;
        data24.insert(data24.end(), {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16)});
        float f = static_cast<float>(s) / 32768.0f;
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        WavWriter::Put32(dataFloat, bits);
    }
    for (const auto& [bits, expected] : {std::pair{16, Wave16(2, kept)}, std::pair{24, WavWriter::Pcm(1, 2, 44100, 24, data24)},
                                         std::pair{32, WavWriter::Pcm(3, 2, 44100, 32, dataFloat)}}) {
        AssertRecorder recorder;
        auto exporter = controller.GetWAVExporter(2, 44100, bits, nullptr, nullptr);
        EXPECT_EQ(exporter->GetSupportedFormats(), (std::vector<LxString>{"wav", "wave"}));
        LxFile out = tmp.Child(("out" + std::to_string(bits) + ".wav").c_str());
        ASSERT_EQ(exporter->Export(id, out), 0) << bits;
        EXPECT_EQ(exporter->GetFramesWritten(), 99990);
        EXPECT_EQ(FileBytes(out), expected) << bits;
        EXPECT_EQ(recorder.Count(), 0u);
    }
    // Only the targets are left in the directory: no temporary files.
    EXPECT_EQ(FilesIn(tmp.Dir()), (std::vector<std::string>{"in.wav", "out16.wav", "out24.wav", "out32.wav"}));

    // Another program reads all three back to the same 16-bit samples.
    if (HaveSox()) {
        for (const char* name : {"out16.wav", "out24.wav", "out32.wav"}) {
            std::string in = tmp.Child(name).GetPath().str(), raw = tmp.Child("sox.raw").GetPath().str();
            ASSERT_EQ(std::system(("sox -D '" + in + "' -t s16 '" + raw + "' 2>/dev/null").c_str()), 0) << name;
            EXPECT_EQ(FileBytes(tmp.Child("sox.raw")), PcmBytes(kept)) << name;
        }
    }
}

TEST(WavExporter, ResamplesToOtherRates) {
    TempDir tmp;
    LxAudioController controller;
    // One second: 440 Hz at half scale on the left, 1000 Hz at quarter scale on the right.
    std::vector<int16_t> pcm(44100 * 2);
    for (int i = 0; i < 44100; ++i) {
        pcm[2 * i] = static_cast<int16_t>(std::lround(32768.0 * Tone(440, 0.5, 44100, i)));
        pcm[2 * i + 1] = static_cast<int16_t>(std::lround(32768.0 * Tone(1000, 0.25, 44100, i)));
    }
    int id = StoreClip(controller, pcm, 2);
    ASSERT_GT(id, 0);
    struct Case {
        int channels, rate, bits;
    };
    for (Case c : {Case{2, 48000, 16}, Case{2, 22050, 32}, Case{1, 48000, 24}, Case{2, 8000, 16}}) {
        SCOPED_TRACE(std::to_string(c.channels) + " x " + std::to_string(c.rate) + " x " + std::to_string(c.bits));
        AssertRecorder recorder;
        int context = 0;
        auto exporter = controller.GetWAVExporter(c.channels, c.rate, c.bits, [](LxCallBack&, void*) {}, &context);
        EXPECT_TRUE(exporter->IsFormatSupported());
        LxFile out = tmp.Child("out.wav");
        ASSERT_EQ(exporter->Export(id, out), 0);
        EXPECT_EQ(recorder.Count(), 0u);
        const WavWriter::Parsed w = ParseWave(FileBytes(out));
        EXPECT_EQ(std::make_tuple(w.tag, w.channels, w.rate, w.bits), std::make_tuple(c.bits == 32 ? 3 : 1, c.channels, c.rate, c.bits));
        EXPECT_EQ(std::make_tuple(exporter->GetFormatTag(), exporter->GetChannels(), exporter->GetFrameRate(),
                                  exporter->GetBitsPerSample()), std::make_tuple(w.tag, w.channels, w.rate, w.bits));
        // One second stays one second, to the frame: the filters' tail is flushed.
        std::vector<double> s = Samples(w);
        ASSERT_EQ(s.size(), static_cast<size_t>(c.rate * c.channels));
        EXPECT_EQ(exporter->GetFramesWritten(), c.rate);
        // The tones are where they were in time, away from the two edges where
        // the filters see silence. Mono is the mean of the two channels.
        double worst = 0.0, rightWorst = 0.0;
        for (int i = 300; i < c.rate - 300; ++i) {
            double left = c.channels == 2 ? Tone(440, 0.5, c.rate, i)
                                          : (Tone(440, 0.5, c.rate, i) + Tone(1000, 0.25, c.rate, i)) / 2;
            worst = std::max(worst, std::fabs(s[static_cast<size_t>(i * c.channels)] - left));
            if (c.channels == 2) {
                rightWorst = std::max(rightWorst, std::fabs(s[static_cast<size_t>(i * 2 + 1)] - Tone(1000, 0.25, c.rate, i)));
            }
        }
        EXPECT_LT(worst, 0.0005);
        EXPECT_LT(rightWorst, 0.0005);
    }
}

TEST(WavExporter, ExportsExactlyThePortionAndConvertsChannels) {
    TempDir tmp;
    LxAudioController controller;
    // Three pages of stereo: 44100 frames a page.
    std::vector<int16_t> pcm = MakeRamp(100035, 2, 8);
    int id = StoreClip(controller, pcm, 2);
    ASSERT_GT(id, 0);
    auto clip = controller.GetClip(id);
    ASSERT_EQ(clip->WorthInFrames(), 100035);
    auto exporter = controller.GetWAVExporter(2, 44100, 16, nullptr, nullptr);
    for (auto [start, end] : std::vector<std::pair<int, int>>{{1, -1}, {5, 105}, {44000, 44300}, {44101, 88201}, {88201, -1},
                                                            {100035, -1}, {7, 8}, {1, 100036}, {9, 9}, {100036, -1}}) {
        SCOPED_TRACE(std::to_string(start) + ".." + std::to_string(end));
        AssertRecorder recorder;
        LxFile out = tmp.Child("portion.wav");
        ASSERT_EQ(exporter->Export(*clip, start, end, out), 0);
        std::vector<int16_t> expected(pcm.begin() + 2 * (start - 1), pcm.begin() + 2 * ((end == -1 ? 100036 : end) - 1));
        EXPECT_EQ(FileBytes(out), Wave16(2, expected));
        EXPECT_EQ(recorder.Count(), 0u);
    }

    // A mono clip exported as stereo: every sample twice.
    std::vector<int16_t> mono = MakeRamp(90000, 1, 9);
    int monoID = StoreClip(controller, mono, 1);
    ASSERT_GT(monoID, 0);
    std::vector<int16_t> doubled;
    for (int16_t s : mono) doubled.insert(doubled.end(), {s, s});
    ASSERT_EQ(controller.GetWAVExporter(2, 44100, 16, nullptr, nullptr)->Export(monoID, tmp.Child("stereo.wav")), 0);
    EXPECT_EQ(FileBytes(tmp.Child("stereo.wav")), Wave16(2, doubled));
    // 24-bit mono of an odd frame count has a pad byte after the data.
    ASSERT_EQ(controller.GetWAVExporter(1, 44100, 24, nullptr, nullptr)->Export(*controller.GetClip(monoID), 3, 6, tmp.Child("pad.wav")), 0);
    std::vector<uint8_t> padded = FileBytes(tmp.Child("pad.wav"));
    EXPECT_EQ(ParseWave(padded).data.size(), 9u);
    EXPECT_EQ(padded.size(), 54u);
    EXPECT_EQ(padded.back(), 0);
}

TEST(WavExporter, PullsAnyPlayableSourceIntoAnyStream) {
    // A source that hands out odd pieces and one empty pull before its end.
    std::vector<int16_t> pcm = MakeRamp(5000, 2, 10);
    FakeClip source(pcm, 2);
    source.pieceFrames = 333;
    source.emptyPullAt = 4;
    LxAudioController controller;
    auto exporter = controller.GetWAVExporter(2, 44100, 16, nullptr, nullptr);
    // Into a stream that already holds something: the file follows it.
    LxMemoryStream stream(std::vector<uint8_t>{'a', 'b', 'c'});
    stream.Seek(0, kLxSeekEnd);
    ASSERT_EQ(exporter->Export(source, 1, -1, &stream), 0);
    std::vector<uint8_t> expected = {'a', 'b', 'c'};
    std::vector<uint8_t> wave = Wave16(2, pcm);
    expected.insert(expected.end(), wave.begin(), wave.end());
    EXPECT_EQ(stream.GetBytes(), expected);
    EXPECT_EQ(stream.GetPosition(), static_cast<int64_t>(expected.size()));

    // A source that delivers more than it claims is cut at its claimed end.
    FakeClip longer(pcm, 2);
    longer.claimedFrames = 1000;
    LxMemoryStream cut;
    ASSERT_EQ(exporter->Export(longer, 1, -1, &cut), 0);
    EXPECT_EQ(cut.GetLength(), 44 + 4000);
    // One that delivers less gives a shorter file with the right sizes.
    FakeClip shorter(pcm, 2);
    shorter.claimedFrames = 9000;
    LxMemoryStream partial;
    ASSERT_EQ(exporter->Export(shorter, 1, -1, &partial), 0);
    EXPECT_EQ(ParseWave(partial.GetBytes()).data.size(), 20000u);
}

TEST(WavExporter, ReportsProgressAndCancelLeavesNothingBehind) {
    TempDir tmp;
    LxAudioController controller;
    std::vector<int16_t> pcm = MakeRamp(441000, 1, 11);  // 10 s of mono: 5 pages
    int id = StoreClip(controller, pcm, 1);
    ASSERT_GT(id, 0);
    auto clip = controller.GetClip(id);
    LxFile target = tmp.Child("lecture.wav");
    {
        ProgressRecorder progress;
        auto exporter = controller.GetWAVExporter(2, 48000, 16, nullptr, nullptr);
        exporter->SetProgressCallBack(&progress);
        ASSERT_EQ(exporter->Export(*clip, 1, -1, target), 0);
        EXPECT_EQ(progress.task, "kLxExportingAudio");
        EXPECT_EQ(progress.total, 441000);
        EXPECT_EQ(progress.last, 441000);
        EXPECT_EQ(progress.reports, 10);  // pages of mono read as stereo come in halves
        EXPECT_EQ(progress.ends, 1);
        EXPECT_TRUE(progress.monotonic);
    }
    const std::vector<uint8_t> before = FileBytes(target);
    ASSERT_EQ(before.size(), 44u + 480000 * 4);

    // Cancelled by the progress receiver, then through Cancel: -2 each time,
    // the earlier file untouched, and no temporary file left.
    auto exporter = controller.GetWAVExporter(1, 44100, 24, nullptr, nullptr);
    ProgressRecorder progress;
    progress.cancelAfter = 2;
    exporter->SetProgressCallBack(&progress);
    AssertRecorder recorder;
    EXPECT_EQ(exporter->Export(*clip, 1, -1, target), -2);
    EXPECT_EQ(progress.reports, 2);
    EXPECT_EQ(progress.ends, 1);
    EXPECT_EQ(exporter->GetFramesWritten(), 0);
    exporter->SetProgressCallBack(nullptr);
    exporter->Cancel();
    EXPECT_EQ(exporter->Export(*clip, 1, -1, tmp.Child("other.wav")), -2);
    LxMemoryStream stream(std::vector<uint8_t>{1, 2});
    stream.Seek(2, kLxSeekBegin);
    exporter->Cancel();
    EXPECT_EQ(exporter->Export(*clip, 1, -1, &stream), -2);
    EXPECT_EQ(stream.GetBytes(), (std::vector<uint8_t>{1, 2}));
    EXPECT_EQ(recorder.Count(), 0u);
    EXPECT_EQ(FileBytes(target), before);
    EXPECT_EQ(FilesIn(tmp.Dir()), (std::vector<std::string>{"lecture.wav"}));

    // A cancel applies to one export; the exporter works again after it.
    ASSERT_EQ(exporter->Export(*clip, 1, 4411, target), 0);
    EXPECT_EQ(FileBytes(target).size(), 44u + 4410 * 3);
}

namespace {

// A memory stream whose writes fail once it holds limit bytes.
class FailingStream : public LxMemoryStream {
public:
    explicit FailingStream(int64_t limit) : limit_(limit) {}
    int Write(const void* buffer, int bytes) override {
        int room = static_cast<int>(std::max<int64_t>(0, std::min<int64_t>(bytes, limit_ - GetPosition())));
        return LxMemoryStream::Write(buffer, room);
    }

private:
    int64_t limit_;
};

}  // namespace

TEST(WavExporter, FailuresAreReportedAndLeaveNothingBehind) {
    TempDir tmp;
    LxAudioController controller;
    std::vector<int16_t> pcm = MakeRamp(9000, 2, 12);
    int id = StoreClip(controller, pcm, 2);
    ASSERT_GT(id, 0);
    auto clip = controller.GetClip(id);
    auto exporter = controller.GetWAVExporter(2, 44100, 16, nullptr, nullptr);
    AssertRecorder recorder;
    const auto expectReport = [&](const char* message) {
        ExpectReportFrom(recorder, message, kExporter);
        recorder.Clear();
    };
    EXPECT_EQ(exporter->Export(*clip, 1, -1, tmp.Child("missing").GetChild("out.wav")), -1);
    expectReport("Cannot create the export file");
    EXPECT_EQ(exporter->Export(*clip, 1, -1, tmp.Dir()), -1);
    expectReport("The export target is not a file name");
    EXPECT_EQ(exporter->Export(id + 1, tmp.Child("bad.wav")), -1);
    expectReport("No such clip to export");
    EXPECT_EQ(exporter->Export(*clip, 1, -1, static_cast<ILxStream*>(nullptr)), -1);
    expectReport("No stream to export to");
    // A disk that fills up half-way: the stream is cut back to where it started.
    for (int64_t limit : {10, 44, 30000}) {
        FailingStream stream(limit);
        EXPECT_EQ(exporter->Export(*clip, 1, -1, &stream), -1) << limit;
        expectReport("Cannot write the exported audio");
        EXPECT_EQ(stream.GetLength(), 0) << limit;
    }
    // Portions outside the clip; a stream that held something keeps it.
    for (auto [start, end] : std::vector<std::pair<int, int>>{{0, -1}, {9002, -1}, {10, 9}, {1, 9002}, {-5, 3}}) {
        EXPECT_EQ(exporter->Export(*clip, start, end, tmp.Child("bad.wav")), -1);
        expectReport("Invalid portion to export");
        LxMemoryStream held(std::vector<uint8_t>(100, 7));
        held.Seek(10, kLxSeekBegin);
        EXPECT_EQ(exporter->Export(*clip, start, end, &held), -1);
        EXPECT_EQ(held.GetBytes(), std::vector<uint8_t>(100, 7));
        EXPECT_EQ(held.GetPosition(), 10);
        recorder.Clear();
    }
    // Formats that cannot be written.
    for (auto [channels, rate, bits] : std::vector<std::tuple<int, int, int>>{
             {0, 44100, 16}, {3, 44100, 16}, {2, 44100, 8}, {2, 44100, 12}, {2, 999, 16}, {2, 768001, 16}, {2, -44100, 16}}) {
        auto bad = controller.GetWAVExporter(channels, rate, bits, nullptr, nullptr);
        EXPECT_FALSE(bad->IsFormatSupported());
        EXPECT_EQ(bad->Export(*clip, 1, -1, tmp.Child("bad.wav")), -1);
        ASSERT_EQ(recorder.Count(), 1u);
        EXPECT_EQ(recorder.Reports()[0].message, "Not supported format");
        recorder.Clear();
    }
    // More than a RIFF file can hold, refused before anything is read.
    FakeClip huge(pcm, 2);
    huge.claimedFrames = INT_MAX;
    LxMemoryStream stream;
    EXPECT_EQ(controller.GetWAVExporter(2, 96000, 32, nullptr, nullptr)->Export(huge, 1, -1, &stream), -1);
    expectReport("Too long for the export format");
    EXPECT_EQ(huge.pulls, 0);
    EXPECT_EQ(stream.GetLength(), 0);
    EXPECT_TRUE(FilesIn(tmp.Dir()).empty());
}
