#pragma once
// Stores and files for tests: whole files as bytes, little-endian fields,
// pages and clips stored from PCM, and member files kept across a store's end.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>
#include "LxAudioClip.h"
#include "LxAudioController.h"
#include "LxAudioFile.h"
#include "LxPublic/LxStreamUtil.h"

inline const char* const kStoreMembers[5] = {"raw.lxa", "enc.lxa", "pcm.lxa", "clip.lxa", "map.lxa"};

inline std::vector<uint8_t> FileBytes(const LxFile& file) {
    auto in = LxStreamUtil::CreateFileStreamRead(file);
    std::vector<uint8_t> bytes(in ? static_cast<size_t>(in->GetLength()) : 0);
    if (!bytes.empty()) {
        EXPECT_EQ(in->Read(bytes.data(), static_cast<int>(bytes.size())), static_cast<int>(bytes.size()));
    }
    return bytes;
}

inline void WriteFileBytes(const LxFile& file, const std::vector<uint8_t>& bytes) {
    auto out = LxStreamUtil::CreateFileStreamReadWrite(file, kLxStreamWrite, 0x3f3f3f3f, 0x3f3f3f3f);
    ASSERT_NE(out, nullptr);
    ASSERT_EQ(out->Write(bytes.data(), static_cast<int>(bytes.size())), static_cast<int>(bytes.size()));
}

// The little-endian 32-bit field at byte at.
inline int32_t ReadLe32(const std::vector<uint8_t>& bytes, size_t at) {
    return static_cast<int32_t>(uint32_t(bytes[at]) | uint32_t(bytes[at + 1]) << 8 | uint32_t(bytes[at + 2]) << 16 |
                                uint32_t(bytes[at + 3]) << 24);
}

// Each value as four little-endian bytes.
inline std::vector<uint8_t> Le32(std::initializer_list<int64_t> values) {
    std::vector<uint8_t> bytes;
    for (int64_t v : values)
        for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<uint8_t>(static_cast<uint32_t>(v) >> (8 * i)));
    return bytes;
}

// 16-bit samples as their little-endian bytes.
inline std::vector<uint8_t> PcmBytes(const std::vector<int16_t>& pcm) {
    std::vector<uint8_t> bytes;
    for (int16_t s : pcm) bytes.insert(bytes.end(), {static_cast<uint8_t>(s), static_cast<uint8_t>(static_cast<uint16_t>(s) >> 8)});
    return bytes;
}

// One page of 44.1 kHz 16-bit PCM; its page ID (-1 when refused).
inline int AppendPage(LxAudioFile& store, const std::vector<int16_t>& pcm, int channels) {
    int page = -1;
    store.AppendPage(pcm.data(), static_cast<int>(pcm.size() * 2), channels, 44100, 16, page);
    return page;
}

// PCM stored as a new clip; its ID.
inline int StoreClip(LxAudioClip& clip, const std::vector<int16_t>& pcm, int channels, float volume = 1.0f) {
    clip.AppendPCMData(reinterpret_cast<const unsigned char*>(pcm.data()), static_cast<int>(pcm.size() * 2), channels,
                       44100, 16, volume);
    return clip.FinishAppendingPCMData(channels, 44100, 16, volume);
}
inline int StoreClip(LxAudioFile& store, const std::vector<int16_t>& pcm, int channels, float volume = 1.0f) {
    LxAudioClip clip(store, -1, LX_AUDIO_CLIP_SOURCE_IMPORT);
    return StoreClip(clip, pcm, channels, volume);
}
inline int StoreClip(LxAudioController& controller, const std::vector<int16_t>& pcm, int channels) {
    return StoreClip(*controller.GetNewClip(LX_AUDIO_CLIP_SOURCE_IMPORT), pcm, channels);
}

// A store deletes its member files when destroyed; a test that reopens one
// keeps their bytes and writes them back.
using StoreFiles = std::map<std::string, std::vector<uint8_t>>;
inline StoreFiles KeepStoreFiles(const LxFile& dir) {
    StoreFiles files;
    for (const char* name : kStoreMembers) files[name] = FileBytes(dir.GetChild(name));
    return files;
}
inline void RestoreStoreFiles(const LxFile& dir, const StoreFiles& files) {
    for (const auto& [name, bytes] : files) WriteFileBytes(dir.GetChild(name.c_str()), bytes);
}

// A member holds at most this many bytes: positions in page records are 32-bit.
inline constexpr int64_t kMemberLimit = 2147483647;

// The reserved silence: five silent mono pages of 176,400 bytes, as a new store's "pcm.lxa" holds.
inline std::vector<uint8_t> ReservedSilenceRecords() {
    std::vector<uint8_t> records;
    for (int i = 0; i < 5; ++i) {
        const std::vector<uint8_t> record = Le32({3, 176400, 0, 0, 0, 0, 1, 44100, 16});
        records.insert(records.end(), record.begin(), record.end());
    }
    return records;
}

// A file of bytes zeros as a hole: a sparse file, which costs no disk.
inline void WriteHole(const LxFile& file, int64_t bytes) {
    WriteFileBytes(file, {});
    std::filesystem::resize_file(std::filesystem::path(file.GetPath().str()), static_cast<uintmax_t>(bytes));
}

// The member files of a store with nothing stored but rawBytes of "raw.lxa"
// and encBytes of "enc.lxa" (holes: unreferenced data, as a store keeps what
// compression and deletion left behind), for LxAudioFile(dir) to open: a
// store whose members are close to full, built in no time and no disk.
inline void WriteFillerStore(const LxFile& dir, int64_t rawBytes, int64_t encBytes) {
    WriteHole(dir.GetChild("raw.lxa"), rawBytes);
    WriteHole(dir.GetChild("enc.lxa"), encBytes);
    WriteFileBytes(dir.GetChild("pcm.lxa"), ReservedSilenceRecords());
    WriteFileBytes(dir.GetChild("clip.lxa"), {});
    WriteFileBytes(dir.GetChild("map.lxa"), Le32({0}));
}

// The same store saved in one stream to file (a plain save: five length-prefixed
// members), its "raw.lxa" a hole; a controller loads it in place
// (ReadVerifiedInPlace) without copying the hole.
inline void WriteFillerProject(const LxFile& file, int64_t rawBytes) {
    std::vector<uint8_t> tail = Le32({0, 180});
    const std::vector<uint8_t> records = ReservedSilenceRecords();
    tail.insert(tail.end(), records.begin(), records.end());
    for (uint8_t b : Le32({0, 4, 0})) tail.push_back(b);
    WriteFileBytes(file, Le32({rawBytes}));
    const std::filesystem::path path(file.GetPath().str());
    std::filesystem::resize_file(path, static_cast<uintmax_t>(4 + rawBytes));
    std::ofstream out(path, std::ios::binary | std::ios::app);
    out.write(reinterpret_cast<const char*>(tail.data()), static_cast<std::streamsize>(tail.size()));
}
