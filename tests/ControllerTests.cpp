// The controller: lifetime of its store and directory, the clip factory,
// merging, persistence through it, and the operations that are never built.
#include <gtest/gtest.h>

#include <functional>
#include "AssertRecorder.h"
#include "EditModel.h"
#include "LxAudioController.h"
#include "LxAudioEditableClip.h"
#include "LxAudioFile.h"
#include "LxAudioVolumeEffect.h"
#include "LxPublic/LxLCException.h"
#include "LxPublic/LxMemoryStream.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"

TEST(Controller, OwnsAPrivateDirectoryForItsLife) {
    LxFile first, second;
    {
        LxAudioController a;
        LxAudioController b;
        first = a.GetTemporaryDirectory();
        second = b.GetTemporaryDirectory();
        EXPECT_NE(first.GetPath(), second.GetPath());
        EXPECT_EQ(first.GetName().str().rfind("AudCntlr", 0), 0u);
        a.GetAudioFile()->Flush();
        EXPECT_EQ(first.GetChild("pcm.lxa").GetLength(), 180);
        for (const char* name : {"raw.lxa", "enc.lxa", "clip.lxa", "map.lxa"}) EXPECT_TRUE(first.GetChild(name).Exists());
        StoreClip(a, MakeRamp(1000, 1), 1);
    }
    EXPECT_FALSE(first.Exists());
    EXPECT_FALSE(second.Exists());
}

TEST(Controller, FactoryAndMerging) {
    LxAudioController controller;
    std::vector<int16_t> one = MakeRamp(4410, 2, 1), two = MakeRamp(8820, 2, 2);
    int a = StoreClip(controller, one, 2);
    int b = StoreClip(controller, two, 2);

    EXPECT_EQ(controller.GetClip(b)->GetClipSource(), LX_AUDIO_CLIP_SOURCE_OTHER);
    EXPECT_EQ(&controller.GetClipBase(-1)->GetAudioFile(), controller.GetAudioFile());
    auto merged = controller.MergeClips({a, -1, b, a});
    ASSERT_EQ(merged->GetPageRanges().size(), 3u);
    std::vector<int16_t> expected = one;
    expected.insert(expected.end(), two.begin(), two.end());
    expected.insert(expected.end(), one.begin(), one.end());
    merged->SeekToBeginning();
    EXPECT_EQ(ReadAll(*merged, 2), expected);
    // Merging does not store anything.
    std::list<int> ids;
    controller.GetListOfClipIDs(ids);
    EXPECT_EQ(ids, (std::list<int>{1, 2}));
}

TEST(Controller, SavesAndReopensAProject) {
    LxMemoryStream saved;
    std::vector<int16_t> pcm = MakeRamp(49950, 1, 4);
    EditModel edited = EditModel::Of(pcm);
    edited.Delete(100, 200);
    edited.Gain(1000, 2000, 0.5f);
    {
        LxAudioController controller;
        ASSERT_EQ(StoreClip(controller, pcm, 1), 1);
        // An edited copy: several ranges, one of them with a gain.
        auto clip = controller.GetClip(1);
        LxAudioEditableClip editable(*clip);
        int n = 0;
        LxAudioVolumeEffect half(0.5f, 0.0f, 1.0f);
        ASSERT_TRUE(editable.Delete(100, 200, n, false) && editable.AddEffect(1000, 2000, half));
        ASSERT_EQ(clip->WriteToAudioFile(), 2);
        EXPECT_TRUE(controller.WriteTo(&saved));
    }
    LxAudioController reopened;
    saved.Seek(0, kLxSeekBegin);
    ASSERT_TRUE(reopened.ReadFrom(&saved));
    EXPECT_EQ(ReadAll(*reopened.GetClip(1), 1), pcm);
    EXPECT_EQ(ReadAll(*reopened.GetClip(2), 1), edited.Pcm());
    EXPECT_FALSE(reopened.ReadFrom(static_cast<ILxStream*>(nullptr)));

    // Another project's clips come in under new IDs.
    LxAudioController other;
    StoreClip(other, MakeRamp(100, 1), 1);
    std::map<int, int> idMap;
    other.AppendAudioFileFrom(reopened, idMap);
    EXPECT_EQ(idMap, (std::map<int, int>{{1, 2}, {2, 3}}));
    EXPECT_EQ(ReadAll(*other.GetClip(3), 1), edited.Pcm());
}

TEST(Controller, UnbuiltFactoriesReportAndThrow) {
    LxAudioController controller;
    const char* file = "source/components/audiocore/LxAudioController";
    struct Case {
        const char* message;
        int line;  // of the report; the exception follows on the next line
        std::function<void()> call;
    };
    for (const Case& c : {Case{"GetMP3Importer Not implemented", 144, [&] { controller.GetMP3Importer(nullptr, nullptr); }},
                          Case{"GetMP3Exporter Not implemented", 156,
                               [&] { controller.GetMP3Exporter(44100, 2, 16, nullptr, nullptr); }}}) {
        AssertRecorder recorder;
        try {
            c.call();
            ADD_FAILURE() << "no exception";
        } catch (const LxLCException& e) {
            EXPECT_EQ(e.GetErrorName(), LxString("kLxErrorInternal"));
            EXPECT_EQ(e.GetSourceFile(), LxString(file));
            EXPECT_EQ(e.GetLine(), c.line + 1);
        }
        ExpectSingleReport(recorder, c.message, file, c.line);
    }
}
