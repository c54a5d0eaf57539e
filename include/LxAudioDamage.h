#pragma once
// One piece of damage that a verified load found in a saved store (see
// LxAudioDamageReport): which member, which chunk, and what is wrong with it.
#include <string>

struct LxAudioDamage {
    // The member ("raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"), or
    // empty when the finding is about the store as a whole or its integrity
    // record.
    std::string member;
    // The 1 MiB chunk of the member the finding is about: chunk k holds bytes
    // (k-1) MiB to k MiB, and is the file NAMEk in the directory form; 0 is the
    // directory form's count file NAME0; -1 when the finding is about no chunk.
    int chunk = -1;
    // The file concerned in the directory form ("raw.lxa2", "integrity.lxi");
    // empty in the one-stream form.
    std::string file;
    // What was found: "checksum differs", "missing", "holds 12 bytes, 1048576 saved".
    std::string what;
};
