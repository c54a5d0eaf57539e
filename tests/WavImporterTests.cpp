// Importing WAVE files: the sample conversions, the chunk walk, progress and
// cancel, other rates, and damaged files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include "AssertRecorder.h"
#include "LxAudioController.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxWAVImporter.h"
#include "PcmHelpers.h"
#include "ProgressRecorder.h"
#include "StoreHelpers.h"
#include "TempDir.h"
#include "TestEnvironment.h"
#include "WavWriter.h"

namespace {

std::vector<int16_t> ImportBytes(LxAudioController& controller, const std::vector<uint8_t>& file, int* clipID = nullptr) {
    LxMemoryStream stream(file);
    int id = controller.GetWAVImporter(nullptr, nullptr, false)->Import(&stream);
    if (clipID) *clipID = id;
    if (id < 0) return {};
    auto clip = controller.GetClip(id);
    return ReadAll(*clip, clip->GetChannelsForExport());
}

std::vector<uint8_t> FloatBytes(std::initializer_list<float> values) {
    std::vector<uint8_t> bytes;
    for (float f : values) {
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        WavWriter::Put32(bytes, bits);
    }
    return bytes;
}

}  // namespace

TEST(WavImporter, ConvertsEverySupportedSampleFormat) {
    LxAudioController controller;
    const std::vector<uint8_t> data24 = WavWriter::Repeat(2700, {0xFF, 0x34, 0x12, 0xFF, 0x34, 0x92});
    const std::vector<uint8_t> floats = WavWriter::Repeat(3600, FloatBytes({1.0f, -1.0f, 0.5f, 2.0f, -0.00001f}));
    std::vector<int16_t> stereo = MakeRamp(4410, 2, 3);
    struct Case {
        const char* name;
        std::vector<uint8_t> file;
        std::vector<int16_t> period;  // the samples expected, repeating
    };
    const Case cases[] = {
        {"8-bit unsigned: (b - 128) * 256", WavWriter::Pcm(1, 1, 44100, 8, WavWriter::Repeat(900, {0, 128, 255})),
         {-32768, 0, 32512}},
        {"24-bit: the two upper bytes", WavWriter::Pcm(1, 1, 44100, 24, data24), {0x1234, -28108}},
        {"32-bit integer: the upper 16 bits", WavWriter::Pcm(1, 1, 44100, 32, WavWriter::Repeat(3600, {0x11, 0x22, 0x44, 0xF3})),
         {-3260}},
        {"float: trunc(f * 32767), not clamped, low 16 bits", WavWriter::Pcm(3, 1, 44100, 32, floats),
         {32767, -32767, 16383, -2, 0}},
        {"extensible floats are read as integers", WavWriter::Pcm(65534, 1, 44100, 32, floats, 24),
         {0x3F80, -16512, 0x3F00, 0x4000, -18649}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ImportBytes(controller, c.file), MakePcm(900, 1, [&](int i) { return c.period[i % c.period.size()]; }));
    }
    // 16-bit stereo: unchanged, both channels in place.
    EXPECT_EQ(ImportBytes(controller, WavWriter::Pcm(1, 2, 44100, 16, PcmBytes(stereo))), stereo);
}

TEST(WavImporter, RecognisesWaveFilesWalksChunksAndLeavesTheFooterOut) {
    LxAudioController controller;
    auto probe = controller.GetWAVImporter(nullptr, nullptr, false);
    EXPECT_TRUE(probe->CanImport(LxString("Lecture 1.WAV")));
    EXPECT_FALSE(probe->CanImport(LxString("a.ogg")));
    LxMemoryStream other(std::vector<uint8_t>(20, 'x'));
    EXPECT_FALSE(probe->CanImport(&other));

    std::vector<int16_t> pcm = MakeRamp(450, 1, 5);
    // fmt with 2 extra bytes, an odd-sized LIST chunk with its pad byte, a
    // mixed-case data id, and 7 trailing bytes after the data.
    LxMemoryStream stream(WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16, 2), WavWriter::Chunk("LIST", {1, 2, 3, 4, 5}),
                                           WavWriter::Chunk("dAtA", PcmBytes(pcm))},
                                          {9, 9, 9, 9, 9, 9, 9}));
    EXPECT_TRUE(probe->CanImport(&stream));
    auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
    int id = importer->Import(&stream);
    ASSERT_GT(id, 0);
    EXPECT_EQ(importer->GetHeaderSize(), 12u + 8 + 18 + 8 + 6 + 8);
    EXPECT_EQ(importer->GetFooterSize(), 7u);
    EXPECT_EQ(importer->GetAudioDataSize(&stream), 900u);
    EXPECT_EQ(importer->GetAudioLengthMilliSeconds(), 0);  // 450 frames: 0.0 s to the tenth
    EXPECT_EQ(ReadAll(*controller.GetClip(id), 1), pcm);
    EXPECT_FALSE(importer->IsCutShort());
    EXPECT_EQ(importer->GetPromisedFrames(), 450);
    EXPECT_EQ(importer->GetFoundFrames(), 450);

    // Cut inside its data: what is there is imported, and the importer tells
    // the length the data chunk promised and the length found.
    std::vector<uint8_t> whole = WavWriter::Pcm(1, 2, 22050, 16, PcmBytes(MakeRamp(450, 2, 5)));
    LxMemoryStream cut(std::vector<uint8_t>(whole.begin(), whole.end() - 4 * 150 - 1));
    auto cutImporter = controller.GetWAVImporter(nullptr, nullptr, false);
    EXPECT_GT(cutImporter->Import(&cut), 0);
    EXPECT_TRUE(cutImporter->IsCutShort());
    EXPECT_EQ(cutImporter->GetPromisedFrames(), 450);
    EXPECT_EQ(cutImporter->GetFoundFrames(), 299);  // the last frame lost a byte

    // The end is rounded down to whole 180-byte blocks.
    std::vector<uint8_t> odd = PcmBytes(pcm);
    odd.resize(898);
    EXPECT_EQ(ImportBytes(controller, WavWriter::Pcm(1, 1, 44100, 16, odd)).size(), 360u);
}

