// The Vorbis page codec: canned header packets, the stored packet framing,
// exact page lengths and alignment after a round trip, sound quality, and
// damaged stored data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>
#include <vorbis/codec.h>
#include <vorbis/vorbisenc.h>
#include "AssertRecorder.h"
#include "LxCodecVorbis.h"
#include "LxVorbisHeaders.h"
#include "VoiceSignal.h"

namespace {

using Bytes = std::vector<unsigned char>;
const char* const kCodec = "audiocore/LxCodecVorbis";
const char* const kSource = "source/components/audiocore/LxCodecVorbis";
constexpr int kPageBytes = 176400;

Bytes EncodePage(LxCodecVorbis& codec, const std::vector<int16_t>& pcm) {
    Bytes out(kPageBytes);
    const int n = codec.Encode(pcm.data(), static_cast<int>(pcm.size() * 2), out.data(), kPageBytes);
    out.resize(static_cast<size_t>(std::max(n, 0)));
    return out;
}

// Decodes into outBytes followed by guard bytes that must survive; the samples.
std::vector<int16_t> DecodePage(LxCodecVorbis& codec, const Bytes& page, int outBytes) {
    constexpr int kGuard = 64;
    Bytes out(static_cast<size_t>(outBytes) + kGuard, 0xA5);
    const int n = codec.Decode(page.data(), static_cast<int>(page.size()), reinterpret_cast<short*>(out.data()), outBytes);
    EXPECT_GE(n, 0);
    EXPECT_LE(n, outBytes);
    EXPECT_EQ(n % (codec.GetChannels() * 2), 0);
    for (int i = 0; i < kGuard; ++i) EXPECT_EQ(out[static_cast<size_t>(outBytes + i)], 0xA5) << "written past out";
    std::vector<int16_t> pcm(static_cast<size_t>(std::max(n, 0)) / 2);
    if (n > 0) std::memcpy(pcm.data(), out.data(), static_cast<size_t>(n));
    return pcm;
}

struct Prefix {
    int offset;  // of the prefix
    int length;  // of the packet
    bool longForm, endOfStream;
    int spareBits;  // bits 4 to 6 of a long prefix's third byte
};

// Walks the length prefixes of a stored page up to the first one that does not
// fit; end is where the walk stopped.
std::vector<Prefix> WalkPrefixes(const Bytes& page, size_t& end) {
    std::vector<Prefix> prefixes;
    size_t pos = 0;
    while (pos < page.size()) {
        Prefix p{static_cast<int>(pos), page[pos], page[pos] == 0xFF, false, 0};
        if (p.longForm) {
            if (pos + 3 > page.size()) break;
            p.length = (page[pos + 1] | (page[pos + 2] << 8)) & 0x0FFF;
            p.endOfStream = (page[pos + 2] & 0x80) != 0;
            p.spareBits = (page[pos + 2] >> 4) & 0x07;
        }
        pos += p.longForm ? 3 : 1;
        if (pos + static_cast<size_t>(p.length) > page.size()) break;
        pos += static_cast<size_t>(p.length);
        prefixes.push_back(p);
    }
    end = pos;
    return prefixes;
}

Bytes Of(const LxVorbisHeaderPacket& packet) { return Bytes(packet.bytes, packet.bytes + packet.size); }
Bytes Of(const std::string& text) { return Bytes(text.begin(), text.end()); }

}  // namespace

