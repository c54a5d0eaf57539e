// Exporting to WAVE files: byte-exact files at 44100, other rates through the
// resampler, portions and channel changes, progress and cancel, and failures
// that must leave nothing behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
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
#include "VoiceSignal.h"
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

// A playable source that claims more frames than a RIFF file can hold, and
// counts how often it is read.
class HugeClip : public ILxAudioPlaybackClip {
public:
    int pulls = 0;
    int WorthInBytes() const override { return INT_MAX; }
    int WorthInFrames() const override { return INT_MAX; }
    float WorthInSeconds() const override { return static_cast<float>(INT_MAX) / 44100.0f; }
    int WorthInDeciSeconds() const override { return INT_MAX / 4410; }
    void SetPortionToBePlayedBack(int, int) override {}
    void SeekToBeginning() override {}
    void GetNextPCMData(int, unsigned char*, int, int& written, LxPCMData*, bool) override {
        written = 0;
        ++pulls;
    }
};

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
    EXPECT_EQ(FilesIn(tmp.Dir()), (std::vector<std::string>{"in.wav", "out16.wav", "out24.wav", "out32.wav"}));
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
    AssertRecorder recorder;
    auto exporter = controller.GetWAVExporter(1, 22050, 32, nullptr, nullptr);
    ASSERT_EQ(exporter->Export(id, tmp.Child("out.wav")), 0);
    EXPECT_EQ(recorder.Count(), 0u);
    const WavWriter::Parsed w = ParseWave(FileBytes(tmp.Child("out.wav")));
    EXPECT_EQ(std::make_tuple(w.tag, w.channels, w.rate, w.bits), std::make_tuple(3, 1, 22050, 32));
    // One second stays one second, to the frame: the filters' tail is flushed.
    ASSERT_EQ(w.data.size(), 22050u * 4);
    EXPECT_EQ(exporter->GetFramesWritten(), 22050);
    // The mean of the two tones, where it was in time, away from the two edges
    // where the filters see silence.
    double worst = 0.0;
    for (int i = 300; i < 22050 - 300; ++i) {
        float f;
        std::memcpy(&f, &w.data[static_cast<size_t>(i) * 4], 4);
        worst = std::max(worst, std::fabs(f - (Tone(440, 0.5, 22050, i) + Tone(1000, 0.25, 22050, i)) / 2));
    }
    EXPECT_LT(worst, 0.0005);
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
    for (auto [start, end] : std::vector<std::pair<int, int>>{{5, 105}, {44101, 88201}, {100035, -1}, {1, 100036}, {9, 9}}) {
        SCOPED_TRACE(std::to_string(start) + ".." + std::to_string(end));
        AssertRecorder recorder;
        LxFile out = tmp.Child("portion.wav");
        ASSERT_EQ(exporter->Export(*clip, start, end, out), 0);
        std::vector<int16_t> expected(pcm.begin() + 2 * (start - 1), pcm.begin() + 2 * ((end == -1 ? 100036 : end) - 1));
        EXPECT_EQ(FileBytes(out), Wave16(2, expected));
        EXPECT_EQ(recorder.Count(), 0u);
    }

    // A mono clip exported as stereo: every sample twice.
    std::vector<int16_t> mono = MakeRamp(900, 1, 9);
    int monoID = StoreClip(controller, mono, 1);
    ASSERT_GT(monoID, 0);
    ASSERT_EQ(controller.GetWAVExporter(2, 44100, 16, nullptr, nullptr)->Export(monoID, tmp.Child("stereo.wav")), 0);
    EXPECT_EQ(FileBytes(tmp.Child("stereo.wav")), Wave16(2, BothSides(mono)));
    // 24-bit mono of an odd frame count has a pad byte after the data.
    ASSERT_EQ(controller.GetWAVExporter(1, 44100, 24, nullptr, nullptr)->Export(*controller.GetClip(monoID), 3, 6, tmp.Child("pad.wav")), 0);
    std::vector<uint8_t> padded = FileBytes(tmp.Child("pad.wav"));
    EXPECT_EQ(ParseWave(padded).data.size(), 9u);
    EXPECT_EQ(padded.size(), 54u);
    EXPECT_EQ(padded.back(), 0);
}

TEST(WavExporter, WritesIntoAStreamAfterWhatItHolds) {
    std::vector<int16_t> pcm = MakeRamp(4995, 2, 10);
    LxAudioController controller;
    auto clip = controller.GetClip(StoreClip(controller, pcm, 2));
    auto exporter = controller.GetWAVExporter(2, 44100, 16, nullptr, nullptr);
    LxMemoryStream stream(std::vector<uint8_t>{'a', 'b', 'c'});
    stream.Seek(0, kLxSeekEnd);
    ASSERT_EQ(exporter->Export(*clip, 1, -1, &stream), 0);
    std::vector<uint8_t> expected = {'a', 'b', 'c'};
    std::vector<uint8_t> wave = Wave16(2, pcm);
    expected.insert(expected.end(), wave.begin(), wave.end());
    EXPECT_EQ(stream.GetBytes(), expected);
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
        EXPECT_EQ(progress.reports, 10);  // pages of mono read as stereo come in halves
        EXPECT_EQ(progress.ends, 1);
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
    LxMemoryStream stream(std::vector<uint8_t>{1, 2});
    stream.Seek(2, kLxSeekBegin);
    EXPECT_EQ(exporter->Export(*clip, 1, -1, &stream), -2);
    EXPECT_EQ(stream.GetBytes(), (std::vector<uint8_t>{1, 2}));
    EXPECT_EQ(recorder.Count(), 0u);
    EXPECT_EQ(FileBytes(target), before);
    EXPECT_EQ(FilesIn(tmp.Dir()), (std::vector<std::string>{"lecture.wav"}));
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
    for (int64_t limit : {44, 30000}) {
        FailingStream stream(limit);
        EXPECT_EQ(exporter->Export(*clip, 1, -1, &stream), -1) << limit;
        expectReport("Cannot write the exported audio");
        EXPECT_EQ(stream.GetLength(), 0) << limit;
    }
    // Portions outside the clip; a stream that held something keeps it.
    for (auto [start, end] : std::vector<std::pair<int, int>>{{0, -1}, {1, 9002}}) {
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
             {3, 44100, 16}, {2, 44100, 8}, {2, 999, 16}}) {
        auto bad = controller.GetWAVExporter(channels, rate, bits, nullptr, nullptr);
        EXPECT_FALSE(bad->IsFormatSupported());
        EXPECT_EQ(bad->Export(*clip, 1, -1, tmp.Child("bad.wav")), -1);
        ASSERT_EQ(recorder.Count(), 1u);
        EXPECT_EQ(recorder.Reports()[0].message, "Not supported format");
        recorder.Clear();
    }
    // More than a RIFF file can hold, refused before anything is read.
    HugeClip huge;
    LxMemoryStream stream;
    EXPECT_EQ(controller.GetWAVExporter(2, 96000, 32, nullptr, nullptr)->Export(huge, 1, -1, &stream), -1);
    expectReport("Too long for the export format");
    EXPECT_EQ(huge.pulls, 0);
    EXPECT_EQ(stream.GetLength(), 0);
    EXPECT_TRUE(FilesIn(tmp.Dir()).empty());
}
