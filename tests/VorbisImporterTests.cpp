// Importing Ogg Vorbis files: mono and stereo at 44100 and other rates, files
// of another encoder, chained files, progress and cancel, and damaged files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include "AssertRecorder.h"
#include "LxAudioController.h"
#include "LxNvVorbisImporter.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"
#include "ProgressRecorder.h"
#include "StoreHelpers.h"
#include "TempDir.h"
#include "TestEnvironment.h"
#include "VoiceSignal.h"
#include "VorbisEncoder.h"
#include "WavWriter.h"

namespace {

const char* const kVorbisFile = "source/components/audiocore/LxNvVorbisImporter";

// seconds of 440 Hz at half scale in channel 0, 1000 Hz at 0.3 in channel 1.
std::vector<float> Tones(double seconds, int channels, int rate) {
    const int frames = static_cast<int>(seconds * rate);
    std::vector<float> out(static_cast<size_t>(frames * channels));
    const double f[] = {440.0, 1000.0}, a[] = {0.5, 0.3};
    for (int i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c) out[static_cast<size_t>(i * channels + c)] = static_cast<float>(Tone(f[c], a[c], rate, i));
    }
    return out;
}

}  // namespace

TEST(NvVorbisImporter, ImportsMonoAndStereoAtAnyRate) {
    LxAudioController controller;
    struct Case {
        int channels, rate;
    };
    for (Case c : {Case{2, 44100}, Case{1, 48000}}) {
        SCOPED_TRACE(std::to_string(c.channels) + " x " + std::to_string(c.rate));
        AssertRecorder recorder;
        LxMemoryStream stream(EncodeVorbis(Tones(1.5, c.channels, c.rate), c.channels, c.rate));
        auto importer = controller.GetNvVorbisImporter(nullptr, nullptr);
        int id = importer->Import(&stream);
        ASSERT_GT(id, 0);
        EXPECT_EQ(recorder.Count(), 0u);
        EXPECT_EQ(importer->GetAudioChannels(), c.channels);
        EXPECT_EQ(importer->GetAudioSampleRate(), c.rate);
        EXPECT_EQ(importer->GetTotalFrames(), c.rate * 3 / 2);
        auto clip = controller.GetClip(id);
        EXPECT_EQ(clip->GetMaximumNumberOfChannels(), c.channels);
        if (c.rate == 44100) {
            EXPECT_EQ(clip->WorthInFrames(), 66150);  // whole 180-byte blocks already
        } else {
            // Less the resampler's delay at the start and the last partial block.
            EXPECT_NEAR(clip->WorthInFrames(), 66150, 300);
        }
        std::vector<int16_t> pcm = ReadAll(*clip, c.channels);
        EXPECT_NEAR(Frequency(pcm, c.channels, 0), 440.0, 2.0);
        if (c.channels == 2) {
            EXPECT_NEAR(Frequency(pcm, 2, 1), 1000.0, 2.0);
        }
        // The waveform itself, in time: a lossy codec, but a close one on pure tones.
        double worst = 0.0;
        for (int i = 4410; i < 66150 - 4410; ++i) {
            worst = std::max(worst, std::fabs(pcm[static_cast<size_t>(i * c.channels)] / 32768.0 - Tone(440, 0.5, 44100, i)));
        }
        EXPECT_LT(worst, 0.02);
    }
}

TEST(NvVorbisImporter, ReadsChainedFilesAndRecognisesOggNames) {
    LxAudioController controller;
    std::vector<uint8_t> first = EncodeVorbis(Tones(0.5, 2, 44100), 2, 44100, 1);
    std::vector<uint8_t> second = EncodeVorbis(Tones(0.3, 2, 44100), 2, 44100, 2);
    std::vector<uint8_t> chained = first;
    chained.insert(chained.end(), second.begin(), second.end());
    LxMemoryStream stream(chained);
    auto importer = controller.GetNvVorbisImporter(nullptr, nullptr);
    EXPECT_TRUE(importer->CanImport(&stream));
    int id = importer->Import(&stream);
    ASSERT_GT(id, 0);
    EXPECT_EQ(importer->GetTotalFrames(), 22050 + 13230);
    EXPECT_EQ(controller.GetClip(id)->WorthInFrames(), (22050 + 13230) / 45 * 45);

    EXPECT_TRUE(importer->CanImport(LxString("talk.OGG")));
    EXPECT_FALSE(importer->CanImport(LxString("talk.wav")));
    LxMemoryStream other(std::vector<uint8_t>(100, 'x'));
    EXPECT_FALSE(importer->CanImport(&other));
    EXPECT_EQ(importer->GetSupportedFormats(), (std::vector<LxString>{"ogg", "oga"}));
}

