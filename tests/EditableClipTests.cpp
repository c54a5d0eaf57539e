// Editing a clip: delete, insert, paste, silence and effects checked by the
// audio they leave behind, the range structure of the basic cuts, undo and
// redo, the clipboard, and the reports on bad arguments.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include "AssertRecorder.h"
#include "EditModel.h"
#include "LxAudioController.h"
#include "LxAudioEditableClip.h"
#include "LxAudioFile.h"
#include "LxAudioVolumeEffect.h"
#include "PcmHelpers.h"
#include "StoreHelpers.h"

namespace {

const char* const kClipFile = "source/components/audiocore/LxAudioClip";

int Record(LxAudioController& controller, const std::vector<int16_t>& pcm) { return StoreClip(controller, pcm, 1); }

std::vector<int16_t> Play(LxAudioClip& clip) {
    clip.SeekToBeginning();
    return ReadAll(clip, 1);
}

// A mono clip of three recordings (several pages each) and its model.
struct Fixture {
    LxAudioController controller;
    std::vector<int16_t> a = MakeRamp(199980, 1, 1), b = MakeRamp(29970, 1, 2), c = MakeRamp(99990, 1, 3);
    std::unique_ptr<LxAudioClip> clip;
    EditModel model;
    Fixture() {
        clip = controller.MergeClips({Record(controller, a), Record(controller, b), Record(controller, c)});
        std::vector<int16_t> all = a;
        all.insert(all.end(), b.begin(), b.end());
        all.insert(all.end(), c.begin(), c.end());
        model = EditModel::Of(all);
    }
};

}  // namespace

// Random edits of every kind, each checked against the model, then undone and
// redone one by one.
TEST(EditableClip, EditsLeaveTheAudioTheyDescribe) {
    Fixture f;
    const int donorId = Record(f.controller, MakeRamp(119970, 1, 9));
    auto donor = f.controller.GetClip(donorId);
    const EditModel donorModel = EditModel::Of(MakeRamp(119970, 1, 9));
    LxAudioEditableClip editable(*f.clip);
    editable.AddOneUndoRedoDatum();
    std::vector<std::vector<int16_t>> history{f.model.Pcm()};
    ASSERT_EQ(Play(*f.clip), history.back());

    std::mt19937 random(42);
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); };
    for (int step = 0; step < 60; ++step) {
        SCOPED_TRACE(step);
        const int length = f.model.Frames();
        const int kind = step % 5;
        int start = pick(0, length - 2), end = pick(start + 1, std::min(length, start + 150000)), n = -1;
        bool ok = false;
        switch (kind) {
            case 0:  // delete
                ok = editable.Delete(start, end, n, false);
                f.model.Delete(start, end);
                EXPECT_EQ(n, end - start);
                break;
            case 1: {  // insert a stretch of another clip
                int from = pick(0, donorModel.Frames() - 2), to = pick(from + 1, donorModel.Frames());
                ok = editable.InsertAt(start, n, *donor, from, to);
                f.model.Insert(start, donorModel, from, to);
                EXPECT_EQ(n, to - from);
                break;
            }
            case 2: {  // copy, edit, then paste what was copied
                EditModel before = f.model;
                ASSERT_TRUE(editable.Copy(start, end));
                int d = 0;
                ASSERT_TRUE(editable.Delete(0, 1000, d, false));
                f.model.Delete(0, 1000);
                int at = pick(0, f.model.Frames());
                ok = editable.PasteAt(at, n);
                f.model.Insert(at, before, start, end);
                EXPECT_EQ(n, end - start);
                break;
            }
            case 3: {  // silence in the middle (one frame short) or at the end (whole)
                int frames = pick(2, 100000);
                bool atEnd = step % 4 == 3;
                int at = atEnd ? length - pick(0, 90) : pick(0, length - 91);
                ok = editable.InsertSilenceFrames(at, frames, n);
                if (atEnd) {
                    f.model.Silence(length, frames);
                    EXPECT_EQ(n, frames);
                } else {
                    f.model.Silence(at, frames - 1);
                    EXPECT_EQ(n, frames - 1);
                }
                break;
            }
            case 4: {  // a gain over part of the clip
                float gain = step % 4 == 0 ? 0.5f : 1.75f;
                LxAudioVolumeEffect effect(gain, 0.0f, 1.0f);
                ok = editable.AddEffect(start, end, effect);
                f.model.Gain(start, end, gain);
                n = 0;
                break;
            }
        }
        ASSERT_TRUE(ok);
        ASSERT_EQ(f.clip->WorthInFrames(), f.model.Frames());
        ASSERT_EQ(Play(*f.clip), f.model.Pcm());
        editable.AddOneUndoRedoDatum();
        history.push_back(f.model.Pcm());
        if (f.model.Frames() < 300000) {  // keep the clip long enough to cut
            ASSERT_TRUE(editable.InsertAt(f.model.Frames(), n, *donor, 0, 119969));
            f.model.Insert(f.model.Frames(), donorModel, 0, 119969);
            editable.AddOneUndoRedoDatum();
            history.push_back(f.model.Pcm());
        }
    }
    EXPECT_GT(f.clip->GetPageRanges().size(), 20u);
    for (size_t i = history.size() - 1; i > 0; --i) {
        ASSERT_TRUE(editable.Undo());
        ASSERT_EQ(Play(*f.clip), history[i - 1]) << i;
    }
    EXPECT_FALSE(editable.Undo());
    for (size_t i = 1; i < history.size(); ++i) {
        ASSERT_TRUE(editable.Redo());
        ASSERT_EQ(Play(*f.clip), history[i]) << i;
    }
    EXPECT_FALSE(editable.Redo());

    // A new state after an undo drops the redo tail; a reset keeps only the
    // clip as it is now.
    ASSERT_TRUE(editable.Undo() && editable.Undo());
    int n = 0;
    ASSERT_TRUE(editable.Delete(0, 5, n, false));
    editable.AddOneUndoRedoDatum();
    EXPECT_EQ(editable.GetNumberOfUndoStates(), static_cast<int>(history.size()) - 1);
    EXPECT_FALSE(editable.CanRedo());
    editable.ResetUndoRedo();
    EXPECT_EQ(editable.GetNumberOfUndoStates(), 1);
    EXPECT_FALSE(editable.CanUndo());
}

