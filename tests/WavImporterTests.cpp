// Importing WAVE files: the sample conversions, the chunk walk, progress and
// cancel, files written by another program, and damaged files.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include "AssertRecorder.h"
#include "LxAudioController.h"
#include "LxPublic/ILxGeneralProgressCallBack.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "LxWAVImporter.h"
#include "PcmHelpers.h"
#include "TempDir.h"
#include "WavWriter.h"

namespace {

const char* const kWavSource = "source/components/audiocore/LxWAVImporter";

std::vector<int16_t> ImportBytes(LxAudioController& controller, const std::vector<uint8_t>& file, int* clipID = nullptr,
                                 int channels = 0) {
    LxMemoryStream stream(file);
    auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
    int id = importer->Import(&stream);
    if (clipID) *clipID = id;
    if (id < 0) return {};
    auto clip = controller.GetClip(id);
    return ReadAll(*clip, channels == 0 ? clip->GetChannelsForExport() : channels);
}

std::vector<uint8_t> Samples8(int n, const std::vector<uint8_t>& pattern) {
    std::vector<uint8_t> out;
    for (int i = 0; i < n; ++i) out.push_back(pattern[static_cast<size_t>(i) % pattern.size()]);
    return out;
}

}  // namespace

TEST(WavImporter, ConvertsEverySupportedSampleFormat) {
    LxAudioController controller;
    // 8-bit unsigned: (b - 128) * 256.
    std::vector<int16_t> got = ImportBytes(controller, WavWriter::File({WavWriter::Fmt(1, 1, 44100, 8),
                                                                       WavWriter::Chunk("data", Samples8(900, {0, 128, 255}))}));
    ASSERT_EQ(got.size(), 900u);
    EXPECT_EQ(got[0], -32768);
    EXPECT_EQ(got[1], 0);
    EXPECT_EQ(got[2], 32512);

    // 24-bit: the two upper bytes.
    std::vector<uint8_t> data24;
    for (int i = 0; i < 900; ++i) data24.insert(data24.end(), {0xFF, 0x34, static_cast<uint8_t>(i % 2 ? 0x92 : 0x12)});
    got = ImportBytes(controller, WavWriter::File({WavWriter::Fmt(1, 1, 44100, 24), WavWriter::Chunk("data", data24)}));
    ASSERT_EQ(got.size(), 900u);
    EXPECT_EQ(got[0], 0x1234);
    EXPECT_EQ(got[1], static_cast<int16_t>(0x9234));
    // The same through the extensible format tag.
    EXPECT_EQ(ImportBytes(controller, WavWriter::File({WavWriter::Fmt(65534, 1, 44100, 24, 24),
                                                       WavWriter::Chunk("data", data24)})),
              got);

    // 32-bit integer: the upper 16 bits.
    std::vector<uint8_t> data32;
    for (int i = 0; i < 900; ++i) data32.insert(data32.end(), {0x11, 0x22, 0x44, 0xF3});
    got = ImportBytes(controller, WavWriter::File({WavWriter::Fmt(1, 1, 44100, 32), WavWriter::Chunk("data", data32)}));
    ASSERT_EQ(got.size(), 900u);
    EXPECT_EQ(got[5], static_cast<int16_t>(0xF344));

    // 32-bit float: trunc(f * 32767), not clamped, low 16 bits kept.
    std::vector<uint8_t> floats;
    for (float f : {1.0f, -1.0f, 0.5f, 2.0f, -0.00001f}) {
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        WavWriter::Put32(floats, bits);
    }
    std::vector<uint8_t> floatData;
    for (int i = 0; i < 180; ++i) floatData.insert(floatData.end(), floats.begin(), floats.end());
    got = ImportBytes(controller, WavWriter::File({WavWriter::Fmt(3, 1, 44100, 32), WavWriter::Chunk("data", floatData)}));
    ASSERT_EQ(got.size(), 900u);
    EXPECT_EQ((std::vector<int16_t>(got.begin(), got.begin() + 5)), (std::vector<int16_t>{32767, -32767, 16383, -2, 0}));
    // An extensible file of floats is still read as integers.
    got = ImportBytes(controller,
                      WavWriter::File({WavWriter::Fmt(65534, 1, 44100, 32, 24), WavWriter::Chunk("data", floatData)}));
    ASSERT_EQ(got.size(), 900u);
    EXPECT_EQ(got[0], 0x3F80);

    // 16-bit stereo: unchanged, both channels in place.
    std::vector<int16_t> stereo = MakeRamp(4410, 2, 3);
    std::vector<uint8_t> data16(reinterpret_cast<uint8_t*>(stereo.data()),
                                reinterpret_cast<uint8_t*>(stereo.data()) + stereo.size() * 2);
    EXPECT_EQ(ImportBytes(controller, WavWriter::File({WavWriter::Fmt(1, 2, 44100, 16), WavWriter::Chunk("data", data16)})),
              stereo);
}

