// The Vorbis page codec: canned header packets, the stored packet framing,
// exact page lengths and alignment after a round trip, sound quality, and
// damaged stored data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>
#include <vorbis/codec.h>
#include <vorbis/vorbisenc.h>
#include "AssertRecorder.h"
#include "LxCodecVorbis.h"
#include "LxVorbisHeaders.h"

namespace {

const char* const kSource = "source/components/audiocore/LxCodecVorbis";
const char* const kSourcePath = "source/components/audiocore/LxCodecVorbis.cpp";
constexpr double kPi = 3.14159265358979323846;
constexpr int kPageBytes = 176400;

int LineOf(const char* snippet) { return SourceLineOf(kSourcePath, snippet); }

// Voice-like test audio: a fundamental gliding around 200 Hz with sixteen
// harmonics falling 12 dB per octave, as a glottal source does, under a
// syllable envelope of about four per second.
std::vector<int16_t> Narration(int frames, int channels) {
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * static_cast<size_t>(channels));
    double phase = 0.0;
    for (int i = 0; i < frames; ++i) {
        const double t = i / 44100.0;
        const double f0 = 200.0 + 25.0 * std::sin(2 * kPi * 0.7 * t);
        phase += 2 * kPi * f0 / 44100.0;
        const double envelope = 0.15 + 0.85 * std::pow(std::sin(kPi * 4.0 * t), 2.0);
        double v = 0.0;
        for (int h = 1; h <= 16; ++h) v += std::sin(h * phase + h) / (h * h);
        for (int c = 0; c < channels; ++c) {
            const double gain = c == 0 ? 12000.0 : 9000.0;
            pcm[static_cast<size_t>(i) * channels + c] = static_cast<int16_t>(std::lround(gain * envelope * v));
        }
    }
    return pcm;
}

// A rising sweep from 200 Hz to 4 kHz: no two stretches look alike, so the
// correlation with the original peaks sharply at the true offset.
std::vector<int16_t> Chirp(int frames, int channels) {
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * static_cast<size_t>(channels));
    const double duration = frames / 44100.0;
    for (int i = 0; i < frames; ++i) {
        const double t = i / 44100.0;
        const double phase = 2 * kPi * (200.0 * t + (3800.0 / (2 * duration)) * t * t);
        for (int c = 0; c < channels; ++c)
            pcm[static_cast<size_t>(i) * channels + c] = static_cast<int16_t>(std::lround(12000.0 * std::sin(phase + c)));
    }
    return pcm;
}

std::vector<unsigned char> EncodePage(LxCodecVorbis& codec, const std::vector<int16_t>& pcm) {
    std::vector<unsigned char> out(kPageBytes);
    const int n = codec.Encode(pcm.data(), static_cast<int>(pcm.size() * 2), out.data(), kPageBytes);
    out.resize(static_cast<size_t>(std::max(n, 0)));
    return out;
}

// Decodes into a buffer of outBytes followed by guard bytes, checks that the
// guard survived, and returns the samples produced.
std::vector<int16_t> DecodePage(LxCodecVorbis& codec, const std::vector<unsigned char>& page, int outBytes) {
    constexpr int kGuard = 64;
    std::vector<unsigned char> out(static_cast<size_t>(outBytes) + kGuard, 0xA5);
    const int n = codec.Decode(page.data(), static_cast<int>(page.size()), reinterpret_cast<short*>(out.data()), outBytes);
    EXPECT_GE(n, 0);
    EXPECT_LE(n, outBytes);
    EXPECT_EQ(n % (codec.GetChannels() * 2), 0);
    for (int i = 0; i < kGuard; ++i) EXPECT_EQ(out[static_cast<size_t>(outBytes + i)], 0xA5) << "written past out";
    std::vector<int16_t> pcm(static_cast<size_t>(std::max(n, 0)) / 2);
    if (n > 0) std::memcpy(pcm.data(), out.data(), static_cast<size_t>(n));
    return pcm;
}

double SnrDb(const std::vector<int16_t>& original, const std::vector<int16_t>& decoded) {
    double signal = 0.0, noise = 0.0;
    for (size_t i = 0; i < original.size(); ++i) {
        const double d = static_cast<double>(original[i]) - decoded[i];
        signal += static_cast<double>(original[i]) * original[i];
        noise += d * d;
    }
    return 10.0 * std::log10(signal / std::max(noise, 1e-9));
}