// Stored pages carry no headers: they decode only with the canned packets, and
// only when the installed encoder's codebooks are the ones the setup lists.
TEST(VorbisHeaders, CannedPacketsAreExactAndMatchTheInstalledEncoder) {
    EXPECT_EQ(LxVorbisHeaders::ForChannels(0), nullptr);
    EXPECT_EQ(LxVorbisHeaders::ForChannels(3), nullptr);
    const LxVorbisHeaders* mono = LxVorbisHeaders::ForChannels(1);
    const LxVorbisHeaders* stereo = LxVorbisHeaders::ForChannels(2);
    ASSERT_NE(mono, nullptr);
    ASSERT_NE(stereo, nullptr);
    EXPECT_EQ(mono->setup.size, 3006);
    EXPECT_EQ(stereo->setup.size, 4140);

    // Identification: type 1, "vorbis", version 0, channels, 44100 Hz, bitrate
    // upper -1, nominal, lower -1, block sizes 2^8 and 2^11, framing bit.
    const std::string idHead = std::string("\x01vorbis", 7) + std::string(4, '\0');
    const std::string rate("\x44\xac\x00\x00", 4), unset("\xff\xff\xff\xff", 4), tail("\xb8\x01", 2);
    EXPECT_EQ(Of(mono->identification), Of(idHead + "\x01" + rate + unset + std::string("\x00\xfa\x00\x00", 4) + unset + tail));
    EXPECT_EQ(Of(stereo->identification), Of(idHead + "\x02" + rate + unset + std::string("\x00\xf4\x01\x00", 4) + unset + tail));
    // Comment: type 3, "vorbis", vendor, user comments, framing bit.
    const std::string vendor = "Xiph.Org libVorbis I 20070622";
    const std::string commentHead = std::string("\x03vorbis", 7) + std::string("\x1d\x00\x00\x00", 4) + vendor;
    EXPECT_EQ(Of(mono->comment), Of(commentHead + std::string("\x01\x00\x00\x00\x19\x00\x00\x00", 8) +
                                    "ENCODER=encoder_example.c" + "\x01"));
    EXPECT_EQ(Of(stereo->comment), Of(commentHead + std::string("\x00\x00\x00\x00\x01", 5)));
    EXPECT_EQ(std::string(LxVorbisHeaders::kVendor), vendor);

    // The installed encoder writes the same identification and setup.
    for (int channels : {1, 2}) {
        SCOPED_TRACE(channels);
        const LxVorbisHeaders* set = LxVorbisHeaders::ForChannels(channels);
        vorbis_info info;
        vorbis_comment comment;
        vorbis_info_init(&info);
        ASSERT_EQ(vorbis_encode_init(&info, channels, 44100, -1, channels == 1 ? 64000 : 128000, -1), 0);
        vorbis_dsp_state state;
        ASSERT_EQ(vorbis_analysis_init(&state, &info), 0);
        vorbis_comment_init(&comment);
        ogg_packet id, com, setup;
        ASSERT_EQ(vorbis_analysis_headerout(&state, &comment, &id, &com, &setup), 0);
        EXPECT_EQ(Bytes(id.packet, id.packet + id.bytes), Of(set->identification));
        EXPECT_EQ(Bytes(setup.packet, setup.packet + setup.bytes), Of(set->setup));
        vorbis_comment_clear(&comment);
        vorbis_dsp_clear(&state);
        vorbis_info_clear(&info);
    }
}

TEST(VorbisCodec, PagesDecodeToTheirExactLengthWithNarrationQuality) {
    AssertRecorder rec;
    LxCodecVorbis mono(1), stereo(2);
    EXPECT_TRUE(mono.IsReady() && stereo.IsReady());
    // Full pages: a second of stereo, two of mono. At most 128 kbit/s on
    // average: some kilobytes, far below the page's own size.
    const std::vector<int16_t> stereoPcm = VoicePcm(44100, 2), monoPcm = VoicePcm(88200, 1);
    const Bytes stereoPage = EncodePage(stereo, stereoPcm);
    EXPECT_GT(stereoPage.size(), 4000u);
    EXPECT_LT(stereoPage.size(), 40000u);
    const std::vector<int16_t> stereoOut = DecodePage(stereo, stereoPage, kPageBytes);
    const std::vector<int16_t> monoOut = DecodePage(mono, EncodePage(mono, monoPcm), kPageBytes);
    ASSERT_EQ(stereoOut.size() * 2, static_cast<size_t>(kPageBytes));
    ASSERT_EQ(monoOut.size() * 2, static_cast<size_t>(kPageBytes));
    EXPECT_GE(SnrDb(stereoPcm, stereoOut), 30.0);
    EXPECT_GE(SnrDb(monoPcm, monoOut), 30.0);

    // Short pages of every awkward length around the block sizes.
    for (int channels : {1, 2}) {
        LxCodecVorbis& codec = channels == 1 ? mono : stereo;
        for (int frames : {1, 127, 500, 1025, 2049, 44099}) {
            const std::vector<int16_t> pcm = VoicePcm(frames, channels);
            const Bytes page = EncodePage(codec, pcm);
            ASSERT_GT(page.size(), 0u) << frames;
            const std::vector<int16_t> out = DecodePage(codec, page, frames * channels * 2);
            EXPECT_EQ(out.size(), pcm.size()) << channels << " channels, " << frames << " frames";
            if (channels == 1 && frames == 500) {
                // A 1,000-byte page keeps its sound, up to its last stretch: the
                // encoder's padding is trimmed at the end, the page not shifted.
                EXPECT_GE(SnrDb(pcm, out), 20.0);
                EXPECT_GE(SnrDb(std::vector<int16_t>(pcm.end() - 200, pcm.end()), std::vector<int16_t>(out.end() - 200, out.end())), 6.0);
            }
        }
    }
    // Less than a whole frame is nothing to compress.
    const int16_t one = 1000;
    unsigned char scratch[16];
    EXPECT_EQ(stereo.Encode(&one, 2, scratch, static_cast<int>(sizeof scratch)), 0);
    EXPECT_EQ(mono.Encode(&one, 0, scratch, static_cast<int>(sizeof scratch)), 0);
    EXPECT_EQ(rec.Count(), 0u);
}

