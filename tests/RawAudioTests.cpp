// Raw PCM chunk streams: the exporter's layout, import of what it wrote, and
// damaged streams.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include "AssertRecorder.h"
#include "LxAudioController.h"
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "LxRawAudioExporter.h"
#include "LxRawAudioImporter.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"
#include "WavWriter.h"

namespace {

const char* const kRawImporterFile = "source/components/audiocore/LxRawAudioImporter";

struct Chunk {
    int32_t bytes, channels, rate, bits;
    std::vector<int16_t> samples;
};

// An independent reading of the chunk layout; fails the test on anything odd.
std::vector<Chunk> ParseChunks(const std::vector<uint8_t>& b) {
    std::vector<Chunk> chunks;
    size_t p = 0;
    while (p < b.size()) {
        EXPECT_LE(p + 16, b.size());
        if (p + 16 > b.size()) break;
        Chunk c{ReadLe32(b, p), ReadLe32(b, p + 4), ReadLe32(b, p + 8), ReadLe32(b, p + 12), {}};
        EXPECT_GT(c.bytes, 0);
        EXPECT_LE(p + 16 + static_cast<size_t>(c.bytes), b.size());
        if (c.bytes <= 0 || p + 16 + static_cast<size_t>(c.bytes) > b.size()) break;
        for (int i = 0; i < c.bytes; i += 2) c.samples.push_back(static_cast<int16_t>(b[p + 16 + i] | b[p + 17 + i] << 8));
        p += 16 + static_cast<size_t>(c.bytes);
        chunks.push_back(std::move(c));
    }
    return chunks;
}

std::vector<uint8_t> ChunkBytes(int32_t bytes, int32_t channels, int32_t rate, int32_t bits, int dataBytes = -1) {
    std::vector<uint8_t> out;
    for (int32_t v : {bytes, channels, rate, bits}) WavWriter::Put32(out, static_cast<uint32_t>(v));
    for (int i = 0; i < (dataBytes < 0 ? bytes : dataBytes); ++i) out.push_back(static_cast<uint8_t>(i * 7));
    return out;
}

std::vector<uint8_t> Join(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

}  // namespace

TEST(RawAudio, ExportImportRoundTrip) {
    LxAudioController controller;
    const std::vector<int16_t> pcm = MakeRamp(100035, 2, 21);
    const int id = StoreClip(controller, pcm, 2);
    ASSERT_GT(id, 0);
    auto exporter = controller.GetRawAudioExporter(2, 44100, 16, nullptr, nullptr);
    LxMemoryStream stream;
    ASSERT_EQ(exporter->Export(*controller.GetClip(id), 1, -1, &stream), 0);
    // One chunk per page the clip hands out.
    std::vector<int> sizes;
    std::vector<int16_t> all;
    for (const Chunk& chunk : ParseChunks(stream.GetBytes())) {
        sizes.push_back(chunk.bytes);
        EXPECT_EQ(std::vector<int>({chunk.channels, chunk.rate, chunk.bits}), std::vector<int>({2, 44100, 16}));
        all.insert(all.end(), chunk.samples.begin(), chunk.samples.end());
    }
    EXPECT_EQ(sizes, (std::vector<int>{176400, 176400, 47340}));
    EXPECT_EQ(all, pcm);

    AssertRecorder recorder;
    auto importer = controller.GetRawAudioImporter(nullptr, nullptr);
    stream.Seek(0, kLxSeekBegin);
    EXPECT_TRUE(importer->CanImport(&stream));
    EXPECT_EQ(stream.GetPosition(), 0);
    const int back = importer->Import(&stream);
    ASSERT_GT(back, 0);
    EXPECT_EQ(importer->GetAudioDataSize(&stream), pcm.size() * 2);
    EXPECT_EQ(ReadAll(*controller.GetClip(back), 2), pcm);
    EXPECT_TRUE(importer->CanImport(LxString("Lecture.RAW")));
    EXPECT_EQ(recorder.Count(), 0u);
}

TEST(RawAudio, DamagedStreamsGiveAReportAndNoClip) {
    LxAudioController controller;
    std::mt19937 random(5);
    std::vector<uint8_t> noise(3000);
    for (auto& b : noise) b = static_cast<uint8_t>(random());
    const std::vector<uint8_t> good = ChunkBytes(1800, 2, 44100, 16);
    struct Case {
        const char* name;
        std::vector<uint8_t> bytes;
        const char* message;
    };
    const char* damaged = "Damaged raw audio stream";
    std::vector<Case> cases = {
        {"empty", {}, "No audio data in raw audio stream"},
        {"short header", std::vector<uint8_t>(good.begin(), good.begin() + 10), damaged},
        {"second chunk cut", Join({good, std::vector<uint8_t>(good.begin(), good.begin() + 100)}), damaged},
        {"length above a page", ChunkBytes(176404, 1, 44100, 16), damaged},
        {"length not whole frames", ChunkBytes(1802, 2, 44100, 16), damaged},
        {"three channels", ChunkBytes(1800, 3, 44100, 16), "Not supported format"},
        {"rate changes", Join({good, ChunkBytes(1800, 2, 48000, 16)}), "Raw audio format changes within the stream"},
    };
    for (const Case& c : cases) {
        AssertRecorder recorder;
        LxMemoryStream stream(c.bytes);
        auto importer = controller.GetRawAudioImporter(nullptr, nullptr);
        EXPECT_EQ(importer->Import(&stream), -1) << c.name;
        auto reports = recorder.Reports();
        ASSERT_EQ(reports.size(), 1u) << c.name;
        EXPECT_EQ(reports[0].message, c.message) << c.name;
        EXPECT_EQ(reports[0].sourceFile, kRawImporterFile) << c.name;
    }
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_TRUE(ids.empty());
    auto probe = controller.GetRawAudioImporter(nullptr, nullptr);
    LxMemoryStream threeChannels(ChunkBytes(1800, 3, 44100, 16));
    EXPECT_FALSE(probe->CanImport(&threeChannels));

    // An end marker ends the audio; what follows it is left out.
    AssertRecorder recorder;
    LxMemoryStream ended(Join({good, good, {0, 0, 0, 0}, noise}));
    auto importer = controller.GetRawAudioImporter(nullptr, nullptr);
    int id = importer->Import(&ended);
    ASSERT_GT(id, 0);
    EXPECT_EQ(importer->GetFooterSize(), noise.size());
    EXPECT_EQ(controller.GetClip(id)->WorthInBytes(), 3600);
    EXPECT_EQ(recorder.Count(), 0u);
}
