#pragma once
// Writes small RIFF WAVE files byte by byte, so that tests control every field
// (and can damage any of them).
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

struct WavChunk {
    std::string id;
    std::vector<uint8_t> bytes;
    uint32_t sizeField;  // what the chunk header claims
};

class WavWriter {
public:
    static void Put16(std::vector<uint8_t>& out, uint32_t v) {
        out.push_back(static_cast<uint8_t>(v));
        out.push_back(static_cast<uint8_t>(v >> 8));
    }
    static void Put32(std::vector<uint8_t>& out, uint32_t v) {
        Put16(out, v & 0xFFFF);
        Put16(out, v >> 16);
    }
    static WavChunk Fmt(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits, uint32_t extra = 0) {
        WavChunk c{"fmt ", {}, 0};
        Put16(c.bytes, tag);
        Put16(c.bytes, channels);
        Put32(c.bytes, rate);
        Put32(c.bytes, rate * channels * bits / 8);
        Put16(c.bytes, static_cast<uint16_t>(channels * bits / 8));
        Put16(c.bytes, bits);
        for (uint32_t i = 0; i < extra; ++i) c.bytes.push_back(0);
        c.sizeField = static_cast<uint32_t>(c.bytes.size());
        return c;
    }
    static WavChunk Chunk(const std::string& id, std::vector<uint8_t> bytes) {
        auto size = static_cast<uint32_t>(bytes.size());
        return {id, std::move(bytes), size};
    }
    // pattern repeated (and cut) to size bytes.
    static std::vector<uint8_t> Repeat(size_t size, const std::vector<uint8_t>& pattern) {
        std::vector<uint8_t> out(size);
        for (size_t i = 0; i < size; ++i) out[i] = pattern[i % pattern.size()];
        return out;
    }
    // A plain file: the fmt chunk, then the data chunk.
    static std::vector<uint8_t> Pcm(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits,
                                    std::vector<uint8_t> data, uint32_t extra = 0) {
        return File({Fmt(tag, channels, rate, bits, extra), Chunk("data", std::move(data))});
    }
    // An independent reading of a file: the fmt fields and the data chunk's bytes.
    struct Parsed {
        int tag = 0, channels = 0, rate = 0, bits = 0;
        bool hasData = false;
        std::vector<uint8_t> data;
    };
    static Parsed Parse(const std::vector<uint8_t>& file) {
        Parsed wave;
        auto u16 = [&](size_t p) { return file[p] | file[p + 1] << 8; };
        for (size_t pos = 12; pos + 8 <= file.size() && !wave.hasData;) {
            const std::string id(file.begin() + static_cast<long>(pos), file.begin() + static_cast<long>(pos) + 4);
            const size_t size = static_cast<size_t>(u16(pos + 4)) | static_cast<size_t>(u16(pos + 6)) << 16;
            if (id == "fmt ") {
                wave.tag = u16(pos + 8);
                wave.channels = u16(pos + 10);
                wave.rate = u16(pos + 12) | u16(pos + 14) << 16;
                wave.bits = u16(pos + 22);
            } else if (id == "data") {
                wave.hasData = true;
                wave.data.assign(file.begin() + static_cast<long>(pos + 8),
                                 file.begin() + static_cast<long>(std::min(file.size(), pos + 8 + size)));
            }
            pos += 8 + size + (size & 1);
        }
        return wave;
    }
    // RIFF header, then the chunks in order (each padded to even length).
    static std::vector<uint8_t> File(const std::vector<WavChunk>& chunks, const std::vector<uint8_t>& trailer = {}) {
        std::vector<uint8_t> body;
        for (const WavChunk& c : chunks) {
            body.insert(body.end(), c.id.begin(), c.id.end());
            Put32(body, c.sizeField);
            body.insert(body.end(), c.bytes.begin(), c.bytes.end());
            if (c.bytes.size() % 2) body.push_back(0);
        }
        std::vector<uint8_t> out = {'R', 'I', 'F', 'F'};
        Put32(out, static_cast<uint32_t>(body.size() + 4));
        out.insert(out.end(), {'W', 'A', 'V', 'E'});
        out.insert(out.end(), body.begin(), body.end());
        out.insert(out.end(), trailer.begin(), trailer.end());
        return out;
    }
};