// Normalised correlation of channel 0 of decoded against original shifted by
// lag, over the first frames frames (all when 0).
double Correlation(const std::vector<int16_t>& original, const std::vector<int16_t>& decoded, int channels, int lag,
                   int window = 0) {
    const int total = static_cast<int>(original.size()) / channels;
    const int frames = window > 0 ? std::min(window, total) : total;
    double xy = 0.0, xx = 0.0, yy = 0.0;
    for (int i = 0; i < frames; ++i) {
        const int j = i + lag;
        if (j < 0 || j >= frames) continue;
        const double x = original[static_cast<size_t>(i) * channels];
        const double y = decoded[static_cast<size_t>(j) * channels];
        xy += x * y;
        xx += x * x;
        yy += y * y;
    }
    return xx > 0 && yy > 0 ? xy / std::sqrt(xx * yy) : 0.0;
}

// The lag in [-maxLag, maxLag] at which decoded matches the start of original best.
int BestLag(const std::vector<int16_t>& original, const std::vector<int16_t>& decoded, int channels, int maxLag) {
    int best = 0;
    double bestValue = -2.0;
    for (int lag = -maxLag; lag <= maxLag; ++lag) {
        const double value = Correlation(original, decoded, channels, lag, 8192);
        if (value > bestValue) {
            bestValue = value;
            best = lag;
        }
    }
    return best;
}

struct Prefix {
    int offset;      // of the prefix
    int length;      // of the packet
    bool longForm;
    bool endOfStream;
    int spareBits;   // bits 4 to 6 of a long prefix's third byte
};

// Walks the length prefixes of a stored page; stops at the first one that does
// not fit.
std::vector<Prefix> WalkPrefixes(const std::vector<unsigned char>& page, size_t& end) {
    std::vector<Prefix> prefixes;
    size_t pos = 0;
    while (pos < page.size()) {
        Prefix p{static_cast<int>(pos), page[pos], false, false, 0};
        if (page[pos] == 0xFF) {
            if (pos + 3 > page.size()) break;
            p.longForm = true;
            p.length = (page[pos + 1] | (page[pos + 2] << 8)) & 0x0FFF;
            p.endOfStream = (page[pos + 2] & 0x80) != 0;
            p.spareBits = (page[pos + 2] >> 4) & 0x07;
            pos += 3;
        } else {
            pos += 1;
        }
        if (pos + static_cast<size_t>(p.length) > page.size()) break;
        pos += static_cast<size_t>(p.length);
        prefixes.push_back(p);
    }
    end = pos;
    return prefixes;
}

std::vector<unsigned char> Bytes(const LxVorbisHeaderPacket& packet) {
    return std::vector<unsigned char>(packet.bytes, packet.bytes + packet.size);
}

std::vector<unsigned char> Bytes(const std::string& text) { return std::vector<unsigned char>(text.begin(), text.end()); }

}  // namespace

