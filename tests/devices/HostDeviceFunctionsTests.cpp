// What a host uses around capture and playback: the map of capture device IDs,
// the mixer volumes, and the short sound player.
#include <gtest/gtest.h>

#include "DeviceTestSupport.h"
#include "LxAudioController.h"
#include "LxAudioDeviceMap.h"
#include "LxAudioDeviceVolume.h"
#include "LxShortAudioPlayer.h"
#include "PcmHelpers.h"
#include "TempDir.h"
#include "WavWriter.h"

using HostDevices = SimulatedDeviceTest;

TEST_F(HostDevices, CaptureDeviceMapNamesEverySourceLine) {
    Sim().SetInputDevices({{"USB Headset", {"Microphone"}},
                           {"Line card", {}},
                           {"Sound card", {"Microphone", "Line in", "Stereo mix"}}});
    std::map<int, LxString> devices{{99, "stale"}};
    GetAudioCaptureDeviceMap(devices);
    std::map<int, LxString> expected{{0x00000000, "USB Headset: Microphone"},
                                     {0x00010000, "Line card"},
                                     {0x00020000, "Sound card: Microphone"},
                                     {0x00020001, "Sound card: Line in"},
                                     {0x00020002, "Sound card: Stereo mix"}};
    EXPECT_EQ(devices, expected);
    EXPECT_EQ(LxMakeCaptureDeviceID(2, 1), 0x00020001);

    // An ID from the map records from that device and selects that line.
    {
        LxAudioController controller;
        ASSERT_TRUE(controller.StartCapture(0x00020001, -1.0f, true, nullptr, nullptr));
        EXPECT_EQ(Sim().GetSelectedLine(), 1);
        EXPECT_EQ(controller.StopCapture(), -1);
    }
    Sim().SetInputDevices({});
    GetAudioCaptureDeviceMap(devices);
    EXPECT_TRUE(devices.empty());
}

TEST_F(HostDevices, VolumesGoThroughTheMixer) {
    EXPECT_TRUE(SetAudioCaptureDeviceVolume(LxMakeCaptureDeviceID(0, 1), 0.25f));
    EXPECT_FLOAT_EQ(Sim().GetRecordingVolume(), 0.25f);
    float volume = -1.0f;
    EXPECT_TRUE(GetAudioCaptureDeviceVolume(LxMakeCaptureDeviceID(0, 1), volume));
    EXPECT_FLOAT_EQ(volume, 0.25f);
    // Clamped to full scale; a device that does not exist has no mixer.
    EXPECT_TRUE(SetAudioCaptureDeviceVolume(0, 7.0f));
    EXPECT_FLOAT_EQ(Sim().GetRecordingVolume(), 1.0f);
    EXPECT_FALSE(SetAudioCaptureDeviceVolume(LxMakeCaptureDeviceID(5, 0), 0.5f));
    EXPECT_FALSE(SetAudioCaptureDeviceVolume(LxMakeCaptureDeviceID(0, 9), 0.5f));
    Sim().FailCall(LxWaveCall::SetLineVolume, kLxWaveError);
    EXPECT_FALSE(SetAudioCaptureDeviceVolume(0, 0.5f));
    EXPECT_EQ(Sim().GetRecordingVolumeWrites(), 2);

    // The playback volume clamps at silence.
    EXPECT_TRUE(SetAudioPlaybackDeviceVolume(-2.0f));
    EXPECT_TRUE(GetAudioPlaybackDeviceVolume(volume));
    EXPECT_FLOAT_EQ(volume, 0.0f);
}

#if !defined(_WIN32)
TEST_F(HostDevices, ShortPlayerPlaysAWaveFileOnThePlaybackDevice) {
    TempDir dir;
    // A mono chime, a quarter of a second in whole 180-byte blocks as the store
    // keeps them: the player plays it in the device's stereo.
    std::vector<int16_t> chime = MakeRamp(11070, 1, 51);
    LxFile sound = dir.Child("chime.wav"), text = dir.Child("notes.txt");
    WriteFileBytes(sound, WavWriter::Pcm(1, 1, 44100, 16, PcmBytes(chime)));
    WriteFileBytes(text, {'n', 'o', 't', ' ', 'a', ' ', 's', 'o', 'u', 'n', 'd'});
    {
        LxShortAudioPlayer player;
        ASSERT_TRUE(player.Play(sound, true));
        EXPECT_FALSE(player.Play(text));
        EXPECT_FALSE(player.Play(dir.Child("missing.wav")));
        // Without an output device nothing plays, and Play says so.
        Sim().FailCall(LxWaveCall::OpenOutput, kLxWaveBadDeviceID);
        EXPECT_FALSE(player.Play(sound, true));
    }
    std::vector<std::vector<unsigned char>> outputs = Sim().GetFinishedOutputs();
    ASSERT_EQ(outputs.size(), 1u);
    ExpectAudioThenFiller(outputs[0], BothSides(chime));

    // A sound stopped half way, and the player destroyed while one plays.
    Sim().SetSpeed(0.01);
    {
        LxShortAudioPlayer player;
        ASSERT_TRUE(player.Play(sound));
        player.Stop();
        ASSERT_TRUE(player.Play(sound));
    }
    EXPECT_EQ(Sim().GetOpenDeviceCount(), 0);
}
#endif