TEST(EditableClip, CutsWithinOneRangeAndAtItsStart) {
    LxAudioController controller;
    std::vector<int16_t> pcm = MakeRamp(49950, 1);
    auto clip = controller.GetClip(Record(controller, pcm));
    ASSERT_EQ(clip->GetPageRanges().size(), 1u);
    const LxPageRange original = clip->GetPageRanges()[0];
    LxAudioEditableClip editable(*clip);
    LxAudioVolumeEffect quiet(0.5f, 0.0f, 1.0f);
    ASSERT_TRUE(editable.AddEffect(0, 49950, quiet));

    int n = 0;
    ASSERT_TRUE(editable.Delete(1000, 3000, n, false));
    EXPECT_EQ(n, 2000);
    const auto& r = clip->GetPageRanges();
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].startOffset, original.startOffset);
    EXPECT_EQ(r[0].endOffset, original.startOffset + 2000);
    EXPECT_EQ(r[1].startOffset, original.startOffset + 6000);
    EXPECT_EQ(r[1].endOffset, original.endOffset);
    EXPECT_EQ(r[0].effect.gain, 0.5f);
    EXPECT_EQ(r[1].effect.gain, 0.5f);

    // A cut from the first frame only moves the start; one up to the end only the end.
    ASSERT_TRUE(editable.Delete(0, 10, n, false));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[0].startOffset, original.startOffset + 20);
    ASSERT_TRUE(editable.Delete(47930, 47940, n, false));
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(r[1].endOffset, original.endOffset - 20);

    // Deleting everything needs the flag (the guard looks at a start of 1).
    AssertRecorder recorder;
    const int length = clip->WorthInFrames();
    EXPECT_FALSE(editable.Delete(1, length, n, false));
    ExpectSingleReport(recorder, "can't delete entire clip", kClipFile, 1650);
    EXPECT_TRUE(editable.Delete(0, length, n, true));
    EXPECT_EQ(n, length);
    EXPECT_EQ(clip->WorthInFrames(), 0);
}