TEST(VorbisHeaders, CannedPacketsHaveTheExpectedBytes) {
    const LxVorbisHeaders* mono = LxVorbisHeaders::ForChannels(1);
    const LxVorbisHeaders* stereo = LxVorbisHeaders::ForChannels(2);
    ASSERT_NE(mono, nullptr);
    ASSERT_NE(stereo, nullptr);
    EXPECT_EQ(LxVorbisHeaders::ForChannels(0), nullptr);
    EXPECT_EQ(LxVorbisHeaders::ForChannels(3), nullptr);

    EXPECT_EQ(mono->identification.size, 30);
    EXPECT_EQ(mono->comment.size, 74);
    EXPECT_EQ(mono->setup.size, 3006);
    EXPECT_EQ(stereo->identification.size, 30);
    EXPECT_EQ(stereo->comment.size, 45);
    EXPECT_EQ(stereo->setup.size, 4140);

    // Identification: type 1, "vorbis", version 0, channels, 44100 Hz, bitrate
    // upper -1, nominal, lower -1, block sizes 2^8 and 2^11, framing bit.
    const std::string idHead = std::string("\x01vorbis", 7) + std::string(4, '\0');
    const std::string rate("\x44\xac\x00\x00", 4), unset("\xff\xff\xff\xff", 4), tail("\xb8\x01", 2);
    EXPECT_EQ(Bytes(mono->identification),
              Bytes(idHead + "\x01" + rate + unset + std::string("\x00\xfa\x00\x00", 4) + unset + tail));
    EXPECT_EQ(Bytes(stereo->identification),
              Bytes(idHead + "\x02" + rate + unset + std::string("\x00\xf4\x01\x00", 4) + unset + tail));

    // Comment: type 3, "vorbis", vendor, user comments, framing bit.
    const std::string vendor = "Xiph.Org libVorbis I 20070622";
    const std::string commentHead = std::string("\x03vorbis", 7) + std::string("\x1d\x00\x00\x00", 4) + vendor;
    EXPECT_EQ(Bytes(mono->comment), Bytes(commentHead + std::string("\x01\x00\x00\x00\x19\x00\x00\x00", 8) +
                                          "ENCODER=encoder_example.c" + "\x01"));
    EXPECT_EQ(Bytes(stereo->comment), Bytes(commentHead + std::string("\x00\x00\x00\x00\x01", 5)));
    EXPECT_EQ(std::string(LxVorbisHeaders::kVendor), vendor);

    // Setup: type 5, "vorbis", then the codebooks.
    EXPECT_EQ(std::memcmp(mono->setup.bytes, "\x05vorbis", 7), 0);
    EXPECT_EQ(std::memcmp(stereo->setup.bytes, "\x05vorbis", 7), 0);

    // libvorbis reads all three as a valid header set.
    for (int channels : {1, 2}) {
        const LxVorbisHeaders* set = LxVorbisHeaders::ForChannels(channels);
        vorbis_info info;
        vorbis_comment comment;
        vorbis_info_init(&info);
        vorbis_comment_init(&comment);
        const LxVorbisHeaderPacket* packets[3] = {&set->identification, &set->comment, &set->setup};
        for (int i = 0; i < 3; ++i) {
            ogg_packet op{};
            op.packet = const_cast<unsigned char*>(packets[i]->bytes);
            op.bytes = packets[i]->size;
            op.b_o_s = i == 0;
            op.packetno = i;
            EXPECT_EQ(vorbis_synthesis_headerin(&info, &comment, &op), 0) << channels << " packet " << i;
        }
        EXPECT_EQ(info.channels, channels);
        EXPECT_EQ(info.rate, 44100);
        EXPECT_EQ(info.bitrate_nominal, channels == 1 ? 64000 : 128000);
        EXPECT_EQ(std::string(comment.vendor), vendor);
        EXPECT_EQ(comment.comments, channels == 1 ? 1 : 0);
        if (channels == 1 && comment.comments == 1) {
            EXPECT_EQ(std::string(comment.user_comments[0]), "ENCODER=encoder_example.c");
        }
        vorbis_comment_clear(&comment);
        vorbis_info_clear(&info);
    }
}

// Stored pages decode only when the encoder's codebooks are the ones the canned
// setup packet lists: the installed encoder must write the same packets.
TEST(VorbisHeaders, InstalledEncoderWritesTheCannedPackets) {
    for (int channels : {1, 2}) {
        const LxVorbisHeaders* set = LxVorbisHeaders::ForChannels(channels);
        vorbis_info info;
        vorbis_info_init(&info);
        ASSERT_EQ(vorbis_encode_init(&info, channels, 44100, -1, channels == 1 ? 64000 : 128000, -1), 0);
        vorbis_dsp_state state;
        ASSERT_EQ(vorbis_analysis_init(&state, &info), 0);
        vorbis_comment comment;
        vorbis_comment_init(&comment);
        ogg_packet id, com, setup;
        ASSERT_EQ(vorbis_analysis_headerout(&state, &comment, &id, &com, &setup), 0);
        EXPECT_EQ(std::vector<unsigned char>(id.packet, id.packet + id.bytes), Bytes(set->identification));
        EXPECT_EQ(std::vector<unsigned char>(setup.packet, setup.packet + setup.bytes), Bytes(set->setup))
            << channels << " channels";
        vorbis_comment_clear(&comment);
        vorbis_dsp_clear(&state);
        vorbis_info_clear(&info);
    }
    AssertRecorder rec;
    LxCodecVorbis mono(1), stereo(2);
    EXPECT_TRUE(mono.IsReady());
    EXPECT_TRUE(stereo.IsReady());
    EXPECT_EQ(rec.Count(), 0u);
}