TEST(NvVorbisImporter, ReportsProgressThroughTheFileAndCanBeCancelled) {
    LxAudioController controller;
    const std::vector<uint8_t> file = EncodeVorbis(Tones(3.0, 2, 44100), 2, 44100);
    for (int cancelAfter : {INT_MAX, 5}) {
        ProgressRecorder progress;
        progress.cancelAfter = cancelAfter;
        LxMemoryStream stream(file);
        auto importer = controller.GetNvVorbisImporter(nullptr, nullptr);
        importer->SetProgressCallBack(&progress);
        const int id = importer->Import(&stream);
        EXPECT_EQ(progress.task, "kLxImportingAudio");
        EXPECT_EQ(progress.total, static_cast<int>(file.size()));
        EXPECT_TRUE(progress.monotonic);
        EXPECT_EQ(progress.ends, 1);
        if (cancelAfter == 5) {
            EXPECT_EQ(id, -2);
            EXPECT_EQ(progress.reports, 5);
            EXPECT_LT(progress.last, static_cast<int>(file.size()));
        } else {
            ASSERT_GT(id, 0);
            EXPECT_EQ(progress.last, static_cast<int>(file.size()));
            // About one report per 8184 bytes of PCM, not per 4092 bytes of the file.
            EXPECT_NEAR(progress.reports, 3 * 176400 / 8184, 10);
        }
    }
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_EQ(ids.size(), 1u);
}

