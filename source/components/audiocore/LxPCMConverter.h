#pragma once
// The one place where PCM read from a page changes form on its way out: mono
// to stereo (each sample twice), stereo to mono (the mean of the pair,
// truncated toward zero), the volume effect of the range, and mixing into what
// the output already holds (16-bit wrap-around, as the mixer has always
// added). Work is done on just the bytes handed out, straight from the page as
// stored; only a window that starts or ends inside a sample goes through a
// scratch buffer, which the converter keeps and reuses.
#include <vector>

class LxAudioVolumeEffect;

class LxPCMConverter {
public:
    // Whether a page of storedChannels can be handed out as wantedChannels.
    static bool CanConvert(int storedChannels, int wantedChannels) {
        return storedChannels == wantedChannels || (storedChannels == 1 && wantedChannels == 2) ||
               (storedChannels == 2 && wantedChannels == 1);
    }
    // Where a byte offset of the stored page falls in the converted page.
    static int ConvertedOffset(int storedOffset, int storedChannels, int wantedChannels);
    // Bytes that storedBytes of a page make once converted: whole samples (mono
    // to stereo) or whole frames (stereo to mono) only.
    static int ConvertedBytes(int storedBytes, int storedChannels, int wantedChannels);
    // Converts bytes of PCM in place (the buffer has room for the result) and
    // returns the converted length. Both forms must pass CanConvert.
    static int ConvertInPlace(unsigned char* pcm, int bytes, int storedChannels, int wantedChannels);

    // Writes bytes [from, from + count) of the converted page into out, with
    // the effect applied (none when effect is null or leaves samples alone) and
    // added to out's samples when mix is set.
    void HandOut(const unsigned char* stored, int storedChannels, int wantedChannels, int from, int count,
                 const LxAudioVolumeEffect* effect, bool mix, unsigned char* out);

private:
    std::vector<unsigned char> scratch;
};