TEST(VorbisCodec, FullScaleSamplesDoNotWrap) {
    AssertRecorder rec;
    const int channels = 2, frames = 8820;
    LxCodecVorbis codec(channels);
    // A full-scale 100 Hz square wave rings past full scale on both edges:
    // that must clamp, not wrap around.
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * channels);
    for (size_t i = 0; i < pcm.size(); ++i) pcm[i] = (i / channels / 220) % 2 == 0 ? int16_t{-32768} : int16_t{32767};
    const std::vector<int16_t> out = DecodePage(codec, EncodePage(codec, pcm), frames * channels * 2);
    ASSERT_EQ(out.size(), pcm.size());
    for (size_t i = 0; i < out.size(); ++i) {
        const size_t phase = i / static_cast<size_t>(channels) % 220;
        if (phase > 40 && phase < 180) {
            EXPECT_TRUE(pcm[i] < 0 ? out[i] < -16000 : out[i] > 16000) << i;
        }
    }
    const int16_t lowest = *std::min_element(out.begin(), out.end());
    EXPECT_TRUE(lowest == -32768 || lowest == -32767) << lowest;
    EXPECT_EQ(*std::max_element(out.begin(), out.end()), 32767);
    EXPECT_EQ(rec.Count(), 0u);
}

TEST(VorbisCodec, StoredPacketsAreFramedByLengthPrefixes) {
    AssertRecorder rec;
    for (int channels : {1, 2}) {
        LxCodecVorbis codec(channels);
        const Bytes page = EncodePage(codec, VoicePcm(88200 / channels, channels));  // a full page
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
            // An audio packet (type bit 0).
            EXPECT_EQ(page[static_cast<size_t>(p.offset + (p.longForm ? 3 : 1))] & 1, 0) << i;
        }
        // Each call is a fresh stream: the same page encodes to the same bytes.
        const std::vector<int16_t> pcm = VoicePcm(10000, channels);
        EXPECT_EQ(EncodePage(codec, pcm), EncodePage(codec, pcm));
    }
    EXPECT_EQ(rec.Count(), 0u);
}

TEST(VorbisCodec, EncodeStopsAtTheOutputCapacity) {
    LxCodecVorbis codec(2);
    const std::vector<int16_t> pcm = VoicePcm(44100, 2);
    const int pcmBytes = static_cast<int>(pcm.size() * 2);
    const Bytes full = EncodePage(codec, pcm);
    ASSERT_GT(full.size(), 1000u);
    for (int capacity : {0, static_cast<int>(full.size()) - 1}) {
        AssertRecorder rec;
        Bytes out(static_cast<size_t>(capacity) + 64, 0x5A);
        EXPECT_EQ(codec.Encode(pcm.data(), pcmBytes, out.data(), capacity), 0) << capacity;
        ExpectReportFrom(rec, "Compressed page does not fit the output buffer", kCodec);
        EXPECT_EQ(Bytes(out.begin() + capacity, out.end()), Bytes(64, 0x5A)) << capacity;
    }
    AssertRecorder rec;
    Bytes exact(full.size());  // an exact fit is fine
    EXPECT_EQ(codec.Encode(pcm.data(), pcmBytes, exact.data(), static_cast<int>(exact.size())), static_cast<int>(full.size()));
    EXPECT_EQ(exact, full);
    EXPECT_EQ(rec.Count(), 0u);
    EXPECT_EQ(codec.Encode(nullptr, 400, exact.data(), 8), 0);
    ExpectReportFrom(rec, "Bad arguments to the Vorbis encoder", kCodec);
}

TEST(VorbisCodec, UnusableChannelCountsLeaveTheCodecUnset) {
    for (int channels : {0, 3}) {
        AssertRecorder rec;
        LxCodecVorbis codec(channels);
        EXPECT_FALSE(codec.IsReady());
        EXPECT_EQ(rec.Count(), 0u) << "construction itself is silent";
        const int16_t pcm[6] = {1, 2, 3, 4, 5, 6};
        unsigned char out[64] = {};
        EXPECT_EQ(codec.Encode(pcm, static_cast<int>(sizeof pcm), out, static_cast<int>(sizeof out)), 0);
        ExpectReportFrom(rec, "Vorbis encoder is not set up", kCodec);
        rec.Clear();
        short decoded[16];
        EXPECT_EQ(codec.Decode(out, 4, decoded, static_cast<int>(sizeof decoded)), 0);
        ExpectReportFrom(rec, "Vorbis decoder is not set up", kCodec);
    }
}

