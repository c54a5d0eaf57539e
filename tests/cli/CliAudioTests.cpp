// The tool's audio commands end to end: edits checked sample by sample against
// an independent model, fades, trimming, splitting, mixing, export formats and
// the waveform picture.
#include <nlohmann/json.hpp>
#include "CliTestSupport.h"
#include "EditModel.h"

using nlohmann::json;

TEST_F(CliTest, EditedClipExportsTheModelsSamples) {
    Ok({"new", "p.lxp"});
    const std::vector<int16_t> source = Ramp(132300, 1);
    const std::vector<int16_t> other = Ramp(44100, 1, 9);
    ASSERT_EQ(ImportPcm("p.lxp", "a.wav", source, 1), 1);
    ASSERT_EQ(ImportPcm("p.lxp", "b.wav", other, 1), 2);

    std::string out = Ok({"edit", "p.lxp", "1",                 //
                          "delete", "1000f", "5000f",           //
                          "copy", "100f", "600f",               //
                          "gain", "40000f", "50000f", "0.25",   //
                          "paste", "7000f",                     //
                          "insert", "20000f", "2", "0", "1000f",  //
                          "cut", "60000f", "61000f",            //
                          "paste", "end",                       //
                          "silence", "0", "100ms"});
    EditModel model = EditModel::Of(source);
    model.Delete(1000, 5000);
    const EditModel copied = model;  // the clipboard keeps the clip as it was at copy time
    model.Gain(40000, 50000, 0.25f);
    model.Insert(7000, copied, 100, 600);
    model.Insert(20000, EditModel::Of(other), 0, 1000);
    const EditModel beforeCut = model;
    model.Delete(60000, 61000);
    model.Insert(model.Frames(), beforeCut, 60000, 61000);
    model.Silence(0, 4410);

    // One new clip per changing operation, each printed, the last one the result.
    EXPECT_EQ(ClipIDs(out, "copy"), std::vector<int>{3});  // copy names the unchanged clip
    EXPECT_EQ(ResultClip(out), 9);
    EXPECT_NE(out.find("saved p.lxp"), std::string::npos);
    EXPECT_EQ(Exported("p.lxp", 9), Wide(model.Pcm()));
    // An edit that fails saves none of the operations before it.
    ExpectOneErrorLine(cli.Run({"edit", "p.lxp", "1", "delete", "0", "10f", "delete", "0", "10s"}),
                       "lxaudio: cannot apply 'delete 0 10s': the stretch ends past the end of the clip");
    EXPECT_EQ(json::parse(Ok({"info", "p.lxp", "--json"}))["clips"].size(), 9u);
}

TEST_F(CliTest, TrimAndSplit) {
    Ok({"new", "p.lxp"});
    const std::vector<int16_t> ramp = Ramp(44100, 1);
    ImportPcm("p.lxp", "ramp.wav", ramp, 1);

    // A second of silence on both sides of the ramp is trimmed away exactly.
    std::vector<int16_t> padded(44100, 0);
    padded.insert(padded.end(), ramp.begin(), ramp.end());
    padded.insert(padded.end(), 44100, 0);
    const int quiet = ImportPcm("p.lxp", "padded.wav", padded, 1);
    std::string trimmed = Ok({"edit", "p.lxp", std::to_string(quiet), "trim"});
    EXPECT_NE(trimmed.find("removed 88200 frames of silence (1.000 s at the start)"), std::string::npos) << trimmed;
    const int zero = ImportPcm("p.lxp", "zero.wav", std::vector<int16_t>(9000, 0), 1);
    EXPECT_EQ(cli.Run({"edit", "p.lxp", std::to_string(zero), "trim"}).err,
              "lxaudio: cannot apply 'trim': the clip is silent throughout\n");

    // Split at 200 ms and 500 ms: three new clips that play the ramp in turn.
    std::vector<int> pieces = ClipIDs(Ok({"edit", "p.lxp", "1", "split", "200,0.5s"}), "split");
    ASSERT_EQ(pieces.size(), 4u);  // three pieces and the unchanged clip
    EXPECT_EQ(pieces[3], 1);
    std::vector<int32_t> joined;
    const double sizes[3] = {8820, 13230, 22050};
    for (int i = 0; i < 3; ++i) {
        std::vector<int32_t> piece = Exported("p.lxp", pieces[static_cast<size_t>(i)]);
        EXPECT_NEAR(static_cast<double>(piece.size()), sizes[i], 2.0);
        joined.insert(joined.end(), piece.begin(), piece.end());
    }
    EXPECT_EQ(joined, Wide(ramp));
    EXPECT_EQ(cli.Run({"edit", "p.lxp", "1", "split", "2s"}).exitCode, 1);
}

