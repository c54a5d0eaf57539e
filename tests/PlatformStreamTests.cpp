// The platform streams: byte order of the symmetric transfers, and the buffered
// file stream checked against the in-memory stream under random operations.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "StoreHelpers.h"
#include "TempDir.h"

TEST(PlatformStream, TransfersAreLittleEndianAndSymmetric) {
    LxMemoryStream stream;
    stream.SetWriting(true);
    int64_t value = 0x0102030405060708LL;
    EXPECT_TRUE(stream.Xfer(value));
    EXPECT_EQ(stream.GetBytes(), (std::vector<uint8_t>{8, 7, 6, 5, 4, 3, 2, 1}));
    stream.Seek(0, kLxSeekBegin);
    stream.SetWriting(false);
    value = 0;
    EXPECT_TRUE(stream.Xfer(value));
    EXPECT_EQ(value, 0x0102030405060708LL);
    // A short read fails and leaves zero, never stale bytes.
    stream.Seek(-2, kLxSeekEnd);
    int32_t tail = 77;
    EXPECT_FALSE(stream.Xfer(tail));
    EXPECT_EQ(tail, 0);
    EXPECT_TRUE(stream.IsEndOfStream());
}

// Random seeks, reads, writes and truncations of all sizes, some across the
// buffer window and some far past the end, must leave the file stream and the
// memory stream with the same bytes and the same answers.
TEST(PlatformStream, BufferedFileStreamMatchesMemoryModel) {
    TempDir tmp;
    LxFile file = tmp.Child("random.bin");
    auto stream = LxStreamUtil::CreateFileStreamReadWrite(file, 3, 0x3f3f3f3f, 0x3f3f3f3f);
    ASSERT_NE(stream, nullptr);
    LxMemoryStream model;
    std::mt19937 random(1234);
    std::vector<uint8_t> data(300000), got(300000), want(300000);
    for (int step = 0; step < 3000; ++step) {
        int op = static_cast<int>(random() % 10);
        int sizeClass = static_cast<int>(random() % 4);
        int size = sizeClass == 0 ? 4 : sizeClass == 1 ? int(random() % 100) : sizeClass == 2 ? int(random() % 70000)
                                                                                        : int(random() % 300000);
        if (op < 3) {
            int64_t length = model.GetLength();
            int64_t target = static_cast<int64_t>(random() % static_cast<uint32_t>(length + 70000));
            ASSERT_EQ(stream->Seek(target, kLxSeekBegin), model.Seek(target, kLxSeekBegin));
        } else if (op < 6) {
            for (int i = 0; i < size; ++i) data[static_cast<size_t>(i)] = static_cast<uint8_t>(random());
            ASSERT_EQ(stream->Write(data.data(), size), model.Write(data.data(), size)) << "step " << step;
        } else if (op < 9) {
            int a = stream->Read(got.data(), size);
            int b = model.Read(want.data(), size);
            ASSERT_EQ(a, b) << "step " << step;
            ASSERT_EQ(0, std::memcmp(got.data(), want.data(), static_cast<size_t>(a))) << "step " << step;
        } else if (random() % 4 == 0) {
            ASSERT_EQ(stream->Truncate(), model.Truncate());
        }
        ASSERT_EQ(stream->GetPosition(), model.GetPosition());
        ASSERT_EQ(stream->GetLength(), model.GetLength());
    }
    ASSERT_TRUE(stream->Flush());
    EXPECT_EQ(FileBytes(file), model.GetBytes());
}
