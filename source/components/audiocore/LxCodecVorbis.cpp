#include "LxCodecVorbis.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>
#include <vorbis/vorbisenc.h>
#include "LxAudioConstants.h"
#include "LxPublic/LxAssert.h"
#include "LxVorbisHeaders.h"

// Stored form of one compressed page: its audio packets in order, each behind a
// length prefix. Short form: one byte L, for L < 255 when the packet is not the
// last. Long form: 0xFF, L & 0xFF, ((L >> 8) & 0x0F) | (endOfStream << 7). The
// last packet always takes the long form with the end-of-stream bit, which is
// how the decoder knows where to trim the encoder's padding.

static const char* const kSourceFile = "source/components/audiocore/LxCodecVorbis";

namespace {

constexpr int kSampleRate = kLxFrameRate;
constexpr int kLongPrefix = 0xFF;
constexpr int kMaxPacketBytes = 0x0FFF;  // 12 bits of length in the long form
constexpr int kFirstAudioPacketNo = 3;   // the three header packets are 0 to 2

int NominalBitrate(int channels) { return channels == 1 ? 64000 : 128000; }

bool SamePacket(const ogg_packet& produced, const LxVorbisHeaderPacket& canned) {
    return produced.bytes == canned.size &&
           std::memcmp(produced.packet, canned.bytes, static_cast<size_t>(canned.size)) == 0;
}

// Decoded float to 16 bits: truncation toward zero of f * 32767, clamped. NaN
// (only a damaged packet can produce one) becomes silence. Written without
// branches so that the loops below vectorise; the product is exact in double.
inline int16_t ToSample(float f) {
    const double v = static_cast<double>(f) * 32767.0;
    double c = v < -32768.0 ? -32768.0 : v;  // a NaN passes both clamps unchanged
    c = c > 32767.0 ? 32767.0 : c;
    c = v == v ? c : 0.0;
    return static_cast<int16_t>(static_cast<int>(c));
}

// Interleaves frames of planar float PCM as 16-bit samples at dst (any alignment).
void ConvertFrames(float** pcm, int channels, int frames, unsigned char* dst) {
    if (channels == 2) {
        const float* left = pcm[0];
        const float* right = pcm[1];
        for (int i = 0; i < frames; ++i) {
            const int16_t pair[2] = {ToSample(left[i]), ToSample(right[i])};
            std::memcpy(dst + 4 * static_cast<size_t>(i), pair, sizeof pair);
        }
        return;
    }
    if (channels == 1) {
        const float* mono = pcm[0];
        for (int i = 0; i < frames; ++i) {
            const int16_t sample = ToSample(mono[i]);
            std::memcpy(dst + 2 * static_cast<size_t>(i), &sample, sizeof sample);
        }
        return;
    }
    for (int i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c) {
            const int16_t sample = ToSample(pcm[c][i]);
            std::memcpy(dst, &sample, sizeof sample);
            dst += sizeof sample;
        }
    }
}

// Writes one packet with its length prefix at out + written; false (nothing
// written) when it does not fit or its length cannot be expressed.
bool WritePacket(const std::vector<unsigned char>& packet, bool last, unsigned char* out, int outCapacity,
                 int& written) {
    const int length = static_cast<int>(packet.size());
    if (length > kMaxPacketBytes) {
        LxAssertFailed("Vorbis packet too long for its length prefix", kSourceFile, __LINE__);
        return false;
    }
    const bool longForm = last || length >= kLongPrefix;
    const int prefixBytes = longForm ? 3 : 1;
    if (outCapacity - written < prefixBytes + length) {
        LxAssertFailed("Compressed page does not fit the output buffer", kSourceFile, __LINE__);
        return false;
    }
    unsigned char* p = out + written;
    if (longForm) {
        p[0] = static_cast<unsigned char>(kLongPrefix);
        p[1] = static_cast<unsigned char>(length & 0xFF);
        p[2] = static_cast<unsigned char>(((length >> 8) & 0x0F) | (last ? 0x80 : 0));
    } else {
        p[0] = static_cast<unsigned char>(length);
    }
    if (length > 0) std::memcpy(p + prefixBytes, packet.data(), static_cast<size_t>(length));
    written += prefixBytes + length;
    return true;
}

}  // namespace