TEST(VorbisCodec, PagesDecodeToTheirExactLengthWithNarrationQuality) {
    AssertRecorder rec;
    LxCodecVorbis mono(1), stereo(2);

    // A full stereo page: one second.
    const std::vector<int16_t> stereoPcm = Narration(44100, 2);
    const std::vector<unsigned char> stereoPage = EncodePage(stereo, stereoPcm);
    ASSERT_GT(stereoPage.size(), 0u);
    // At most 128 kbit/s on average: some kilobytes for the second, far below
    // the page's own size.
    EXPECT_GT(stereoPage.size(), 4000u);
    EXPECT_LT(stereoPage.size(), 40000u);
    const std::vector<int16_t> stereoOut = DecodePage(stereo, stereoPage, kPageBytes);
    ASSERT_EQ(stereoOut.size() * 2, static_cast<size_t>(kPageBytes));
    EXPECT_GE(SnrDb(stereoPcm, stereoOut), 30.0);

    // A full mono page: two seconds.
    const std::vector<int16_t> monoPcm = Narration(88200, 1);
    const std::vector<unsigned char> monoPage = EncodePage(mono, monoPcm);
    const std::vector<int16_t> monoOut = DecodePage(mono, monoPage, kPageBytes);
    ASSERT_EQ(monoOut.size() * 2, static_cast<size_t>(kPageBytes));
    EXPECT_GE(SnrDb(monoPcm, monoOut), 30.0);

    // Short pages of every awkward length around the block sizes.
    for (int channels : {1, 2}) {
        LxCodecVorbis& codec = channels == 1 ? mono : stereo;
        for (int frames : {1, 2, 90, 127, 128, 500, 1023, 1024, 1025, 2047, 2048, 2049, 4410, 44099}) {
            const std::vector<int16_t> pcm = Narration(frames, channels);
            const std::vector<unsigned char> page = EncodePage(codec, pcm);
            ASSERT_GT(page.size(), 0u) << frames;
            const int pcmBytes = frames * channels * 2;
            EXPECT_EQ(DecodePage(codec, page, pcmBytes).size() * 2, static_cast<size_t>(pcmBytes))
                << channels << " channels, " << frames << " frames";
        }
    }
    // A 1,000-byte mono page, with its sound.
    const std::vector<int16_t> shortPcm = Narration(500, 1);
    const std::vector<int16_t> shortOut = DecodePage(mono, EncodePage(mono, shortPcm), 1000);
    ASSERT_EQ(shortOut.size(), 500u);
    EXPECT_GE(SnrDb(shortPcm, shortOut), 20.0);

    // Less than a whole frame is nothing to compress.
    const int16_t one = 1000;
    unsigned char scratch[16];
    EXPECT_EQ(stereo.Encode(&one, 2, scratch, static_cast<int>(sizeof scratch)), 0);
    EXPECT_EQ(mono.Encode(&one, 0, scratch, static_cast<int>(sizeof scratch)), 0);
    EXPECT_EQ(rec.Count(), 0u);
}

// The encoder's padding goes at the end of the last block; the end-of-stream
// granule must trim it there, not shift the page.
TEST(VorbisCodec, DecodedAudioIsAlignedWithTheOriginal) {
    AssertRecorder rec;
    for (int channels : {1, 2}) {
        LxCodecVorbis codec(channels);
        for (int frames : {44100, 3000, 500}) {
            const std::vector<int16_t> pcm = Chirp(frames, channels);
            const std::vector<int16_t> out = DecodePage(codec, EncodePage(codec, pcm), frames * channels * 2);
            ASSERT_EQ(out.size(), pcm.size());
            EXPECT_EQ(BestLag(pcm, out, channels, std::min(2048, frames / 2)), 0)
                << channels << " channels, " << frames << " frames";
            EXPECT_GT(Correlation(pcm, out, channels, 0), 0.95) << channels << " channels, " << frames << " frames";
            // The page's last stretch is audio, not trimmed-off padding.
            const std::vector<int16_t> lastPcm(pcm.end() - 200 * channels, pcm.end());
            const std::vector<int16_t> lastOut(out.end() - 200 * channels, out.end());
            EXPECT_GE(SnrDb(lastPcm, lastOut), 6.0) << channels << " channels, " << frames << " frames";
        }
    }
    EXPECT_EQ(rec.Count(), 0u);
}

