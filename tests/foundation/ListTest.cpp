// Lists of items and of lines, and the files that they are read from.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "FileBytes.h"
#include "TSList.h"
#include "TSStringList.h"
#include "TSStringVector.h"
#include "TempDir.h"
#include "UniqueFd.h"

namespace {

int items[] = {0, 1, 2, 3, 4};

// The numbers of the items in the order of the list. GetItem must agree, and be null elsewhere.
std::string Numbers(TSList& list)
{
    std::string numbers;
    int index = 0;
    for (list.First(); list.HasNext(); ++index) {
        void* item = list.GetNext();
        numbers += std::to_string(*static_cast<int*>(item));
        EXPECT_EQ(list.GetItem(index), item);
    }
    EXPECT_EQ(list.count, index);
    for (void* const none : {list.GetNext(), list.GetItem(index), list.GetItem(-1)})
        EXPECT_EQ(none, nullptr);
    return numbers;
}

// Loaded as 7 entries, the fourth of them "yz\n".
const std::string kLong(1023, 'x');
const std::string kContent = "a\r\n\n" + kLong + "yz\n" + kLong + "\nend";

std::size_t readLimit = SIZE_MAX;  // the most bytes that one read returns

}  // namespace

// Replaces libc's in this program.
extern "C" ssize_t read(int descriptor, void* target, std::size_t size)
{
    return syscall(SYS_read, descriptor, target, std::min(size, readLimit));
}

TEST(List, InsertsAndDeletesAtEveryPosition)
{
    const struct {
        int size, index;
        const char *inserted, *deleted;
    } rows[] = {{0, 0, "4", ""},       {1, 0, "40", ""},      {3, 1, "0412", "02"},
                {3, 2, "0142", "01"},  {3, 3, "0124", "012"},  // at the count
                {3, -1, "4012", "012"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.index << " of " << row.size);
        TSList inserted;
        TSList deleted;
        for (int item = 0; item < row.size; ++item) {
            inserted.Add(&items[item]);
            deleted.Add(&items[item]);
        }
        inserted.Insert(row.index, &items[4]);
        deleted.Delete(row.index);

        EXPECT_EQ(Numbers(inserted), row.inserted);
        EXPECT_EQ(Numbers(deleted), row.deleted);
        deleted.Add(&items[3]);
        EXPECT_EQ(Numbers(deleted), std::string(row.deleted) + "3") << "the tail is still the tail";
    }
}

TEST(List, MovesCursorOffRemovedLink)
{
    TSList list;
    list.Insert(0, &items[0]);
    EXPECT_EQ(list.GetNext(), &items[0]) << "added under the cursor";
    list.Add(&items[1]).First();
    list.Delete(0);
    EXPECT_EQ(list.GetNext(), &items[1]);
    list.Clear();
    EXPECT_FALSE(list.HasNext());
    EXPECT_EQ(Numbers(list), "");
}

TEST(StringList, ReplacesEntriesByFileAndSavesSameBytes)
{
    const TempDir dir;
    TSStringList list;
    TSString text("old");
    list.Add(text).Add("b\n");
    text[0] = 'x';
    EXPECT_EQ(mkfifo(dir.Path("pipe").c_str(), 0600), 0);
    for (const std::string& unreadable : {dir.Path("missing"), dir.Path("pipe"), dir.Path()})
        EXPECT_FALSE(list.LoadFromFile(unreadable.c_str())) << unreadable;
    EXPECT_TRUE(list.GetNextString() == "old");
    testing::internal::CaptureStdout();
    list.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "old\nb\n\n");

    for (const std::string& content : {kContent, std::string()}) {
        EXPECT_TRUE(list.LoadFromFile(dir.Write("in", content).c_str()));
        EXPECT_EQ(list.count, content.empty() ? 0 : 7);
        EXPECT_TRUE(list.SaveToFile(dir.Path("out").c_str()) && dir.Exists("out"));
        EXPECT_EQ(dir.Read("out"), content);
        EXPECT_TRUE(list.GetNextString() == "") << "past the last entry";
    }
    EXPECT_FALSE(list.SaveToFile(dir.Path("no/out").c_str()));
    EXPECT_FALSE(list.SaveToFile(dir.Path("pipe").c_str())) << "and doesn't wait for a reader";
    EXPECT_TRUE(list.LoadFromFile("/dev/null")) << "a character device";
}

TEST(StringVector, AppendsLoadedLines)
{
    const TempDir dir;
    TSStringVector vector;
    vector.Add("old");
    EXPECT_TRUE(vector.LoadFromFile(dir.Write("in", kContent).c_str()));
    EXPECT_EQ(vector.Count(), 8);
    EXPECT_TRUE(vector[4] == "yz\n");
    testing::internal::CaptureStdout();
    vector.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "old" + kContent);
    EXPECT_TRUE(vector.SaveToFile(dir.Path("out").c_str()));
    EXPECT_EQ(dir.Read("out"), "old" + kContent);
    vector.Clear();
    EXPECT_EQ(vector.Count(), 0);
}

TEST(FileBytes, AreReadInFullOrNotAtAll)
{
    const TempDir dir;
    FileBytes bytes;
    readLimit = 3;
    for (const char* content : {"", "x", "abcdefg"}) {
        const UniqueFd file(open(dir.Write("file", content).c_str(), O_RDONLY));
        lseek(file.Get(), 2, SEEK_SET);
        EXPECT_TRUE(ReadWholeFile(file.Get(), bytes));
        EXPECT_EQ(std::string(bytes.data.get(), bytes.data.get() + bytes.size), content);
    }
    const UniqueFd file(open(dir.Path("file").c_str(), O_RDWR));
    EXPECT_FALSE(ReadWholeFile(-1, bytes)) << "no size";
    readLimit = 0;
    EXPECT_FALSE(ReadWholeFile(file.Get(), bytes)) << "fewer bytes than the size";
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(truncate64(dir.Path("file").c_str(), INT32_MAX), 0);
    EXPECT_FALSE(ReadWholeFile(file.Get(), bytes));
    EXPECT_EQ(lseek(file.Get(), 0, SEEK_CUR), 0) << "the largest size is tried";
    readLimit = SIZE_MAX;
    EXPECT_EQ(truncate64(dir.Path("file").c_str(), 0x80000000), 0);
    EXPECT_FALSE(ReadWholeFile(file.Get(), bytes)) << "2 GiB";
    EXPECT_EQ(fcntl(UniqueFd(OpenToRead("/dev/null")).Get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(UniqueFd, OwnsDescriptorZero)
{
    EXPECT_TRUE(static_cast<bool>(UniqueFd(0)));
    EXPECT_EQ(open("/dev/null", O_RDONLY), 0) << "closed with its owner";
    UniqueFd input(0);
    EXPECT_EQ(input.Release(), 0);
    EXPECT_FALSE(static_cast<bool>(input));
}