LxCodecVorbis::LxCodecVorbis(int channelCount) : LxCodec(channelCount) {
    std::memset(&encInfo, 0, sizeof encInfo);
    std::memset(&encComment, 0, sizeof encComment);
    std::memset(&encState, 0, sizeof encState);
    std::memset(&encBlock, 0, sizeof encBlock);
    std::memset(&decInfo, 0, sizeof decInfo);
    std::memset(&decComment, 0, sizeof decComment);
    std::memset(&decState, 0, sizeof decState);
    std::memset(&decBlock, 0, sizeof decBlock);

    const LxVorbisHeaders* headers = LxVorbisHeaders::ForChannels(channels);
    if (headers == nullptr) return;  // only 1 and 2 channels are meaningful; the codec stays unset

    // Encoder.
    vorbis_info_init(&encInfo);
    vorbis_comment_init(&encComment);
    if (vorbis_encode_init(&encInfo, channels, kSampleRate, -1, NominalBitrate(channels), -1) == 0) {
        encoderReady = true;
    } else {
        vorbis_info_clear(&encInfo);
    }

    // Decoder, primed once with the canned headers; each Decode starts a new
    // stream over this info.
    vorbis_info_init(&decInfo);
    vorbis_comment_init(&decComment);
    const LxVorbisHeaderPacket* packets[3] = {&headers->identification, &headers->comment, &headers->setup};
    bool primed = true;
    for (int i = 0; i < 3 && primed; ++i) {
        ogg_packet op;
        std::memset(&op, 0, sizeof op);
        // libvorbis only reads the packet.
        op.packet = const_cast<unsigned char*>(packets[i]->bytes);
        op.bytes = packets[i]->size;
        op.b_o_s = i == 0 ? 1 : 0;
        op.granulepos = 0;
        op.packetno = i;
        primed = vorbis_synthesis_headerin(&decInfo, &decComment, &op) == 0;
    }
    if (primed) {
        decoderReady = true;
    } else {
        LxAssertFailed("Vorbis decoder rejected the canned header packets", kSourceFile, __LINE__);
    }
}

LxCodecVorbis::~LxCodecVorbis() {
    // The encoder's stream state and block are cleared at the end of every
    // call; the decoder's live from the first Decode to here. Infos and
    // comments live as long as the codec. Clearing zeroed or already cleared
    // ones is harmless.
    if (decState.backend_state != nullptr) {
        vorbis_block_clear(&decBlock);
        vorbis_dsp_clear(&decState);
    }
    vorbis_comment_clear(&decComment);
    vorbis_info_clear(&decInfo);
    vorbis_comment_clear(&encComment);
    vorbis_info_clear(&encInfo);
}

int LxCodecVorbis::Encode(const short* pcm, int pcmBytes, unsigned char* out, int outCapacity) {
    if (!encoderReady) {
        LxAssertFailed("Vorbis encoder is not set up", kSourceFile, __LINE__);
        return 0;
    }
    if (pcmBytes < 0 || outCapacity < 0 || (pcmBytes > 0 && pcm == nullptr) || (outCapacity > 0 && out == nullptr)) {
        LxAssertFailed("Bad arguments to the Vorbis encoder", kSourceFile, __LINE__);
        return 0;
    }
    const int frames = pcmBytes / (channels * 2);
    if (frames < 1) return 0;  // no whole frame: nothing to compress

    if (vorbis_analysis_init(&encState, &encInfo) != 0) {
        LxAssertFailed("Vorbis encoder could not start a stream", kSourceFile, __LINE__);
        vorbis_dsp_clear(&encState);  // frees whatever was set up; the state is zeroed between calls
        return 0;
    }
    vorbis_block_init(&encState, &encBlock);

    // The decoder reads every page against the canned setup packet, so a page
    // may only be written by an encoder whose own header packets are those very
    // bytes: a libvorbis with other codebooks would store pages that decode to
    // noise. The page then stays uncompressed instead. (Cheap next to encoding.)
    const LxVorbisHeaders* headers = LxVorbisHeaders::ForChannels(channels);
    ogg_packet identification, comment, setup;
    if (vorbis_analysis_headerout(&encState, &encComment, &identification, &comment, &setup) != 0 ||
        !SamePacket(identification, headers->identification) || !SamePacket(setup, headers->setup)) {
        LxAssertFailed("Vorbis encoder does not match the canned header packets", kSourceFile, __LINE__);
        vorbis_block_clear(&encBlock);
        vorbis_dsp_clear(&encState);
        return 0;
    }

    // 16-bit to float: multiply by 2^-15, so -32768 is exactly -1.0. The PCM is
    // read byte-wise: callers hand over byte buffers cast to short*.
    float** buffer = vorbis_analysis_buffer(&encState, frames);
    const unsigned char* src = reinterpret_cast<const unsigned char*>(pcm);
    for (int i = 0; i < frames; ++i) {
        for (int c = 0; c < channels; ++c) {
            int16_t sample;
            std::memcpy(&sample, src, sizeof sample);
            src += sizeof sample;
            buffer[c][i] = static_cast<float>(sample) * 3.0517578125e-05f;
        }
    }
    vorbis_analysis_wrote(&encState, frames);
    vorbis_analysis_wrote(&encState, 0);  // the page is a whole stream: end it now

    // Each packet is written once the next one exists, so that the last one is
    // known for certain and gets the long prefix with the end-of-stream bit.
    std::vector<unsigned char> pending;
    pending.reserve(kMaxPacketBytes + 1);
    bool havePending = false;
    bool failed = false;
    int written = 0;
    while (!failed && vorbis_analysis_blockout(&encState, &encBlock) == 1) {
        vorbis_analysis(&encBlock, nullptr);
        vorbis_bitrate_addblock(&encBlock);
        ogg_packet op;
        while (!failed && vorbis_bitrate_flushpacket(&encState, &op) == 1) {
            if (havePending) failed = !WritePacket(pending, false, out, outCapacity, written);
            pending.assign(op.packet, op.packet + op.bytes);
            havePending = true;
        }
    }
    if (!failed && havePending) failed = !WritePacket(pending, true, out, outCapacity, written);

    vorbis_block_clear(&encBlock);
    vorbis_dsp_clear(&encState);
    return failed ? 0 : written;
}

