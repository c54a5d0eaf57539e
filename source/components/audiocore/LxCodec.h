#pragma once
// A page codec: one whole page of interleaved 16-bit PCM per call, each call a
// complete stream of its own.

class LxCodec {
public:
    explicit LxCodec(int channelCount) : channels(channelCount) {}
    virtual ~LxCodec() = default;
    LxCodec(const LxCodec&) = delete;
    LxCodec& operator=(const LxCodec&) = delete;

    // Encodes the whole frames of pcmBytes of PCM into out and returns the bytes
    // written, never more than outCapacity. 0 means nothing usable was written
    // (no whole frame, or a failure, which is reported): keep the page as it was.
    virtual int Encode(const short* pcm, int pcmBytes, unsigned char* out, int outCapacity) = 0;
    // Decodes inBytes of stored data into out and returns the bytes of PCM
    // produced: whole frames, never more than outBytes. Pass the page's PCM
    // length (or less, to take only its start) as outBytes: that is where the
    // decoded stream is cut. Damaged data is reported and what was decoded
    // before the damage is returned.
    virtual int Decode(const unsigned char* in, int inBytes, short* out, int outBytes) = 0;

    int GetChannels() const { return channels; }

protected:
    int channels;
};