TEST(NvVorbisImporter, DamagedFilesGiveAReportAndNoClip) {
    LxAudioController controller;
    const std::vector<uint8_t> good = EncodeVorbis(Tones(2.0, 2, 44100), 2, 44100);
    std::mt19937 random(3);
    std::vector<uint8_t> noise(20000);
    for (auto& b : noise) b = static_cast<uint8_t>(random());
    // Bytes overwritten in the middle of the audio: a page fails its checksum.
    std::vector<uint8_t> hole = good;
    for (size_t i = hole.size() / 2; i < hole.size() / 2 + 64; ++i) hole[i] = static_cast<uint8_t>(random());
    std::vector<uint8_t> chained = EncodeVorbis(Tones(0.5, 2, 44100), 2, 44100, 1);
    std::vector<uint8_t> link48k = EncodeVorbis(Tones(0.5, 2, 48000), 2, 48000, 2);
    chained.insert(chained.end(), link48k.begin(), link48k.end());
    std::vector<uint8_t> withNoise = std::vector<uint8_t>(good.begin(), good.begin() + 4000);
    withNoise.insert(withNoise.end(), noise.begin(), noise.end());
    struct Case {
        const char* name;
        std::vector<uint8_t> bytes;
        const char* message;
    };
    std::vector<Case> cases = {
        {"headers cut", std::vector<uint8_t>(good.begin(), good.begin() + 100), "Not an Ogg Vorbis file"},
        {"no audio", EncodeVorbis({}, 2, 44100), "No audio data in Ogg Vorbis file"},
        {"damaged page", hole, "Damaged Ogg Vorbis data"},
        {"noise after the first pages", withNoise, "Not an Ogg Vorbis file"},
        {"links of two rates", chained, "Not supported format"},
    };
    for (const Case& c : cases) {
        AssertRecorder recorder;
        LxMemoryStream stream(c.bytes);
        auto importer = controller.GetNvVorbisImporter(nullptr, nullptr);
        EXPECT_EQ(importer->Import(&stream), -1) << c.name;
        auto reports = recorder.Reports();
        ASSERT_EQ(reports.size(), 1u) << c.name;
        EXPECT_EQ(reports[0].message, c.message) << c.name;
        EXPECT_EQ(reports[0].sourceFile, kVorbisFile) << c.name;
    }
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_TRUE(ids.empty());

    // A file cut short imports up to its last whole page, as players play it.
    AssertRecorder recorder;
    const std::vector<uint8_t> longer = EncodeVorbis(Tones(5.0, 2, 44100), 2, 44100);
    LxMemoryStream cut(std::vector<uint8_t>(longer.begin(), longer.begin() + static_cast<long>(longer.size() * 8 / 10)));
    auto importer = controller.GetNvVorbisImporter(nullptr, nullptr);
    int id = importer->Import(&cut);
    ASSERT_GT(id, 0);
    EXPECT_EQ(recorder.Count(), 0u);
    EXPECT_GT(controller.GetClip(id)->WorthInFrames(), 5 * 44100 / 2);
    EXPECT_LT(controller.GetClip(id)->WorthInFrames(), 5 * 44100);
    // The page cut off still tells, in its header, where the stream would have
    // reached at its end; the frames found are those of the last whole page.
    EXPECT_TRUE(importer->IsCutShort());
    EXPECT_EQ(importer->GetFoundFrames(), importer->GetTotalFrames());
    EXPECT_GT(importer->GetPromisedFrames(), importer->GetFoundFrames());
    EXPECT_LT(importer->GetPromisedFrames(), 5 * 44100);
    EXPECT_NEAR(controller.GetClip(id)->WorthInFrames(), importer->GetFoundFrames(), 90);
    // The whole file promises what it holds; cut where its last page begins,
    // it lacks the end-of-stream mark, and no length is promised.
    LxMemoryStream intact(longer);
    auto whole = controller.GetNvVorbisImporter(nullptr, nullptr);
    ASSERT_GT(whole->Import(&intact), 0);
    EXPECT_FALSE(whole->IsCutShort());
    EXPECT_EQ(whole->GetPromisedFrames(), 5 * 44100);
    const std::string text(longer.begin(), longer.end());
    LxMemoryStream atPage(std::vector<uint8_t>(longer.begin(), longer.begin() + static_cast<long>(text.rfind("OggS"))));
    auto lastPageLost = controller.GetNvVorbisImporter(nullptr, nullptr);
    ASSERT_GT(lastPageLost->Import(&atPage), 0);
    EXPECT_TRUE(lastPageLost->IsCutShort());
    EXPECT_EQ(lastPageLost->GetPromisedFrames(), -1);

    // A file that does not exist.
    TempDir tmp;
    AssertRecorder missing;
    EXPECT_EQ(controller.GetNvVorbisImporter(nullptr, nullptr)->Import(tmp.Child("missing.ogg")), -1);
    EXPECT_EQ(missing.Count(), 1u);
}

TEST(NvVorbisImporter, DecodesFilesOfOggencLikeOggdec) {
    if (!TestEnvironment::HavePrograms({"oggenc", "oggdec", "sox"})) GTEST_SKIP() << "needs oggenc and oggdec (vorbis-tools) and sox (Linux)";
    TempDir tmp;
    LxAudioController controller;
    const std::string wav = tmp.Child("in.wav").GetPath().str(), ogg = tmp.Child("in.ogg").GetPath().str(),
                      dec = tmp.Child("dec.wav").GetPath().str();
    const std::string make = "sox -D -n -r 44100 -c 2 -b 16 '" + wav + "' synth 2 sine 440 vol 0.5 2>/dev/null && oggenc -Q -q 3 -o '" +
                             ogg + "' '" + wav + "' && oggdec -Q -o '" + dec + "' '" + ogg + "'";
    ASSERT_EQ(std::system(make.c_str()), 0) << make;
    auto importer = controller.GetNvVorbisImporter(nullptr, nullptr);
    EXPECT_TRUE(importer->CanImport(tmp.Child("in.ogg")));
    int id = importer->Import(tmp.Child("in.ogg"));
    ASSERT_GT(id, 0);
    // The same decoder underneath: the very samples oggdec writes.
    const std::vector<int16_t> pcm = ReadAll(*controller.GetClip(id), 2);
    const WavWriter::Parsed decoded = WavWriter::Parse(FileBytes(tmp.Child("dec.wav")));
    ASSERT_FALSE(decoded.data.empty());
    std::vector<int16_t> expected(decoded.data.size() / 2);
    std::memcpy(expected.data(), decoded.data.data(), expected.size() * 2);
    expected.resize(expected.size() / 90 * 90);
    EXPECT_EQ(pcm, expected);
}
