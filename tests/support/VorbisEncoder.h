#pragma once
// Ogg Vorbis files for tests, encoded with libvorbisenc (quality 0.4).
#include <gtest/gtest.h>
#include <vorbis/vorbisenc.h>
#include <algorithm>
#include <cstdint>
#include <vector>

// Encodes interleaved float samples as one Ogg Vorbis stream with libvorbisenc.
inline std::vector<uint8_t> EncodeVorbis(const std::vector<float>& samples, int channels, int rate, int serial = 1) {
    std::vector<uint8_t> out;
    vorbis_info info;
    vorbis_info_init(&info);
    if (vorbis_encode_init_vbr(&info, channels, rate, 0.4f) != 0) {
        ADD_FAILURE() << "vorbis_encode_init_vbr " << channels << " x " << rate;
        vorbis_info_clear(&info);
        return out;
    }
    vorbis_comment comment;
    vorbis_comment_init(&comment);
    vorbis_dsp_state dsp;
    vorbis_analysis_init(&dsp, &info);
    vorbis_block block;
    vorbis_block_init(&dsp, &block);
    ogg_stream_state os;
    ogg_stream_init(&os, serial);
    ogg_packet headers[3], packet;
    vorbis_analysis_headerout(&dsp, &comment, &headers[0], &headers[1], &headers[2]);
    for (ogg_packet& header : headers) ogg_stream_packetin(&os, &header);
    ogg_page page;
    const auto pages = [&](int (*next)(ogg_stream_state*, ogg_page*)) {
        while (next(&os, &page)) {
            out.insert(out.end(), page.header, page.header + page.header_len);
            out.insert(out.end(), page.body, page.body + page.body_len);
        }
    };
    pages(ogg_stream_flush);
    const int frames = static_cast<int>(samples.size()) / channels;
    for (int done = 0; done <= frames;) {
        const int n = std::min(1024, frames - done);  // a last call with 0 ends the stream
        float** buffer = vorbis_analysis_buffer(&dsp, std::max(n, 1));
        for (int i = 0; i < n * channels; ++i) buffer[i % channels][i / channels] = samples[static_cast<size_t>(done * channels + i)];
        vorbis_analysis_wrote(&dsp, n);
        while (vorbis_analysis_blockout(&dsp, &block) == 1) {
            vorbis_analysis(&block, nullptr);
            vorbis_bitrate_addblock(&block);
            while (vorbis_bitrate_flushpacket(&dsp, &packet)) ogg_stream_packetin(&os, &packet), pages(ogg_stream_pageout);
        }
        done += n == 0 ? 1 : n;
    }
    pages(ogg_stream_flush);
    ogg_stream_clear(&os);
    vorbis_block_clear(&block);
    vorbis_dsp_clear(&dsp);
    vorbis_comment_clear(&comment);
    vorbis_info_clear(&info);
    return out;
}