TEST(WavImporter, ReportsProgressAndCanBeCancelled) {
    LxAudioController controller;
    const std::vector<uint8_t> file = WavWriter::Pcm(1, 1, 44100, 16, PcmBytes(MakeRamp(44100, 1, 6)));
    for (int cancelAfter : {INT_MAX, 3}) {
        ProgressRecorder progress;
        progress.cancelAfter = cancelAfter;
        LxMemoryStream stream(file);
        auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
        importer->SetProgressCallBack(&progress);
        EXPECT_EQ(importer->Import(&stream), cancelAfter == 3 ? -2 : 1);
        EXPECT_EQ(progress.total, 88200);
        EXPECT_EQ(progress.reports, cancelAfter == 3 ? 3 : 22);  // 88200 bytes in reads of 4092
        EXPECT_EQ(progress.ends, 1);
    }
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_EQ(ids, (std::list<int>{1}));  // the cancelled import stored no clip
}

TEST(WavImporter, DamagedFilesGiveAReportAndNoClip) {
    LxAudioController controller;
    const std::vector<uint8_t> some = WavWriter::Repeat(900, {1});
    const std::vector<uint8_t> good = WavWriter::Pcm(1, 1, 44100, 16, some);
    const char* const notWave = "Not a WAVE file";
    const char* const noData = "No audio data in WAVE file";
    const char* const unsupported = "Not supported format";
    const struct {
        const char* name;
        std::vector<uint8_t> bytes;
        const char* message;
    } cases[] = {
        {"truncated header", std::vector<uint8_t>(good.begin(), good.begin() + 30), notWave},
        {"no data chunk", WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16), WavWriter::Chunk("LIST", {1, 2, 3})}), noData},
        {"3 channels", WavWriter::Pcm(1, 3, 44100, 16, some), unsupported},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AssertRecorder recorder;
        int id = 0;
        EXPECT_TRUE(ImportBytes(controller, c.bytes, &id).empty());
        EXPECT_EQ(id, -1);
        if (c.message == unsupported) {
            ExpectSingleReport(recorder, c.message, "source/components/audiocore/LxWAVImporter", 289);
        } else {
            ExpectReportFrom(recorder, c.message, "audiocore/LxWAVImporter");
        }
    }
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_TRUE(ids.empty());

    // A missing file is refused too.
    TempDir tmp;
    AssertRecorder recorder;
    EXPECT_EQ(controller.GetWAVImporter(nullptr, nullptr, false)->Import(tmp.Child("missing.wav")), -1);
    EXPECT_EQ(recorder.Count(), 1u);
    // And no stream at all.
    AssertRecorder none;
    EXPECT_EQ(controller.GetWAVImporter(nullptr, nullptr, false)->Import(static_cast<ILxStream*>(nullptr)), -1);
    ExpectReportFrom(none, "no stream to import", "audiocore/LxAudioImporter");
}

TEST(WavImporter, ResamplesOtherRatesTo44100) {
    if (!TestEnvironment::HavePrograms({"sox"})) GTEST_SKIP() << "needs the sox program (Linux)";
    TempDir tmp;
    LxAudioController controller;
    const std::string command = "sox -D -n -r 48000 -c 2 -e signed -b 16 '" + tmp.Child("48k.wav").GetPath().str() +
                                "' synth 2 sine 440 vol 0.5 2>/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
    int id = importer->Import(tmp.Child("48k.wav"));
    ASSERT_GT(id, 0);
    auto clip = controller.GetClip(id);
    EXPECT_EQ(clip->GetMaximumNumberOfChannels(), 2);
    // 2 s at 48000 become 2 s at 44100, less the resampler's delay (dropped
    // from the start and not flushed at the end) and the last 180-byte block.
    EXPECT_NEAR(clip->WorthInFrames(), 88200, 180);
    EXPECT_EQ(importer->GetAudioLengthMilliSeconds(), 2000);
    // A 440 Hz tone stays a 440 Hz tone (to two crossings in 1.8 s).
    EXPECT_NEAR(Frequency(ReadAll(*clip, 2), 2, 0), 440.0, 1.1);
}
