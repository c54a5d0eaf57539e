#pragma once
// The canned Vorbis header packets (identification, comment, setup) that match
// the page codec's fixed encoder settings, one set per channel count.

struct LxVorbisHeaderPacket {
    const unsigned char* bytes;
    int size;
};

struct LxVorbisHeaders {
    LxVorbisHeaderPacket identification;
    LxVorbisHeaderPacket comment;
    LxVorbisHeaderPacket setup;

    // The set for 1 or 2 channels; nullptr for any other count.
    static const LxVorbisHeaders* ForChannels(int channels);

    // Vendor string of the comment packets.
    static constexpr const char* kVendor = "Xiph.Org libVorbis I 20070622";
};
