// The volume effect: gain, the symmetric compressor, saturation and truncation,
// and its saved form.
#include <gtest/gtest.h>

#include <limits>
#include "LxAudioVolumeEffect.h"
#include "LxPublic/LxMemoryStream.h"

TEST(VolumeEffect, TransformsSamples) {
    LxAudioVolumeEffect unit;
    EXPECT_EQ(unit.GetType(), LxAudioEffectVolume);
    for (int s : {-32768, -1, 0, 1, 12345, 32767}) EXPECT_EQ(unit.Transform(static_cast<short>(s)), s);

    LxAudioVolumeEffect doubled(2.0f, 0, 1.0f);
    EXPECT_EQ(doubled.Transform(20000), 32767);
    EXPECT_EQ(doubled.Transform(-20000), -32768);
    EXPECT_EQ(doubled.Transform(-16384), -32768);
    EXPECT_EQ(doubled.Transform(16383), 32766);
    LxAudioVolumeEffect halved(0.5f, 0, 1.0f);
    EXPECT_EQ(halved.Transform(3), 1);
    EXPECT_EQ(halved.Transform(-3), -1);  // toward zero

    LxAudioVolumeEffect compressor(1.0f, 10000, 2.0f);
    EXPECT_EQ(compressor.Transform(20000), 15000);
    EXPECT_EQ(compressor.Transform(-20000), -15000);
    EXPECT_EQ(compressor.Transform(10000), 10000);  // at the threshold: unchanged
    EXPECT_EQ(compressor.Transform(-10000), -10000);
    EXPECT_EQ(compressor.Transform(5000), 5000);
    // Gain first, then compression of what lies beyond the threshold.
    LxAudioVolumeEffect both(3.0f, 20000, 4.0f);
    EXPECT_EQ(both.Transform(10000), 22500);
    // A ratio of 1.0 with a threshold still counts as an identity for readers,
    // and changes nothing either.
    EXPECT_TRUE(LxAudioVolumeEffect(1.0f, 5000, 1.0f).IsIdentity());
    EXPECT_FALSE(halved.IsIdentity());
    // Parameters from a damaged record never produce undefined results.
    LxAudioVolumeEffect broken(std::numeric_limits<float>::quiet_NaN(), 0, 1.0f);
    EXPECT_EQ(broken.Transform(1000), 0);
    LxAudioVolumeEffect infinite(std::numeric_limits<float>::infinity(), 0, 1.0f);
    EXPECT_EQ(infinite.Transform(1), 32767);
}

TEST(VolumeEffect, SavesItsParametersAsThreeDoubles) {
    LxMemoryStream stream;
    stream.SetWriting(true);
    LxAudioVolumeEffect effect(0.75f, 1234.5f, 3.0f);
    effect.XferData(stream);
    ASSERT_EQ(stream.GetBytes().size(), 24u);
    stream.Seek(0, kLxSeekBegin);
    stream.SetWriting(false);
    double gain = 0, threshold = 0, ratio = 0;
    stream.Xfer(gain);
    stream.Xfer(threshold);
    stream.Xfer(ratio);
    EXPECT_EQ(gain, 0.75);
    EXPECT_EQ(threshold, 1234.5);
    EXPECT_EQ(ratio, 3.0);

    stream.Seek(0, kLxSeekBegin);
    LxAudioVolumeEffect loaded;
    loaded.XferData(stream);
    EXPECT_EQ(loaded.gain, 0.75f);
    EXPECT_EQ(loaded.threshold, 1234.5f);
    EXPECT_EQ(loaded.ratio, 3.0f);
    EXPECT_EQ(loaded.GetType(), LxAudioEffectVolume);
    LxAudioVolumeEffect copy;
    copy = loaded;
    EXPECT_EQ(copy.Transform(1000), loaded.Transform(1000));

    // A float is widened exactly, not re-rounded through its decimal form.
    LxMemoryStream widened;
    widened.SetWriting(true);
    LxAudioVolumeEffect(0.3f, 0, 1.0f).XferData(widened);
    widened.Seek(0, kLxSeekBegin);
    widened.SetWriting(false);
    widened.Xfer(gain);
    EXPECT_EQ(gain, static_cast<double>(0.3f));
    EXPECT_NE(gain, 0.3);
}
