#pragma once
// A page codec: one whole page of interleaved 16-bit PCM per call, each call a
// complete stream of its own.

class LxCodec {
public:
    explicit LxCodec(int channelCount) : channels(channelCount) {}
    virtual ~LxCodec() = default;
    LxCodec(const LxCodec&) = delete;
    LxCodec& operator=(const LxCodec&) = delete;

    // Encodes pcmBytes of PCM into out; returns the bytes written.
    virtual int Encode(const short* pcm, int pcmBytes, unsigned char* out, int outCapacity) = 0;
    // Decodes inBytes of stored data into at most outBytes of PCM; returns the bytes produced.
    virtual int Decode(const unsigned char* in, int inBytes, short* out, int outBytes) = 0;

    int GetChannels() const { return channels; }

protected:
    int channels;
};
