#pragma once
// A stream over a growable block of memory.
#include <cstdint>
#include <vector>
#include "ILxReadWriteStream.h"

class LXPUBLIC_API LxMemoryStream : public ILxReadWriteStream {
public:
    LxMemoryStream() = default;
    explicit LxMemoryStream(std::vector<uint8_t> contents) : bytes(std::move(contents)) {}

    bool IsOpen() const override { return open; }
    int Read(void* buffer, int count) override;
    int Write(const void* buffer, int count) override;
    bool Seek(int64_t offset, LxSeekOrigin origin) override;
    int64_t GetPosition() const override { return position; }
    int64_t GetLength() const override { return static_cast<int64_t>(bytes.size()); }
    bool Truncate() override;
    bool Flush() override { return open; }
    void Close() override { open = false; }

    const std::vector<uint8_t>& GetBytes() const { return bytes; }

private:
    std::vector<uint8_t> bytes;
    int64_t position = 0;
    bool open = true;
};