TEST(VorbisCodec, DamagedPagesAreReportedAndDecodeWhatIsIntact) {
    LxCodecVorbis codec(2);
    const std::vector<int16_t> pcm = VoicePcm(22050, 2);
    const int pcmBytes = static_cast<int>(pcm.size() * 2);
    const Bytes page = EncodePage(codec, pcm);
    const std::vector<int16_t> clean = DecodePage(codec, page, pcmBytes);
    ASSERT_EQ(clean.size(), pcm.size());
    // A read may ask for less than the page holds: out fills up, decoding stops.
    const std::vector<int16_t> start = DecodePage(codec, page, 1001);
    ASSERT_EQ(start.size(), 250u * 2);
    EXPECT_TRUE(std::equal(start.begin(), start.end(), clean.begin()));
    size_t end = 0;
    const std::vector<Prefix> prefixes = WalkPrefixes(page, end);
    ASSERT_GE(prefixes.size(), 4u);
    const Prefix& middle = prefixes[prefixes.size() / 2];
    const auto cut = [&](size_t length) { return Bytes(page.begin(), page.begin() + static_cast<long>(length)); };
    Bytes longer = page;
    longer.insert(longer.end(), {0x02, 0x00, 0x00});
    // What a damaged page yields is a prefix of the clean decode, of a length
    // in [atLeast, atMost].
    struct Case {
        const char* what;
        Bytes bytes;
        const char* message;
        size_t atLeast, atMost;
    };
    const Case cases[] = {
        {"cut inside a packet", cut(static_cast<size_t>(middle.offset + 1 + middle.length / 2)),
         "Vorbis packet runs past the end of the page", 1, clean.size()},
        {"cut before the end-of-stream packet", cut(static_cast<size_t>(prefixes.back().offset)),
         "Vorbis page has no end-of-stream packet", pcm.size() / 2 + 1, clean.size()},
        {"cut inside a long prefix", cut(static_cast<size_t>(prefixes.back().offset + 2)),
         "Vorbis page ends inside a length prefix", 0, clean.size()},
        {"bytes after the end-of-stream packet", longer, "Vorbis page has data after its end-of-stream packet",
         clean.size(), clean.size()},
        {"a header packet", {0x01, 0x01, 0xFF, 0x01, 0x80, 0x00}, "Damaged Vorbis packet", 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        AssertRecorder rec;
        const std::vector<int16_t> out = DecodePage(codec, c.bytes, pcmBytes);
        ExpectReportFrom(rec, c.message, kCodec);
        EXPECT_GE(out.size(), c.atLeast);
        ASSERT_LE(out.size(), c.atMost);
        EXPECT_TRUE(std::equal(out.begin(), out.end(), clean.begin()));
    }
    AssertRecorder rec;
    short out[4];
    EXPECT_EQ(codec.Decode(nullptr, 10, out, static_cast<int>(sizeof out)), 0);
    EXPECT_EQ(codec.Decode(page.data(), static_cast<int>(page.size()), out, -4), 0);
    ASSERT_EQ(rec.Count(), 2u);
    EXPECT_EQ(rec.Reports()[1].message, "Bad arguments to the Vorbis decoder");
    EXPECT_EQ(rec.Reports()[1].line, SourceLineOf(std::string(kSource) + ".cpp", "\"Bad arguments to the Vorbis decoder\""));
}

// The compressor encodes outside the store's lock while readers decode under
// it: one codec object must take both at once.
TEST(VorbisCodec, EncodeAndDecodeRunTogetherOnOneCodec) {
    AssertRecorder rec;
    LxCodecVorbis codec(2);
    const std::vector<int16_t> pcm = VoicePcm(22050, 2);
    const int pcmBytes = static_cast<int>(pcm.size() * 2);
    const Bytes page = EncodePage(codec, pcm);
    const std::vector<int16_t> clean = DecodePage(codec, page, pcmBytes);
    bool encodesMatch = true, decodesMatch = true;
    std::thread encoder([&] {
        for (int i = 0; i < 6; ++i) encodesMatch = encodesMatch && EncodePage(codec, pcm) == page;
    });
    for (int i = 0; i < 6; ++i) decodesMatch = decodesMatch && DecodePage(codec, page, pcmBytes) == clean;
    encoder.join();
    EXPECT_TRUE(encodesMatch);
    EXPECT_TRUE(decodesMatch);
    EXPECT_EQ(rec.Count(), 0u);
}
