#pragma once
// A stream over a growable block of memory.
#include <cstdint>
#include <vector>
#include "ILxReadWriteStream.h"

class LXPUBLIC_API LxMemoryStream : public ILxReadWriteStream {
public:
    LxMemoryStream() = default;
    explicit LxMemoryStream(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    bool IsOpen() const override { return open_; }
    int Read(void* buffer, int bytes) override;
    int Write(const void* buffer, int bytes) override;
    bool Seek(int64_t offset, LxSeekOrigin origin) override;
    int64_t GetPosition() const override { return position_; }
    int64_t GetLength() const override { return static_cast<int64_t>(bytes_.size()); }
    bool Truncate() override;
    bool Flush() override { return open_; }
    void Close() override { open_ = false; }

    const std::vector<uint8_t>& GetBytes() const { return bytes_; }

private:
    std::vector<uint8_t> bytes_;
    int64_t position_ = 0;
    bool open_ = true;
};