TEST(WavImporter, WalksChunksAndLeavesTheFooterOut) {
    LxAudioController controller;
    std::vector<int16_t> pcm = MakeRamp(450, 1, 5);
    std::vector<uint8_t> data(reinterpret_cast<uint8_t*>(pcm.data()), reinterpret_cast<uint8_t*>(pcm.data()) + 900);
    // fmt with 2 extra bytes, an odd-sized LIST chunk with its pad byte, a
    // mixed-case data id, and 7 trailing bytes after the data.
    std::vector<uint8_t> file = WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16, 2),
                                                 WavWriter::Chunk("LIST", {1, 2, 3, 4, 5}), WavWriter::Chunk("dAtA", data)},
                                                {9, 9, 9, 9, 9, 9, 9});
    LxMemoryStream stream(file);
    auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
    int id = importer->Import(&stream);
    ASSERT_GT(id, 0);
    EXPECT_EQ(importer->GetHeaderSize(), 12u + 8 + 18 + 8 + 6 + 8);
    EXPECT_EQ(importer->GetFooterSize(), 7u);
    EXPECT_EQ(importer->GetAudioDataSize(&stream), 900u);
    EXPECT_EQ(importer->GetAudioChannels(), 1);
    EXPECT_EQ(importer->GetAudioSampleRate(), 44100);
    EXPECT_EQ(importer->GetAudioBitRate(), 16 * 44100);
    EXPECT_EQ(importer->GetAudioLengthMilliSeconds(), 0);  // 450 frames: 0.0 s to the tenth
    auto clip = controller.GetClip(id);
    EXPECT_EQ(ReadAll(*clip, 1), pcm);

    // The end is rounded down to whole 180-byte blocks.
    std::vector<uint8_t> odd(data.begin(), data.begin() + 898);
    std::vector<int16_t> got = ImportBytes(controller, WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16),
                                                                       WavWriter::Chunk("data", odd)}));
    EXPECT_EQ(got.size(), 360u);
}

namespace {

class CancellingProgress : public ILxGeneralProgressCallBack {
public:
    int reports = 0;
    int total = -1;
    int ends = 0;
    int cancelAfter = 1000000;
    void BeginTask(const LxString& key, int n, int) override {
        EXPECT_EQ(key, LxString("kLxImportingAudio"));
        total = n;
    }
    void BeginNextTask(const LxString&, int) override {}
    void ReportProgress(int) override { ++reports; }
    bool IsCancelled() override { return reports >= cancelAfter; }
    void EndTask() override { ++ends; }
};

}  // namespace

TEST(WavImporter, ReportsProgressAndCanBeCancelled) {
    LxAudioController controller;
    std::vector<int16_t> pcm = MakeRamp(44100, 1, 6);
    std::vector<uint8_t> data(reinterpret_cast<uint8_t*>(pcm.data()),
                              reinterpret_cast<uint8_t*>(pcm.data()) + pcm.size() * 2);
    std::vector<uint8_t> file = WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16), WavWriter::Chunk("data", data)});
    {
        CancellingProgress progress;
        LxMemoryStream stream(file);
        auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
        importer->SetProgressCallBack(&progress);
        EXPECT_EQ(importer->Import(&stream), 1);
        EXPECT_EQ(progress.total, 88200);
        EXPECT_EQ(progress.reports, 22);  // 88200 bytes in reads of 4092
        EXPECT_EQ(progress.ends, 1);
        EXPECT_EQ(importer->GetAudioLengthMilliSeconds(), 1000);
    }
    {
        CancellingProgress progress;
        progress.cancelAfter = 3;
        LxMemoryStream stream(file);
        auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
        importer->SetProgressCallBack(&progress);
        EXPECT_EQ(importer->Import(&stream), -2);
        EXPECT_EQ(progress.reports, 3);
        EXPECT_EQ(progress.ends, 1);
    }
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_EQ(ids, (std::list<int>{1}));  // the cancelled import stored no clip
}