TEST_F(CliTest, MixAddsWeightedClipsAtTheirOffsets) {
    Ok({"new", "p.lxp"});
    const std::vector<int16_t> a = Ramp(22050, 1, 2), b = Ramp(13230, 1, 3);
    ImportPcm("p.lxp", "a.wav", a, 1);
    ImportPcm("p.lxp", "b.wav", b, 1);

    std::string out = Ok({"-q", "mix", "p.lxp", "1@0:0.5", "2@100:0.25", "--channels", "1", "-o", "mix.wav"});
    EXPECT_NE(out.find("mixed 2 clips into mix.wav"), std::string::npos);
    WavData mix = CliFiles::ReadWav(files.Path("mix.wav"));
    EXPECT_EQ(mix.channels, 1);
    EXPECT_EQ(mix.rate, 44100);
    std::vector<int32_t> want(std::max(a.size(), 4410 + b.size()));
    for (size_t i = 0; i < want.size(); ++i) {
        int sum = i < a.size() ? static_cast<int16_t>(a[i] * 0.5f) : 0;
        if (i >= 4410 && i - 4410 < b.size()) sum += static_cast<int16_t>(b[i - 4410] * 0.25f);
        want[i] = static_cast<int16_t>(sum);
    }
    EXPECT_EQ(mix.samples, want);

    ExpectOneErrorLine(cli.Run({"mix", "p.lxp", "1@0", "7@0", "-o", "x.wav"}),
                       "lxaudio: no clip 7 in project 'p.lxp'\n");
    EXPECT_EQ(cli.Run({"mix", "p.lxp", "1", "-o", "x.wav"}).exitCode, 2);
}

TEST_F(CliTest, ExportWritesTheAskedFormat) {
    Ok({"new", "p.lxp"});
    const std::vector<int16_t> ramp = Ramp(44100, 1);
    ImportPcm("p.lxp", "a.wav", ramp, 1);

    std::vector<int32_t> stereo;
    for (int16_t s : ramp) stereo.insert(stereo.end(), {s, s});

    Ok({"-q", "export", "p.lxp", "1", "f32.wav", "--bits", "32", "--channels", "2"});
    WavData f32 = CliFiles::ReadWav(files.Path("f32.wav"));
    EXPECT_EQ(f32.formatTag, 3);
    EXPECT_EQ(f32.channels, 2);
    EXPECT_EQ(f32.samples, stereo);

    std::string out = Ok({"-q", "export", "p.lxp", "1", "half.wav", "--rate", "22050"});
    WavData half = CliFiles::ReadWav(files.Path("half.wav"));
    EXPECT_EQ(half.rate, 22050);
    EXPECT_NE(out.find("exported clip 1 to half.wav: " + std::to_string(half.Frames()) + " frames, mono, 22050 Hz"),
              std::string::npos)
        << out;
    EXPECT_EQ(cli.Run({"export", "p.lxp", "4", "x.wav"}).err, "lxaudio: no clip 4 in project 'p.lxp'\n");
}

TEST_F(CliTest, WaveformPictureShowsTheEnvelope) {
    Ok({"new", "p.lxp"});
    // One second at +-16000, one second at +-4000: a loud half and a quiet half.
    std::vector<int16_t> signal(88200);
    for (size_t i = 0; i < signal.size(); ++i) {
        const int level = i < 44100 ? 16000 : 4000;
        signal[i] = static_cast<int16_t>(i % 2 ? -level : level);
    }
    ImportPcm("p.lxp", "two.wav", signal, 1);
    std::string out = Ok({"waveform", "p.lxp", "1", "wave.png", "--width", "200", "--height", "101"});
    EXPECT_NE(out.find("980 points"), std::string::npos) << out;  // one per 90 frames
    // Each column is filled from the row of its highest sample to that of its
    // lowest in the wave's colour, and is background elsewhere.
    PngPicture png = CliFiles::ReadPng(files.Path("wave.png"));
    ASSERT_EQ(png.width, 200);
    ASSERT_EQ(png.height, 101);
    auto row = [](int sample) { return static_cast<int>((32767LL - sample) * 100 / 65535); };
    for (int x = 0; x < 200; ++x) {
        const int level = x < 100 ? 16000 : 4000;
        for (int y = 0; y < 101; ++y) {
            const uint8_t* p = png.At(x, y);
            const bool inside = y >= row(level) && y <= row(-level);
            const std::vector<int> colour = inside ? std::vector<int>{30, 90, 200} : std::vector<int>{255, 255, 255};
            ASSERT_EQ(std::vector<int>(p, p + 3), colour) << x << "," << y;
        }
    }

    EXPECT_EQ(cli.Run({"waveform", "p.lxp", "1", "x.png", "--width", "3"}).exitCode, 2);
}
