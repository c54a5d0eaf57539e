// The volume effect: gain, the symmetric compressor, saturation and truncation,
// its saved form, and the reads that apply it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>
#include "LxAudioVolumeEffect.h"
#include "LxPCMConverter.h"
#include "LxPublic/LxMemoryStream.h"

TEST(VolumeEffect, TransformsSamples) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
    struct Case {
        float gain, threshold, ratio;
        int in, out;
    };
    const Case cases[] = {
        // Saturation, and truncation toward zero.
        {2, 0, 1, 20000, 32767}, {2, 0, 1, -20000, -32768}, {2, 0, 1, 16383, 32766},
        {0.5f, 0, 1, 3, 1}, {0.5f, 0, 1, -3, -1},
        // The compressor acts beyond the threshold on both sides, after the gain.
        {1, 10000, 2, 20000, 15000}, {1, 10000, 2, -20000, -15000}, {1, 10000, 2, 10000, 10000},
        {3, 20000, 4, 10000, 22500},
        // Parameters from a damaged record never produce undefined results.
        {nan, 0, 1, 1000, 0}, {infinity, 0, 1, 1, 32767},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(LxAudioVolumeEffect(c.gain, c.threshold, c.ratio).Transform(static_cast<short>(c.in)), c.out)
            << c.gain << " " << c.threshold << " " << c.ratio << " of " << c.in;
    }
    // A ratio of 1.0 with a threshold still counts as an identity for readers.
    EXPECT_TRUE(LxAudioVolumeEffect(1.0f, 5000, 1.0f).IsIdentity());
    EXPECT_FALSE(LxAudioVolumeEffect(0.5f, 0, 1.0f).IsIdentity());
}

TEST(VolumeEffect, SavesItsParametersAsThreeDoubles) {
    LxMemoryStream stream;
    stream.SetWriting(true);
    LxAudioVolumeEffect(0.3f, 1234.5f, 3.0f).XferData(stream);
    ASSERT_EQ(stream.GetBytes().size(), 24u);
    stream.Seek(0, kLxSeekBegin);
    stream.SetWriting(false);
    double values[3] = {};
    for (double& v : values) stream.Xfer(v);
    // A float is widened exactly, not re-rounded through its decimal form.
    EXPECT_EQ(std::vector<double>(values, values + 3), (std::vector<double>{static_cast<double>(0.3f), 1234.5, 3.0}));
    EXPECT_NE(values[0], 0.3);

    stream.Seek(0, kLxSeekBegin);
    LxAudioVolumeEffect loaded;
    loaded.XferData(stream);
    EXPECT_EQ(std::make_tuple(loaded.gain, loaded.threshold, loaded.ratio), std::make_tuple(0.3f, 1234.5f, 3.0f));
}

// Reads apply the effect in the PCM converter, eight samples at a time where
// its parameters allow: every 16-bit value must come out as Transform gives
// it, taken as stored or converted to the other channel count, written or
// mixed into what the output holds, for effects the vector path takes and for
// those it leaves to Transform.
TEST(VolumeEffect, ReadsScaleEverySampleAsTransformDoes) {
    const float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
    const LxAudioVolumeEffect effects[] = {
        {0.5f, 0, 1}, {1.5f, 0, 1}, {-2.0f, 0, 1}, {1e30f, 0, 1}, {-0.0f, 0, 1}, {3e-39f, 0, 1},
        {1.0f, 0, 2.0f},  // not an identity, yet a plain gain
        {1.2f, 10000, 2}, {3.0f, 20000, 4}, {0.7f, -5000, 3}, {2.0f, 100, 0.25f}, {1e20f, 1e10f, 1e-20f},
        {nan, 0, 1}, {infinity, 0, 1}, {1.0f, 1000, 0.0f}, {1.0f, nan, 2},
    };
    // Every value once, in an odd count so that the last samples miss a full lane.
    std::vector<unsigned char> stored;
    for (int v = -32768; v <= 32767; ++v) {
        const auto u = static_cast<uint16_t>(v);
        stored.push_back(static_cast<unsigned char>(u));
        stored.push_back(static_cast<unsigned char>(u >> 8));
    }
    stored.resize(stored.size() - 6);  // 65533 samples
    auto sampleAt = [](const std::vector<unsigned char>& bytes, size_t i) {
        return static_cast<int16_t>(static_cast<uint16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8)));
    };
    LxPCMConverter converter;
    for (const LxAudioVolumeEffect& effect : effects) {
        for (const auto& [storedChannels, wantedChannels] : {std::pair{1, 1}, std::pair{1, 2}, std::pair{2, 1}}) {
            for (bool mix : {false, true}) {
                SCOPED_TRACE(testing::Message() << "gain " << effect.gain << ", threshold " << effect.threshold
                                                << ", " << storedChannels << " -> " << wantedChannels
                                                << (mix ? ", mixed" : ""));
                const int bytes = LxPCMConverter::ConvertedBytes(static_cast<int>(stored.size()), storedChannels,
                                                                 wantedChannels);
                std::vector<unsigned char> plain(stored.size() * 2);
                std::copy(stored.begin(), stored.end(), plain.begin());
                LxPCMConverter::ConvertInPlace(plain.data(), static_cast<int>(stored.size()), storedChannels,
                                               wantedChannels);
                std::vector<unsigned char> out(static_cast<size_t>(bytes), 0x5A);
                converter.HandOut(stored.data(), storedChannels, wantedChannels, 0, bytes, &effect, mix, out.data());
                int wrong = 0;
                for (size_t i = 0; i < static_cast<size_t>(bytes) / 2 && wrong < 3; ++i) {
                    int16_t expected = effect.Transform(sampleAt(plain, i));
                    if (mix) expected = static_cast<int16_t>(static_cast<uint16_t>(expected) + 0x5A5Au);
                    if (sampleAt(out, i) != expected) {
                        ADD_FAILURE() << "sample " << i << ": " << sampleAt(out, i) << " instead of " << expected;
                        ++wrong;
                    }
                }
            }
        }
    }
}
