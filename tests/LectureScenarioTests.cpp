// A whole lecture: twenty minutes of narration recorded in 100 ms pieces,
// two hundred edits with undo points, one saved stream, and a second
// controller that plays the edited lecture back exactly.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include "LxAudioController.h"
#include "LxAudioEditableClip.h"
#include "LxAudioVolumeEffect.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"

namespace {

// Narration-like: a voiced tone whose pitch and loudness wander, with pauses.
std::vector<int16_t> Narration(int frames) {
    std::vector<int16_t> pcm(static_cast<size_t>(frames));
    double phase = 0.0;
    for (int i = 0; i < frames; ++i) {
        const double t = i / 44100.0;
        const double pitch = 140.0 + 40.0 * std::sin(t * 0.7);
        phase += 2.0 * 3.141592653589793 * pitch / 44100.0;
        const double syllable = std::max(0.0, std::sin(t * 2.0 * 3.141592653589793 * 3.1));
        const double pause = std::fmod(t, 7.0) < 1.2 ? 0.0 : 1.0;
        pcm[static_cast<size_t>(i)] =
            static_cast<int16_t>(9000.0 * syllable * pause * (std::sin(phase) + 0.3 * std::sin(3 * phase)));
    }
    return pcm;
}

std::vector<int16_t> Play(LxAudioClip& clip) {
    clip.SeekToBeginning();
    return ReadAll(clip, 1, 88200);
}

}  // namespace

TEST(LectureScenario, TwentyMinutesEditedSavedAndReplayed) {
    const int frames = 20 * 60 * 44100;
    const std::vector<int16_t> narration = Narration(frames);
    LxMemoryStream project;
    int editedId = -1;
    std::vector<int16_t> edited;
    {
        LxAudioController controller;
        auto recording = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_RECORDING);
        for (int at = 0; at < frames; at += 4410) {
            recording->AppendPCMData(reinterpret_cast<const unsigned char*>(narration.data() + at), 8820, 1, 44100,
                                     16, 1.0f);
        }
        const int recordedId = recording->FinishAppendingPCMData(1, 44100, 16, 1.0f);
        ASSERT_EQ(recordedId, 1);
        auto clip = controller.GetClip(recordedId);
        ASSERT_EQ(clip->WorthInFrames(), frames);
        ASSERT_EQ(Play(*clip), narration);

        LxAudioEditableClip editable(*clip);
        editable.AddOneUndoRedoDatum();
        std::mt19937 random(7);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
        for (int edit = 0; edit < 200; ++edit) {
            const int length = clip->WorthInFrames();
            const int start = pick(0, length - 441001);
            const int end = start + pick(441, 441000);
            int n = 0;
            bool ok = false;
            switch (edit % 5) {
                case 0: ok = editable.Delete(start, end, n, false); break;
                case 1: ok = editable.Copy(start, end) && editable.PasteAt(pick(0, length), n); break;
                case 2: ok = editable.InsertSilenceFrames(start, end - start, n); break;
                case 3: {
                    LxAudioVolumeEffect gain(edit % 2 ? 0.7f : 1.3f, 0.0f, 1.0f);
                    ok = editable.AddEffect(start, end, gain);
                    break;
                }
                case 4:
                    clip->LoadThumbnail();  // normalising reads the current thumbnail
                    ok = editable.Normalize(start, end);
                    break;
            }
            ASSERT_TRUE(ok) << edit;
            editable.AddOneUndoRedoDatum();
        }
        // Undo and redo across the last ten edits land on the same audio.
        const std::vector<int16_t> final = Play(*clip);
        for (int i = 0; i < 10; ++i) ASSERT_TRUE(editable.Undo());
        ASSERT_NE(Play(*clip), final);
        for (int i = 0; i < 10; ++i) ASSERT_TRUE(editable.Redo());
        edited = Play(*clip);
        ASSERT_EQ(edited, final);

        editedId = clip->WriteToAudioFile();
        ASSERT_EQ(editedId, 2);
        ASSERT_TRUE(controller.WriteTo(&project));
    }
    LxAudioController reopened;
    project.Seek(0, kLxSeekBegin);
    ASSERT_TRUE(reopened.ReadFrom(&project));
    auto replay = reopened.GetClip(editedId);
    EXPECT_GT(replay->GetPageRanges().size(), 150u);
    EXPECT_TRUE(Play(*replay) == edited);
    auto original = reopened.GetClip(1);
    EXPECT_TRUE(Play(*original) == narration);
}