TEST(VorbisCodec, FullScaleSamplesDoNotWrap) {
    AssertRecorder rec;
    for (int channels : {1, 2}) {
        LxCodecVorbis codec(channels);
        // Full-scale square wave at 100 Hz: the codec rings past full scale on
        // both edges, which must clamp, not wrap around.
        const int frames = 8820;
        std::vector<int16_t> pcm(static_cast<size_t>(frames) * channels);
        for (int i = 0; i < frames; ++i)
            for (int c = 0; c < channels; ++c)
                pcm[static_cast<size_t>(i) * channels + c] = (i / 220) % 2 == 0 ? int16_t{-32768} : int16_t{32767};
        const std::vector<int16_t> out = DecodePage(codec, EncodePage(codec, pcm), frames * channels * 2);
        ASSERT_EQ(out.size(), pcm.size());
        int16_t lowest = 0, highest = 0;
        for (size_t i = 0; i < out.size(); ++i) {
            const size_t frame = i / static_cast<size_t>(channels);
            // Away from the edges, the sign always matches.
            if (frame % 220 > 40 && frame % 220 < 180) {
                if (pcm[i] < 0) {
                    EXPECT_LT(out[i], -16000) << i;
                } else {
                    EXPECT_GT(out[i], 16000) << i;
                }
            }
            lowest = std::min(lowest, out[i]);
            highest = std::max(highest, out[i]);
        }
        EXPECT_TRUE(lowest == -32768 || lowest == -32767) << lowest;
        EXPECT_EQ(highest, 32767);

        // A page held at -32768 throughout comes back at the bottom of the range.
        std::vector<int16_t> floor(static_cast<size_t>(4410) * channels, int16_t{-32768});
        const std::vector<int16_t> floorOut = DecodePage(codec, EncodePage(codec, floor), 4410 * channels * 2);
        ASSERT_EQ(floorOut.size(), floor.size());
        int16_t floorHigh = -32768;
        for (size_t i = 2048 * channels; i < floorOut.size() - 2048 * channels; ++i)
            floorHigh = std::max(floorHigh, floorOut[i]);
        EXPECT_LT(floorHigh, -30000);
        EXPECT_TRUE(*std::min_element(floorOut.begin(), floorOut.end()) >= -32768);
    }
    EXPECT_EQ(rec.Count(), 0u);
}

TEST(VorbisCodec, StoredPacketsAreFramedByLengthPrefixes) {
    AssertRecorder rec;
    for (int channels : {1, 2}) {
        LxCodecVorbis codec(channels);
        for (int frames : {88200 / channels, 500}) {
            const std::vector<unsigned char> page = EncodePage(codec, Narration(frames, channels));
            size_t end = 0;
            const std::vector<Prefix> prefixes = WalkPrefixes(page, end);
            EXPECT_EQ(end, page.size()) << "the prefixes tile the page exactly";
            ASSERT_GE(prefixes.size(), 2u);
            for (size_t i = 0; i < prefixes.size(); ++i) {
                const Prefix& p = prefixes[i];
                const bool last = i + 1 == prefixes.size();
                EXPECT_EQ(p.endOfStream, last) << i;
                EXPECT_EQ(p.spareBits, 0) << i;
                EXPECT_GT(p.length, 0) << i;
                // Long form exactly when needed: the last packet, or 255 bytes and more.
                EXPECT_EQ(p.longForm, last || p.length >= 255) << i << " length " << p.length;
            }
            // Every packet is a Vorbis audio packet (type bit 0).
            for (const Prefix& p : prefixes) EXPECT_EQ(page[static_cast<size_t>(p.offset + (p.longForm ? 3 : 1))] & 1, 0);
        }
        // The same page encodes to the same bytes every time: each call is a
        // fresh stream.
        const std::vector<int16_t> pcm = Narration(10000, channels);
        EXPECT_EQ(EncodePage(codec, pcm), EncodePage(codec, pcm));
    }
    EXPECT_EQ(rec.Count(), 0u);
}

