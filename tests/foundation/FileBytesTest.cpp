#include <algorithm>
#include <cstdint>
#include <string>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "FileBytes.h"
#include "TempDir.h"
#include "UniqueFd.h"

static std::size_t readLimit = SIZE_MAX;  // the most bytes that one read returns

// Replaces libc's in this program.
extern "C" ssize_t read(int descriptor, void* target, std::size_t size)
{
    return syscall(SYS_read, descriptor, target, std::min(size, readLimit));
}

TEST(FileBytes, ReadsAllBytesDespiteShortReads)
{
    const TempDir dir;
    readLimit = 3;
    for (const char* content : {"", "x", "abcdefg"}) {
        const UniqueFd file(open(dir.Write("file", content).c_str(), O_RDONLY));
        lseek(file.Get(), 2, SEEK_SET);
        FileBytes bytes;
        EXPECT_TRUE(ReadWholeFile(file.Get(), bytes));
        EXPECT_EQ(std::string(bytes.data.get(), bytes.data.get() + bytes.size), content);
    }
    readLimit = SIZE_MAX;
}

TEST(FileBytes, FailsUnlessReadInFull)
{
    const TempDir dir;
    const UniqueFd file(open(dir.Write("file", "text").c_str(), O_RDWR));
    FileBytes bytes;
    EXPECT_FALSE(ReadWholeFile(-1, bytes)) << "no size";
    readLimit = 0;
    EXPECT_FALSE(ReadWholeFile(file.Get(), bytes)) << "fewer bytes than the size";
    EXPECT_EQ(truncate64(dir.Path("file").c_str(), INT32_MAX), 0);
    EXPECT_FALSE(ReadWholeFile(file.Get(), bytes));
    EXPECT_EQ(lseek(file.Get(), 0, SEEK_CUR), 0) << "the largest size is tried";
    readLimit = SIZE_MAX;
    EXPECT_EQ(truncate64(dir.Path("file").c_str(), 0x80000000), 0);
    EXPECT_FALSE(ReadWholeFile(file.Get(), bytes)) << "2 GiB";
    EXPECT_EQ(bytes.size, 0U);
}

TEST(FileBytes, OpensDeviceForBlockingReads)
{
    const UniqueFd device(OpenToRead("/dev/null"));
    EXPECT_EQ(fcntl(device.Get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(UniqueFd, OwnsDescriptorZero)
{
    EXPECT_TRUE(static_cast<bool>(UniqueFd(0)));
    EXPECT_EQ(open("/dev/null", O_RDONLY), 0) << "closed with its owner";
    UniqueFd input(0);
    EXPECT_EQ(input.Release(), 0);
    EXPECT_FALSE(static_cast<bool>(input));
}
