// The volume effect: gain, the symmetric compressor, saturation and truncation,
// and its saved form.
#include <gtest/gtest.h>

#include <limits>
#include <tuple>
#include "LxAudioVolumeEffect.h"
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