TEST(VorbisCodec, EncodeStopsAtTheOutputCapacity) {
    LxCodecVorbis codec(2);
    const std::vector<int16_t> pcm = Narration(44100, 2);
    const std::vector<unsigned char> full = EncodePage(codec, pcm);
    ASSERT_GT(full.size(), 1000u);

    for (int capacity : {0, 1, 1000, static_cast<int>(full.size()) - 1}) {
        AssertRecorder rec;
        std::vector<unsigned char> out(static_cast<size_t>(capacity) + 64, 0x5A);
        EXPECT_EQ(codec.Encode(pcm.data(), static_cast<int>(pcm.size() * 2), out.data(), capacity), 0) << capacity;
        ExpectSingleReport(rec, "Compressed page does not fit the output buffer", kSource,
                           LineOf("\"Compressed page does not fit the output buffer\""));
        for (size_t i = static_cast<size_t>(capacity); i < out.size(); ++i) ASSERT_EQ(out[i], 0x5A) << capacity;
    }
    {
        // An exact fit is fine.
        AssertRecorder rec;
        std::vector<unsigned char> out(full.size());
        EXPECT_EQ(codec.Encode(pcm.data(), static_cast<int>(pcm.size() * 2), out.data(), static_cast<int>(out.size())),
                  static_cast<int>(full.size()));
        EXPECT_EQ(out, full);
        EXPECT_EQ(rec.Count(), 0u);
    }
    {
        AssertRecorder rec;
        unsigned char out[8];
        EXPECT_EQ(codec.Encode(nullptr, 400, out, static_cast<int>(sizeof out)), 0);
        ExpectSingleReport(rec, "Bad arguments to the Vorbis encoder", kSource,
                           LineOf("\"Bad arguments to the Vorbis encoder\""));
    }
}

TEST(VorbisCodec, UnusableChannelCountsLeaveTheCodecUnset) {
    for (int channels : {0, 3, -1}) {
        AssertRecorder rec;
        LxCodecVorbis codec(channels);
        EXPECT_FALSE(codec.IsReady());
        EXPECT_EQ(rec.Count(), 0u) << "construction itself is silent";
        const int16_t pcm[6] = {1, 2, 3, 4, 5, 6};
        unsigned char out[64] = {};
        EXPECT_EQ(codec.Encode(pcm, static_cast<int>(sizeof pcm), out, static_cast<int>(sizeof out)), 0);
        ExpectSingleReport(rec, "Vorbis encoder is not set up", kSource, LineOf("\"Vorbis encoder is not set up\""));
        rec.Clear();
        short decoded[16];
        EXPECT_EQ(codec.Decode(out, 4, decoded, static_cast<int>(sizeof decoded)), 0);
        ExpectSingleReport(rec, "Vorbis decoder is not set up", kSource, LineOf("\"Vorbis decoder is not set up\""));
    }
}

