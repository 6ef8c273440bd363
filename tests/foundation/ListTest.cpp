#include <string>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "TSList.h"
#include "TSStringList.h"
#include "TSStringVector.h"
#include "TempDir.h"

namespace {

int items[] = {0, 1, 2, 3, 4};

void Fill(TSList& list, int size)
{
    for (int item = 0; item < size; ++item)
        list.Add(&items[item]);
}

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
    EXPECT_EQ(list.GetNext(), nullptr);
    EXPECT_EQ(list.GetItem(index), nullptr);
    EXPECT_EQ(list.GetItem(-1), nullptr);
    return numbers;
}

// Loaded as 7 entries, the fourth of them "yz\n".
const std::string kLong(1023, 'x');
const std::string kContent = "a\r\n\n" + kLong + "yz\n" + kLong + "\nend";

}  // namespace

TEST(List, InsertsAndDeletesAtEveryPosition)
{
    const struct {
        const char* name;
        int size;
        int index;
        const char* inserted;
        const char* deleted;
    } rows[] = {
        {"empty list", 0, 0, "4", ""},         {"only item", 1, 0, "40", ""},
        {"middle", 3, 1, "0412", "02"},        {"last", 3, 2, "0142", "01"},
        {"at the count", 3, 3, "0124", "012"}, {"negative", 3, -1, "4012", "012"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TSList inserted;
        TSList deleted;
        Fill(inserted, row.size);
        Fill(deleted, row.size);

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
        EXPECT_TRUE(list.SaveToFile(dir.Path("out").c_str()));
        EXPECT_TRUE(dir.Exists("out"));
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
    EXPECT_FALSE(vector.LoadFromFile(dir.Path("missing").c_str()));
    EXPECT_TRUE(vector.LoadFromFile(dir.Write("in", kContent).c_str()));
    EXPECT_EQ(vector.Count(), 8);
    EXPECT_TRUE(vector[4] == "yz\n");
    testing::internal::CaptureStdout();
    vector.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "old" + kContent);

    EXPECT_TRUE(vector.SaveToFile(dir.Path("out").c_str()));
    EXPECT_EQ(dir.Read("out"), "old" + kContent);
    EXPECT_FALSE(vector.SaveToFile(dir.Path("no/out").c_str()));
    vector.Clear();
    EXPECT_EQ(vector.Count(), 0);
}
