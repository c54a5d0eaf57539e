// The platform streams: byte order of the symmetric transfers, and the buffered
// file stream checked against the in-memory stream under random operations.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <tuple>
#include <vector>
#include "LxPublic/LxMemoryStream.h"
#include "LxPublic/LxStreamUtil.h"
#include "StoreHelpers.h"
#include "TempDir.h"

TEST(PlatformStream, TransfersAreLittleEndianAndSymmetric) {
    LxMemoryStream stream;
    stream.SetWriting(true);
    int32_t a = -2;
    uint32_t b = 0x11223344u;
    int64_t c = 0x0102030405060708LL;
    double d = 1.5;
    EXPECT_TRUE(stream.Xfer(a) && stream.Xfer(b) && stream.Xfer(c) && stream.Xfer(d));
    const std::vector<uint8_t> expected = {0xFE, 0xFF, 0xFF, 0xFF, 0x44, 0x33, 0x22, 0x11, 0x08, 0x07, 0x06, 0x05,
                                           0x04, 0x03, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF8, 0x3F};
    EXPECT_EQ(stream.GetBytes(), expected);

    // The same calls read them back.
    stream.Seek(0, kLxSeekBegin);
    stream.SetWriting(false);
    a = 0, b = 0, c = 0, d = 0;
    EXPECT_TRUE(stream.Xfer(a) && stream.Xfer(b) && stream.Xfer(c) && stream.Xfer(d));
    EXPECT_EQ(std::make_tuple(a, b, c, d), std::make_tuple(-2, 0x11223344u, 0x0102030405060708LL, 1.5));

    // A short read fails and leaves zero, never stale bytes.
    stream.Seek(-2, kLxSeekEnd);
    int32_t tail = 77;
    EXPECT_FALSE(stream.Xfer(tail));
    EXPECT_EQ(tail, 0);
    EXPECT_TRUE(stream.IsEndOfStream());
}

TEST(PlatformStream, FileStreamOpensCreatesAndReopens) {
    TempDir tmp;
    LxFile file = tmp.Child("member.lxa");
    EXPECT_EQ(LxStreamUtil::CreateFileStreamRead(file), nullptr);  // missing file
    {
        auto stream = LxStreamUtil::CreateFileStreamReadWrite(file, 3, 0x3f3f3f3f, 0x3f3f3f3f);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(stream->GetLength(), 0);
        stream->SetWriting(true);
        int32_t v = 180;
        stream->Xfer(v);
        // Not yet written out: the length counts buffered bytes.
        EXPECT_EQ(stream->GetLength(), 4);
    }
    EXPECT_EQ(file.GetLength(), 4);
    {
        // Mode 3 reopens an existing file as it is.
        auto stream = LxStreamUtil::CreateFileStreamReadWrite(file, 3, 0x3f3f3f3f, 0x3f3f3f3f);
        ASSERT_NE(stream, nullptr);
        stream->SetWriting(false);
        int32_t v = 0;
        EXPECT_TRUE(stream->Xfer(v));
        EXPECT_EQ(v, 180);
        // Truncating at 2 cuts the file on disk at once.
        stream->Seek(2, kLxSeekBegin);
        EXPECT_TRUE(stream->Truncate());
        EXPECT_EQ(stream->GetLength(), 2);
    }
    EXPECT_EQ(FileBytes(file), (std::vector<uint8_t>{0xB4, 0x00}));
    EXPECT_EQ(LxStreamUtil::CreateFileStreamReadWrite(tmp.Dir(), 3, 0, 0), nullptr);  // a directory
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