TEST(VorbisCodec, DamagedPagesAreReportedAndDecodeWhatIsIntact) {
    LxCodecVorbis codec(2);
    const std::vector<int16_t> pcm = Narration(22050, 2);
    const int pcmBytes = static_cast<int>(pcm.size() * 2);
    const std::vector<unsigned char> page = EncodePage(codec, pcm);
    const std::vector<int16_t> clean = DecodePage(codec, page, pcmBytes);
    ASSERT_EQ(clean.size(), pcm.size());
    size_t end = 0;
    const std::vector<Prefix> prefixes = WalkPrefixes(page, end);
    ASSERT_GE(prefixes.size(), 4u);

    // What a damaged page yields is a prefix of the clean decode.
    auto expectPrefixOfClean = [&](const std::vector<int16_t>& out) {
        ASSERT_LE(out.size(), clean.size());
        EXPECT_TRUE(std::equal(out.begin(), out.end(), clean.begin()));
    };
    {
        // Cut inside a packet: its length runs past the data.
        AssertRecorder rec;
        const Prefix& p = prefixes[prefixes.size() / 2];
        std::vector<unsigned char> cut(page.begin(), page.begin() + p.offset + 1 + p.length / 2);
        const std::vector<int16_t> out = DecodePage(codec, cut, pcmBytes);
        ExpectSingleReport(rec, "Vorbis packet runs past the end of the page", kSource,
                           LineOf("\"Vorbis packet runs past the end of the page\""));
        EXPECT_GT(out.size(), 0u);
        expectPrefixOfClean(out);
    }
    {
        // Cut between packets: the end-of-stream packet is missing.
        AssertRecorder rec;
        std::vector<unsigned char> cut(page.begin(), page.begin() + prefixes.back().offset);
        const std::vector<int16_t> out = DecodePage(codec, cut, pcmBytes);
        ExpectSingleReport(rec, "Vorbis page has no end-of-stream packet", kSource,
                           LineOf("\"Vorbis page has no end-of-stream packet\""));
        EXPECT_GT(out.size(), pcm.size() / 2);
        expectPrefixOfClean(out);
    }
    {
        // Cut inside a long prefix.
        AssertRecorder rec;
        std::vector<unsigned char> cut(page.begin(), page.begin() + prefixes.back().offset + 2);
        const std::vector<int16_t> out = DecodePage(codec, cut, pcmBytes);
        ExpectSingleReport(rec, "Vorbis page ends inside a length prefix", kSource,
                           LineOf("\"Vorbis page ends inside a length prefix\""));
        expectPrefixOfClean(out);
    }
    {
        // A long prefix whose length is beyond the data.
        AssertRecorder rec;
        const std::vector<unsigned char> bogus = {0xFF, 0xFF, 0x0F, 0x00, 0x00};
        EXPECT_EQ(DecodePage(codec, bogus, pcmBytes).size(), 0u);
        ExpectSingleReport(rec, "Vorbis packet runs past the end of the page", kSource,
                           LineOf("\"Vorbis packet runs past the end of the page\""));
    }
    {
        // Bytes after the end-of-stream packet: the page itself is whole.
        AssertRecorder rec;
        std::vector<unsigned char> longer = page;
        longer.insert(longer.end(), {0x02, 0x00, 0x00});
        EXPECT_EQ(DecodePage(codec, longer, pcmBytes), clean);
        ExpectSingleReport(rec, "Vorbis page has data after its end-of-stream packet", kSource,
                           LineOf("\"Vorbis page has data after its end-of-stream packet\""));
    }
    {
        // A header packet (type bit 1) or an empty packet where audio belongs.
        for (const std::vector<unsigned char>& bad :
             {std::vector<unsigned char>{0x01, 0x01, 0xFF, 0x01, 0x80, 0x00}, std::vector<unsigned char>{0x00}}) {
            AssertRecorder rec;
            EXPECT_EQ(DecodePage(codec, bad, pcmBytes).size(), 0u);
            ExpectSingleReport(rec, "Damaged Vorbis packet", kSource, LineOf("\"Damaged Vorbis packet\""));
        }
    }
    {
        AssertRecorder rec;
        short out[4];
        EXPECT_EQ(codec.Decode(nullptr, 10, out, static_cast<int>(sizeof out)), 0);
        EXPECT_EQ(codec.Decode(page.data(), static_cast<int>(page.size()), out, -4), 0);
        ASSERT_EQ(rec.Count(), 2u);
        EXPECT_EQ(rec.Reports()[1].message, "Bad arguments to the Vorbis decoder");
        EXPECT_EQ(rec.Reports()[1].line, LineOf("\"Bad arguments to the Vorbis decoder\""));
        // Nothing to decode, or no room for a frame: nothing produced, nothing reported.
        rec.Clear();
        EXPECT_EQ(codec.Decode(page.data(), 0, out, static_cast<int>(sizeof out)), 0);
        EXPECT_EQ(codec.Decode(page.data(), static_cast<int>(page.size()), out, 3), 0);
        EXPECT_EQ(rec.Count(), 0u);
    }
    // After all that the codec is as good as new.
    EXPECT_EQ(DecodePage(codec, page, pcmBytes), clean);
}

