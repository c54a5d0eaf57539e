#pragma once
// Vorbis page codec over libvorbis: raw audio packets with a small length
// prefix, no Ogg framing; the decoder is primed with canned header packets that
// match the encoder's fixed settings (44100 Hz, managed ABR, 64 kbit/s mono,
// 128 kbit/s stereo).
//
// Encoding and decoding keep separate libvorbis state: one thread may encode
// while another decodes, but two encodes (or two decodes) must not overlap.
#include <vorbis/codec.h>
#include "LxCodec.h"

class LxCodecVorbis : public LxCodec {
public:
    explicit LxCodecVorbis(int channelCount);
    ~LxCodecVorbis() override;

    int Encode(const short* pcm, int pcmBytes, unsigned char* out, int outCapacity) override;
    int Decode(const unsigned char* in, int inBytes, short* out, int outBytes) override;

    // False when the channel count (1 or 2 only) or the libvorbis set-up was not
    // usable; Encode and Decode then report and produce nothing.
    bool IsReady() const { return encoderReady && decoderReady; }

private:
    vorbis_info encInfo;
    vorbis_comment encComment;
    vorbis_dsp_state encState;
    vorbis_block encBlock;
    vorbis_info decInfo;
    vorbis_comment decComment;
    vorbis_dsp_state decState;
    vorbis_block decBlock;
    bool encoderReady = false;
    bool decoderReady = false;
};