int LxCodecVorbis::Decode(const unsigned char* in, int inBytes, short* out, int outBytes) {
    if (!decoderReady) {
        LxAssertFailed("Vorbis decoder is not set up", kSourceFile, __LINE__);
        return 0;
    }
    if (outBytes < 0 || (inBytes > 0 && in == nullptr) || (outBytes > 0 && out == nullptr)) {
        LxAssertFailed("Bad arguments to the Vorbis decoder", kSourceFile, __LINE__);
        return 0;
    }
    const int frameBytes = channels * 2;
    const int capacityFrames = outBytes / frameBytes;
    if (inBytes < 1 || capacityFrames < 1) return 0;

    // The decoder's stream state is set up by the first page and restarted for
    // every later one: a restart resets everything a new stream depends on (its
    // first packet only primes the overlap and returns no audio), so the pages
    // decode exactly as with a fresh state, without setting up the transform
    // tables and buffers again per page.
    if (decState.backend_state == nullptr) {
        if (vorbis_synthesis_init(&decState, &decInfo) != 0) {
            LxAssertFailed("Vorbis decoder could not start a stream", kSourceFile, __LINE__);
            vorbis_dsp_clear(&decState);
            return 0;
        }
        vorbis_block_init(&decState, &decBlock);
    } else if (vorbis_synthesis_restart(&decState) != 0) {
        LxAssertFailed("Vorbis decoder could not start a stream", kSourceFile, __LINE__);
        return 0;
    }

    unsigned char* dst = reinterpret_cast<unsigned char*>(out);
    int framesWritten = 0;
    int pos = 0;
    ogg_int64_t packetNo = kFirstAudioPacketNo;
    bool ended = false;
    bool damaged = false;
    // Stops early once out is full: the caller may ask for less than the page.
    while (pos < inBytes && framesWritten < capacityFrames) {
        int length = in[pos];
        bool endOfStream = false;
        if (length < kLongPrefix) {
            pos += 1;
        } else {
            if (inBytes - pos < 3) {
                LxAssertFailed("Vorbis page ends inside a length prefix", kSourceFile, __LINE__);
                damaged = true;
                break;
            }
            length = (in[pos + 1] | (in[pos + 2] << 8)) & kMaxPacketBytes;
            endOfStream = (in[pos + 2] & 0x80) != 0;
            pos += 3;
        }
        if (length > inBytes - pos) {
            LxAssertFailed("Vorbis packet runs past the end of the page", kSourceFile, __LINE__);
            damaged = true;
            break;
        }

        ogg_packet op;
        std::memset(&op, 0, sizeof op);
        op.packet = const_cast<unsigned char*>(in + pos);  // libvorbis only reads it
        op.bytes = length;
        op.b_o_s = 0;
        op.e_o_s = endOfStream ? 1 : 0;
        // The last packet carries the page's frame count as its granule
        // position: libvorbis then drops the encoder's padding from the end of
        // the decoded stream.
        op.granulepos = endOfStream ? capacityFrames : -1;
        op.packetno = packetNo++;
        pos += length;

        if (vorbis_synthesis(&decBlock, &op) != 0 || vorbis_synthesis_blockin(&decState, &decBlock) != 0) {
            LxAssertFailed("Damaged Vorbis packet", kSourceFile, __LINE__);
            damaged = true;
            break;
        }

        float** pcm = nullptr;
        int available;
        while (framesWritten < capacityFrames && (available = vorbis_synthesis_pcmout(&decState, &pcm)) > 0) {
            const int take = std::min(available, capacityFrames - framesWritten);
            ConvertFrames(pcm, channels, take, dst);
            dst += static_cast<size_t>(take) * static_cast<size_t>(frameBytes);
            framesWritten += take;
            vorbis_synthesis_read(&decState, available);
        }

        if (endOfStream) {
            ended = true;
            break;
        }
    }

    // A page that ran out before its end-of-stream packet was cut short (when
    // out filled up first, the rest was simply not needed); bytes after that
    // packet belong to no page.
    if (!damaged && !ended && framesWritten < capacityFrames) {
        LxAssertFailed("Vorbis page has no end-of-stream packet", kSourceFile, __LINE__);
    } else if (!damaged && ended && pos < inBytes) {
        LxAssertFailed("Vorbis page has data after its end-of-stream packet", kSourceFile, __LINE__);
    }
    return framesWritten * frameBytes;
}