// A read may ask for less than the page holds: out fills up and decoding stops.
TEST(VorbisCodec, SmallerOutputTakesTheStartOfThePage) {
    AssertRecorder rec;
    for (int channels : {1, 2}) {
        LxCodecVorbis codec(channels);
        const std::vector<int16_t> pcm = Narration(44100, channels);
        const int pcmBytes = static_cast<int>(pcm.size() * 2);
        const std::vector<unsigned char> page = EncodePage(codec, pcm);
        const std::vector<int16_t> clean = DecodePage(codec, page, pcmBytes);
        ASSERT_EQ(clean.size(), pcm.size());
        for (int outBytes : {1000, 1001, 4096 * channels, pcmBytes / 2, pcmBytes - 4}) {
            const std::vector<int16_t> out = DecodePage(codec, page, outBytes);
            const int frameBytes = channels * 2;
            ASSERT_EQ(static_cast<int>(out.size() * 2), outBytes / frameBytes * frameBytes) << outBytes;
            EXPECT_TRUE(std::equal(out.begin(), out.end(), clean.begin())) << outBytes;
        }
    }
    EXPECT_EQ(rec.Count(), 0u);
}

// Random damage: truncation, flipped bytes, bogus prefixes. Whatever the bytes,
// Decode stays inside out, returns whole frames and reports at most once.
TEST(VorbisCodec, RandomlyDamagedPagesNeverOverrun) {
    std::mt19937 random(20240611);
    for (int channels : {1, 2}) {
        LxCodecVorbis codec(channels);
        const std::vector<int16_t> pcm = Narration(11025, channels);
        const int pcmBytes = static_cast<int>(pcm.size() * 2);
        const std::vector<unsigned char> page = EncodePage(codec, pcm);
        for (int round = 0; round < 150; ++round) {
            std::vector<unsigned char> bad = page;
            switch (round % 5) {
                case 0:  // truncated anywhere
                    bad.resize(random() % page.size());
                    break;
                case 1:  // a few flipped bytes
                    for (int k = 0; k < 4; ++k) bad[random() % bad.size()] ^= static_cast<unsigned char>(1 + random() % 255);
                    break;
                case 2:  // a run of garbage in the middle
                    for (size_t k = random() % bad.size(), e = std::min(bad.size(), k + 64); k < e; ++k)
                        bad[k] = static_cast<unsigned char>(random());
                    break;
                case 3:  // all garbage
                    for (unsigned char& b : bad) b = static_cast<unsigned char>(random());
                    break;
                default:  // a long prefix with a huge length in front
                    bad.insert(bad.begin(), {0xFF, static_cast<unsigned char>(random()), 0x8F});
                    break;
            }
            AssertRecorder rec;
            const int outBytes = round % 3 == 0 ? pcmBytes / 3 : pcmBytes;
            const std::vector<int16_t> out = DecodePage(codec, bad, outBytes);
            EXPECT_LE(rec.Count(), 1u) << round;
            for (const AssertReport& r : rec.Reports()) EXPECT_EQ(r.sourceFile, kSource);
        }
        // Still decodes a good page exactly.
        EXPECT_EQ(DecodePage(codec, page, pcmBytes).size(), pcm.size());
    }
}

// The compressor encodes outside the store's lock while readers decode under
// it: one codec object must take both at once.
TEST(VorbisCodec, EncodeAndDecodeRunTogetherOnOneCodec) {
    AssertRecorder rec;
    LxCodecVorbis codec(2);
    const std::vector<int16_t> pcm = Narration(22050, 2);
    const int pcmBytes = static_cast<int>(pcm.size() * 2);
    const std::vector<unsigned char> page = EncodePage(codec, pcm);
    const std::vector<int16_t> clean = DecodePage(codec, page, pcmBytes);

    bool encodesMatch = true, decodesMatch = true;
    std::thread encoder([&] {
        for (int i = 0; i < 6; ++i) encodesMatch = encodesMatch && EncodePage(codec, pcm) == page;
    });
    std::thread decoder([&] {
        for (int i = 0; i < 6; ++i) decodesMatch = decodesMatch && DecodePage(codec, page, pcmBytes) == clean;
    });
    encoder.join();
    decoder.join();
    EXPECT_TRUE(encodesMatch);
    EXPECT_TRUE(decodesMatch);
    EXPECT_EQ(rec.Count(), 0u);
}
