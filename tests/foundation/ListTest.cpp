#include <string>

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

std::string Joined(TSStringList& list)
{
    std::string all;
    list.First();
    while (list.HasNext())
        all += std::string("[") + list.GetNextString().c_str() + "]";
    return all;
}

// A file's content and the entries that it is read as.
const std::string kLong(1023, 'x');
const std::string kContent = "a\r\n\n" + kLong + "yz\n" + kLong + "\nend";
const std::string kEntries = "[a\r\n][\n][" + kLong + "][yz\n][" + kLong + "][\n][end]";

}  // namespace

TEST(List, InsertsAndDeletesAtEveryPlace)
{
    const struct {
        const char* name;
        int size, index;
        const char *inserted, *deleted;
    } rows[] = {{"empty list", 0, 0, "4", ""},
                {"only item", 1, 0, "40", ""},
                {"first", 3, 0, "4012", "12"},
                {"middle", 3, 1, "0412", "02"},
                {"last", 3, 2, "0142", "01"},
                {"at the count", 3, 3, "0124", "012"},
                {"past the count", 3, 9, "0124", "012"},
                {"negative", 3, -1, "4012", "012"}};
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

TEST(List, MovesItsCursorOffARemovedLink)
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

TEST(StringList, ReplacesItsCopiesByAFileAndSavesTheSameBytes)
{
    const TempDir dir;
    TSStringList list;
    TSString text("old");
    list.Add(text).Add("b\n");
    text[0] = 'x';
    EXPECT_FALSE(list.LoadFromFile(dir.Path("missing").c_str()));
    EXPECT_TRUE(list.GetNextString() == "old");
    testing::internal::CaptureStdout();
    list.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "old\nb\n\n");

    for (const std::string& content : {kContent, std::string()}) {
        EXPECT_TRUE(list.LoadFromFile(dir.Write("in", content).c_str()));
        EXPECT_EQ(Joined(list), content.empty() ? "" : kEntries);
        EXPECT_TRUE(list.GetNextString() == "") << "past the last entry";
        EXPECT_TRUE(list.SaveToFile(dir.Path("out").c_str()));
        EXPECT_TRUE(dir.Exists("out"));
        EXPECT_EQ(dir.Read("out"), content);
    }
    EXPECT_FALSE(list.SaveToFile(dir.Path("no/out").c_str()));
}

TEST(StringVector, AppendsWhatItLoads)
{
    const TempDir dir;
    TSStringVector vector;
    vector.Add("old");
    EXPECT_FALSE(vector.LoadFromFile(dir.Path("missing").c_str()));
    EXPECT_TRUE(vector.LoadFromFile(dir.Write("in", kContent).c_str()));
    EXPECT_EQ(vector.Count(), 8);
    EXPECT_TRUE(vector[4] == "yz\n");

    EXPECT_TRUE(vector.SaveToFile(dir.Path("out").c_str()));
    EXPECT_EQ(dir.Read("out"), "old" + kContent);
    EXPECT_FALSE(vector.SaveToFile(dir.Path("no/out").c_str()));
    testing::internal::CaptureStdout();
    vector.Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "old" + kContent);
    vector.Clear();
    EXPECT_EQ(vector.Count(), 0);
}