TEST(WavImporter, DamagedFilesGiveAReportAndNoClip) {
    LxAudioController controller;
    std::vector<uint8_t> good = WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16), WavWriter::Chunk("data", Samples8(900, {1, 2}))});
    std::mt19937 random(7);
    std::vector<uint8_t> noise(5000);
    for (auto& b : noise) b = static_cast<uint8_t>(random());
    WavChunk huge = WavWriter::Chunk("LIST", {1, 2});
    huge.sizeField = 1000000000;
    struct Case {
        const char* name;
        std::vector<uint8_t> bytes;
        const char* message;
    };
    std::vector<Case> cases = {
        {"empty", {}, "Not a WAVE file"},
        {"truncated header", std::vector<uint8_t>(good.begin(), good.begin() + 30), "Not a WAVE file"},
        {"random bytes", noise, "Not a WAVE file"},
        {"no fmt chunk", WavWriter::File({WavWriter::Chunk("data", Samples8(900, {1}))}), "Not a WAVE file"},
        {"no data chunk", WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16), WavWriter::Chunk("LIST", {1, 2, 3})}),
         "No audio data in WAVE file"},
        {"chunk beyond the file", WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16), huge,
                                                   WavWriter::Chunk("data", Samples8(900, {1}))}),
         "No audio data in WAVE file"},
        {"3 channels", WavWriter::File({WavWriter::Fmt(1, 3, 44100, 16), WavWriter::Chunk("data", Samples8(900, {1}))}),
         "Not supported format"},
        {"12 bits", WavWriter::File({WavWriter::Fmt(1, 1, 44100, 12), WavWriter::Chunk("data", Samples8(900, {1}))}),
         "Not supported format"},
        {"format tag 2", WavWriter::File({WavWriter::Fmt(2, 1, 44100, 16), WavWriter::Chunk("data", Samples8(900, {1}))}),
         "Not supported format"},
        {"rate 0", WavWriter::File({WavWriter::Fmt(1, 1, 0, 16), WavWriter::Chunk("data", Samples8(900, {1}))}),
         "Not supported format"},
    };
    for (const Case& c : cases) {
        AssertRecorder recorder;
        int id = 0;
        EXPECT_TRUE(ImportBytes(controller, c.bytes, &id).empty()) << c.name;
        EXPECT_EQ(id, -1) << c.name;
        auto reports = recorder.Reports();
        ASSERT_EQ(reports.size(), 1u) << c.name;
        EXPECT_EQ(reports[0].message, c.message) << c.name;
        EXPECT_EQ(reports[0].sourceFile, kWavSource) << c.name;
        if (std::string(c.message) == "Not supported format") {
            EXPECT_EQ(reports[0].line, 289);
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
}

TEST(WavImporter, RecognisesWaveNamesAndStreams) {
    LxAudioController controller;
    auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
    EXPECT_TRUE(importer->CanImport(LxString("Lecture 1.WAV")));
    EXPECT_TRUE(importer->CanImport(LxString("a.wave")));
    EXPECT_FALSE(importer->CanImport(LxString("a.ogg")));
    LxMemoryStream wave(WavWriter::File({WavWriter::Fmt(1, 1, 44100, 16), WavWriter::Chunk("data", {0, 0})}));
    EXPECT_TRUE(importer->CanImport(&wave));
    EXPECT_EQ(wave.GetPosition(), 0);
    LxMemoryStream other(std::vector<uint8_t>(20, 'x'));
    EXPECT_FALSE(importer->CanImport(&other));
    EXPECT_EQ(importer->GetSupportedFormats(), (std::vector<LxString>{"wav", "wave"}));
}

namespace {

bool HaveSox() {
#if defined(_WIN32)
    return false;
#else
    return std::system("sox --version > /dev/null 2>&1") == 0;
#endif
}

std::vector<uint8_t> ReadFileBytes(const LxFile& file) {
    auto in = LxStreamUtil::CreateFileStreamRead(file);
    std::vector<uint8_t> bytes(in ? static_cast<size_t>(in->GetLength()) : 0);
    if (!bytes.empty()) in->Read(bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
}

// An independent reading of a WAVE file: the data chunk's bytes and the fmt fields.
bool ParseWave(const std::vector<uint8_t>& file, std::vector<uint8_t>& data, int& tag, int& channels, int& bits) {
    size_t pos = 12;
    auto u32 = [&](size_t p) { return uint32_t(file[p]) | uint32_t(file[p + 1]) << 8 | uint32_t(file[p + 2]) << 16 | uint32_t(file[p + 3]) << 24; };
    while (pos + 8 <= file.size()) {
        std::string id(file.begin() + static_cast<long>(pos), file.begin() + static_cast<long>(pos) + 4);
        uint32_t size = u32(pos + 4);
        if (id == "fmt ") {
            tag = file[pos + 8] | file[pos + 9] << 8;
            channels = file[pos + 10] | file[pos + 11] << 8;
            bits = file[pos + 22] | file[pos + 23] << 8;
        } else if (id == "data") {
            data.assign(file.begin() + static_cast<long>(pos) + 8, file.begin() + static_cast<long>(pos + 8 + size));
            return true;
        }
        pos += 8 + size + (size & 1);
    }
    return false;
}

// The conversion table applied to raw sample bytes.
std::vector<int16_t> Expected(const std::vector<uint8_t>& data, int tag, int bits) {
    std::vector<int16_t> out;
    int step = bits / 8;
    for (size_t i = 0; i + static_cast<size_t>(step) <= data.size(); i += static_cast<size_t>(step)) {
        const uint8_t* p = &data[i];
        switch (bits) {
            case 8: out.push_back(static_cast<int16_t>((p[0] - 128) * 256)); break;
            case 16: out.push_back(static_cast<int16_t>(p[0] | p[1] << 8)); break;
            case 24: out.push_back(static_cast<int16_t>(p[1] | p[2] << 8)); break;
            default:
                if (tag == 3) {
                    float f;
                    std::memcpy(&f, p, 4);
                    out.push_back(static_cast<int16_t>(static_cast<int32_t>(f * 32767.0) & 0xFFFF));
                } else {
                    out.push_back(static_cast<int16_t>(p[2] | p[3] << 8));
                }
        }
    }
    return out;
}

}  // namespace

TEST(WavImporter, ImportsFilesWrittenBySox) {
    if (!HaveSox()) GTEST_SKIP() << "needs the sox program (Linux)";
    TempDir tmp;
    LxAudioController controller;
    struct Format {
        const char* args;
        int channels;
    };
    // A spoken-like test signal: two tones with a slow tremolo, 0.5 s.
    for (Format f : {Format{"-e unsigned -b 8", 1}, Format{"-e signed -b 16", 2}, Format{"-e signed -b 24", 1},
                     Format{"-e signed -b 32", 2}, Format{"-e float -b 32", 1}}) {
        std::string path = tmp.Child("in.wav").GetPath().str();
        std::string command = "sox -D -n -r 44100 -c " + std::to_string(f.channels) + " " + f.args + " '" + path +
                              "' synth 0.5 sine 220 sine 330 tremolo 3 60 vol 0.8 2>/dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        std::vector<uint8_t> data;
        int tag = 0, channels = 0, bits = 0;
        ASSERT_TRUE(ParseWave(ReadFileBytes(tmp.Child("in.wav")), data, tag, channels, bits)) << f.args;
        std::vector<int16_t> expected = Expected(data, tag == 65534 ? 1 : tag, bits);
        // Whole 180-byte blocks only.
        expected.resize(expected.size() / 90 * 90);
        auto importer = controller.GetWAVImporter(nullptr, nullptr, false);
        int id = importer->Import(tmp.Child("in.wav"));
        ASSERT_GT(id, 0) << f.args;
        auto clip = controller.GetClip(id);
        EXPECT_EQ(ReadAll(*clip, f.channels), expected) << f.args;
    }
}

TEST(WavImporter, ResamplesOtherRatesTo44100) {
    if (!HaveSox()) GTEST_SKIP() << "needs the sox program (Linux)";
    TempDir tmp;
    LxAudioController controller;
    std::string path = tmp.Child("48k.wav").GetPath().str();
    std::string command = "sox -D -n -r 48000 -c 2 -e signed -b 16 '" + path + "' synth 2 sine 440 vol 0.5 2>/dev/null";
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
    // A 440 Hz tone stays a 440 Hz tone: count rising zero crossings of the left channel.
    std::vector<int16_t> pcm = ReadAll(*clip, 2);
    int crossings = 0;
    size_t from = 2 * 4410, to = pcm.size() - 2 * 4410;
    for (size_t i = from; i + 2 < to; i += 2) crossings += pcm[i] < 0 && pcm[i + 2] >= 0;
    EXPECT_NEAR(crossings, 440.0 * static_cast<double>(to - from) / 2 / 44100, 2);
}
