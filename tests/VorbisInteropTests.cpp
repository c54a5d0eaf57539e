// A compressed page is a Vorbis stream without its framing: wrapped in Ogg with
// the canned headers, a standard decoder (libvorbisfile) must play it to the
// same samples and the same length as the page codec does.
#include <gtest/gtest.h>

#include <ogg/ogg.h>
#include <vorbis/codec.h>
#include <vorbis/vorbisfile.h>

#include <cmath>
#include <cstring>
#include <vector>
#include "LxCodecVorbis.h"
#include "LxVorbisHeaders.h"
#include "VoiceSignal.h"

namespace {

struct MemoryFile {
    const std::vector<unsigned char>* bytes;
    size_t position = 0;
};

size_t ReadMemory(void* out, size_t size, size_t count, void* source) {
    auto* file = static_cast<MemoryFile*>(source);
    size_t n = std::min(size * count, file->bytes->size() - file->position);
    std::memcpy(out, file->bytes->data() + file->position, n);
    file->position += n;
    return size ? n / size : 0;
}

// Splits the stored form into packets by their length prefixes.
std::vector<std::vector<unsigned char>> Packets(const std::vector<unsigned char>& stored) {
    std::vector<std::vector<unsigned char>> packets;
    size_t i = 0;
    while (i < stored.size()) {
        size_t length = stored[i];
        size_t header = 1;
        if (length == 255) {
            length = stored[i + 1] | ((stored[i + 2] & 0x0F) << 8);
            header = 3;
        }
        packets.emplace_back(stored.begin() + static_cast<long>(i + header),
                             stored.begin() + static_cast<long>(i + header + length));
        i += header + length;
    }
    return packets;
}

// The page in Ogg framing: the three canned headers, then the audio packets with
// their granule positions, the last one ending the stream at the page's length.
std::vector<unsigned char> Ogg(const std::vector<std::vector<unsigned char>>& audio, int channels, long frames) {
    const LxVorbisHeaders* headers = LxVorbisHeaders::ForChannels(channels);
    ogg_stream_state stream;
    ogg_stream_init(&stream, 1234);
    vorbis_info info;
    vorbis_comment comment;
    vorbis_info_init(&info);
    vorbis_comment_init(&comment);
    std::vector<unsigned char> out;
    auto drain = [&](bool flush) {
        ogg_page page;
        while (flush ? ogg_stream_flush(&stream, &page) : ogg_stream_pageout(&stream, &page)) {
            out.insert(out.end(), page.header, page.header + page.header_len);
            out.insert(out.end(), page.body, page.body + page.body_len);
        }
    };
    const LxVorbisHeaderPacket* set[3] = {&headers->identification, &headers->comment, &headers->setup};
    for (int h = 0; h < 3; ++h) {
        ogg_packet packet{};
        packet.packet = const_cast<unsigned char*>(set[h]->bytes);
        packet.bytes = set[h]->size;
        packet.b_o_s = h == 0;
        packet.packetno = h;
        vorbis_synthesis_headerin(&info, &comment, &packet);
        ogg_stream_packetin(&stream, &packet);
    }
    drain(true);
    long granule = 0, previous = 0;
    for (size_t i = 0; i < audio.size(); ++i) {
        ogg_packet packet{};
        packet.packet = const_cast<unsigned char*>(audio[i].data());
        packet.bytes = static_cast<long>(audio[i].size());
        packet.packetno = static_cast<ogg_int64_t>(3 + i);
        long blocksize = vorbis_packet_blocksize(&info, &packet);
        if (i > 0) granule += previous / 4 + blocksize / 4;
        previous = blocksize;
        packet.e_o_s = i + 1 == audio.size();
        packet.granulepos = packet.e_o_s ? frames : granule;
        ogg_stream_packetin(&stream, &packet);
        drain(false);
    }
    drain(true);
    ogg_stream_clear(&stream);
    vorbis_comment_clear(&comment);
    vorbis_info_clear(&info);
    return out;
}

}  // namespace

TEST(VorbisInterop, StandardDecoderPlaysAPageLikeThePageCodec) {
    for (int channels : {1, 2}) {
        for (int frames : {44100 / channels * 2, 12345}) {
            LxCodecVorbis codec(channels);
            std::vector<int16_t> pcm = VoicePcm(frames, channels);
            int bytes = frames * channels * 2;
            std::vector<unsigned char> stored(176400);
            int encoded = codec.Encode(pcm.data(), bytes, stored.data(), 176400);
            ASSERT_GT(encoded, 0);
            stored.resize(static_cast<size_t>(encoded));
            std::vector<short> ours(static_cast<size_t>(frames * channels));
            ASSERT_EQ(codec.Decode(stored.data(), encoded, ours.data(), bytes), bytes);

            std::vector<unsigned char> ogg = Ogg(Packets(stored), channels, frames);
            MemoryFile file{&ogg};
            OggVorbis_File vf;
            ov_callbacks callbacks{ReadMemory, nullptr, nullptr, nullptr};
            ASSERT_EQ(ov_open_callbacks(&file, &vf, nullptr, 0, callbacks), 0);
            std::vector<float> theirs;
            for (;;) {
                float** channelData = nullptr;
                int section = 0;
                long n = ov_read_float(&vf, &channelData, 4096, &section);
                if (n <= 0) break;
                for (long i = 0; i < n; ++i) {
                    for (int c = 0; c < channels; ++c) theirs.push_back(channelData[c][i]);
                }
            }
            ov_clear(&vf);
            ASSERT_EQ(theirs.size(), ours.size()) << channels << " channels, " << frames << " frames";
            int worst = 0;
            for (size_t i = 0; i < ours.size(); ++i) {
                double x = std::trunc(static_cast<double>(theirs[i]) * 32767.0);
                x = std::clamp(x, -32768.0, 32767.0);
                worst = std::max(worst, std::abs(static_cast<int>(x) - ours[i]));
            }
            EXPECT_LE(worst, 1) << channels << " channels, " << frames << " frames";
        }
    }
}