TEST(EditableClip, EffectsFoldIntoTheRanges) {
    LxAudioController controller;
    auto clip = controller.GetClip(Record(controller, MakeRamp(19980, 1)));
    LxAudioEditableClip editable(*clip);
    LxAudioVolumeEffect up(2.0f, 0.0f, 1.0f), down(0.5f, 0.0f, 1.0f), c8000(1.0f, 8000.0f, 4.0f),
        c4000(1.0f, 4000.0f, 2.0f);
    ASSERT_TRUE(editable.AddEffect(100, 200, up));
    ASSERT_TRUE(editable.AddEffect(100, 200, down));
    const auto& r = clip->GetPageRanges();
    ASSERT_EQ(r.size(), 3u);  // cut at both ends; the middle carries the effect
    EXPECT_EQ(r[1].WorthInFrames(), 100);
    EXPECT_EQ(r[1].effect.gain, 1.0f);
    ASSERT_TRUE(editable.AddEffect(100, 200, c8000));
    ASSERT_TRUE(editable.AddEffect(100, 200, c4000));  // thresholds and ratios are averaged
    EXPECT_EQ(r[1].effect.threshold, 6000.0f);
    EXPECT_EQ(r[1].effect.ratio, 3.0f);

    // Normalising brings the loudest thumbnail point of the stretch to full scale.
    clip->LoadThumbnail();
    const float best = clip->GetBestVolume(5000, 15000);
    ASSERT_TRUE(editable.Normalize(5000, 15000));
    ASSERT_EQ(r.size(), 5u);
    EXPECT_EQ(r[3].effect.gain, best);
    EXPECT_GT(best, 1.0f);
}

TEST(EditableClip, ClipboardAndSilence) {
    LxAudioController controller;
    std::vector<int16_t> pcm = MakeRamp(29970, 1);
    auto clip = controller.GetClip(Record(controller, pcm));
    LxAudioEditableClip editable(*clip);
    int n = -1;
    EXPECT_FALSE(editable.PasteAt(0, n));
    EXPECT_EQ(n, 0);
    EXPECT_TRUE(editable.Copy(0, 1000));
    EXPECT_EQ(editable.GetClipBoardDataLength(), 0);  // a copy from 0 reports no length
    EXPECT_TRUE(editable.Copy(10, 1000));
    EXPECT_EQ(editable.GetClipBoardDataLength(), 990);

    // Seconds of silence become frames; in the middle, one frame short.
    ASSERT_TRUE(editable.InsertSilence(20000, 0.01f, n));
    EXPECT_EQ(n, 440);
    EditModel model = EditModel::Of(pcm);
    model.Silence(20000, 440);
    EXPECT_EQ(Play(*clip), model.Pcm());
}

TEST(EditableClip, BadArgumentsAreReportedAndChangeNothing) {
    LxAudioController controller;
    auto clip = controller.GetClip(Record(controller, MakeRamp(29970, 1)));
    auto empty = controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_OTHER);
    const std::vector<LxPageRange> ranges = clip->GetPageRanges();
    LxAudioEditableClip editable(*clip);
    LxAudioVolumeEffect gain(2.0f, 0.0f, 1.0f);
    struct NotVolume : LxAudioEffect {
        NotVolume() { type = LxAudioEffectFadeIn; }
        void XferData(ILxReadWriteStream&) override {}
        short Transform(short s) const override { return s; }
    } fade;
    struct Case {
        const char* name;
        std::function<bool()> call;
        const char* message;
        int line;  // in LxAudioClip
    };
    int n = 0;
    const std::vector<Case> cases = {
        {"delete of nothing", [&] { return editable.Delete(5, 5, n, false); }, "invalid range in delete", 1656},
        {"delete from before the clip", [&] { return editable.Delete(-5, 5, n, true); }, "invalid translation", 141},
        {"empty insert stretch", [&] { return editable.InsertAt(0, n, *clip, 7, 7); }, "invalid range in insert", 1751},
        {"insert into an empty clip", [&] { return LxAudioEditableClip(*empty).InsertAt(0, n, *clip, 0, 5); },
         "invalid insertion point", 1760},
        {"effect on an empty stretch", [&] { return editable.AddEffect(29970, 40000, gain); }, "empty range", 147},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        AssertRecorder recorder;
        EXPECT_FALSE(c.call());
        ExpectSingleReport(recorder, c.message, kClipFile, c.line);
        EXPECT_EQ(clip->GetPageRanges(), ranges);
    }
    // Anything but a volume effect is refused range by range; the cut still happens.
    AssertRecorder recorder;
    EXPECT_TRUE(editable.AddEffect(0, 29970, fade));
    ExpectSingleReport(recorder, "", "source/components/audiocore/LxPageRange", 479);
    EXPECT_EQ(clip->GetPageRanges()[0].effect.gain, 1.0f);
}
