// The update's machine in both of its modes, seen from the CSP and the controller.

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Peers.h"
#include "TUpdater.h"

namespace {

enum Mode { Alone, InServer };

// The words of an image's rows: "9004:" is a base record with that upper address, "41FF4" a record
// of 12 bytes at the low 16 bits, "41FF4!" the same without its checksum, "end" the end-of-file
// record, "-" an empty row, "other" a record without an address. Blocks of this one end after a
// record, at a 64 KiB boundary and at the end.
constexpr char kImage[] = "9004: 40000 41FF4 42000 43FF4 44000 4FFF4 9005: 50000 51FF4 end";

// An update of the image that the words stand for.
class Update : public Peers {
public:
    explicit Update(Mode chosen, const std::string& image = kImage) : mode(chosen)
    {
        std::istringstream words(image);
        std::string file;
        for (std::string word; words >> word;) {
            const std::string row = Row(word);
            names[row] = word;
            file += row + "\r\n";
        }
        path = dir.Write("image.hex", file);
        if (mode == InServer) {
            OpenMidi();
            Restart();
        } else {
            EXPECT_EQ(updater.Initialize(false, 0, path.c_str(), TMidiCom::kPiano), 0);
            EXPECT_TRUE(patcher.Accept());
        }
    }

    // To the begin of an update, which in the server comes after a search.
    void Restart()
    {
        if (mode == InServer) {
            EXPECT_EQ(updater.LoadIntelHex(path.c_str(), nullptr), 0);
        }
        EXPECT_TRUE(updater.SetUpdateStatus(Connect));
    }

    int Step()
    {
        return mode == InServer ? updater.UpdateStatusDiag(&midi, &zaurus) : updater.UpdateStatus();
    }
    // So many times ten seconds without an answer.
    void Wait(int timeouts)
    {
        for (int i = 0; i < timeouts; ++i)
            updater.IncUpdateCounter();
    }
    // So many unwanted answers.
    void Refuse(int answers)
    {
        for (int i = 0; i < answers; ++i)
            EXPECT_EQ(After("?"), Lines{});
    }
    // From the request to the first block, which it returns.
    Lines Begin()
    {
        updater.SetUpdateStatus(Request);
        After("Start WRITE ?");
        EXPECT_EQ(Step(), 1);
        EXPECT_EQ(updater.GetUpdateStatus(), Transfer);
        return Sent();
    }

    TUpdater updater;

private:
    static std::string Row(const std::string& word)
    {
        if (word == "end" || word == "-" || word == "other")
            return word == "end" ? ":00000001FF" : word == "-" ? "" : Record(5, 0, "abcd");
        constexpr int kHex = 16;
        const auto number = std::stoul(word, nullptr, kHex);
        if (word.back() == ':')
            return Record(4, 0, {static_cast<char>(number >> 8U), static_cast<char>(number)});
        const auto record =
            Record(0, number % 0x10000, std::string(12, static_cast<char>(number >> 16U)));
        return record.substr(0, record.size() - (word.back() == '!' ? 2 : 0));
    }
    void Hear(const char* message, int length) override
    {
        if (mode == InServer)
            updater.GetCSPMessageDiag(&midi, &zaurus, message, length);
        else
            updater.GetCSPMessage(message, length);
    }

    Mode mode;
    std::string path;
};

const std::vector<Mode> kBoth = {Alone, InServer};

const Lines kFirst = {"9004:", "40000", "41FF4"};  // the blocks of kImage
const Lines kSecond = {"42000", "43FF4"};
const Lines kRetried = {"41FF4"};
const Lines kThird = {"44000", "4FFF4"};
const Lines kFourth = {"9005:", "50000", "51FF4"};

enum Count { Counts, Keeps, Forgets };
enum Silence { Ends, Lasts };

}  // namespace

TEST(Updater, ActsOnTheAnswersOfEachStatus)
{
    const struct {
        std::vector<Mode> modes;
        const char* answer;
        int status;
        int reached;
        Count unwanted;   // what the answer does to the count of unwanted answers
        Silence silence;  // and to the silence before it
        Lines sent = {};
        const char* printed = "";
    } rows[] = {
        {kBoth, "Status:Flash Idle", Connect, Request, Forgets, Ends},
        {kBoth, "Status:Flash Idle now", Connect, Request, Forgets, Ends},
        {kBoth, "Status:Flash Idl", Connect, Connect, Counts, Lasts},
        {kBoth, "Start WRITE ?", Connect, Connect, Counts, Lasts},
        {kBoth, "Start WRITE ?", Request, StartData, Forgets, Ends},
        {kBoth, "Start WRITE", Request, Request, Counts, Lasts},
        {{Alone}, "OK 90042000", Transfer, Transfer, Forgets, Ends, kSecond, "OK 90042000\r\n"},
        {{InServer}, "OK 90042000", Transfer, Transfer, Forgets, Ends, kSecond},
        {{InServer}, "OK:90042000", Transfer, Transfer, Forgets, Ends, kSecond},
        {{Alone}, "OK 90044000", Transfer, Transfer, Forgets, Ends, kSecond, "OK 90044000\r\n"},
        {{InServer}, "OK 90044000", Transfer, Transfer, Forgets, Ends},
        {{Alone}, "OK 9004200%s", Transfer, Transfer, Forgets, Ends, kSecond, "OK 9004200%s\r\n"},
        {{InServer}, "OK 9004200%s", Transfer, Transfer, Forgets, Ends},
        {{InServer}, "OK 900420", Transfer, Transfer, Forgets, Ends},
        {kBoth, "OK 90042", Transfer, Transfer, Counts, Lasts},
        {{Alone}, "NG 90040010", Transfer, Transfer, Counts, Ends, kRetried},
        {{InServer},
         "NG 90040010",
         Transfer,
         Transfer,
         Counts,
         Lasts,
         kRetried,
         "NG Recive NG 90040010\r\n\n"},
        {{Alone}, "NG %s", Transfer, Transfer, Counts, Ends},
        {{InServer}, "NG %s", Transfer, Transfer, Counts, Lasts, {}, "NG Recive NG %s\r\n\n"},
        {{Alone}, "Erasing 5%n", Transfer, Transfer, Forgets, Ends, {}, "Erasing 5%n\r\n"},
        {{InServer}, "Erasing 5%n", Transfer, Transfer, Counts, Lasts},
        {{Alone}, "WR:90042000", Transfer, Transfer, Forgets, Ends, {}, "WR:90042000\r\n"},
        {{InServer}, "WR:90042000", Transfer, Transfer, Counts, Lasts},
        {{Alone}, "END", Transfer, Transfer, Keeps, Ends},
        {{InServer}, "END", Transfer, Transfer, Keeps, Lasts, {}, "End Recive\n"},
        {{Alone}, "Finished", Transfer, Finished, Keeps, Ends},
        {{InServer}, "Finished", Transfer, Finished, Keeps, Ends, {}, "Finish Recive\n"},
        {{Alone}, "Failed", Transfer, Failed, Keeps, Ends},
        {{InServer}, "Failed", Transfer, Failed, Keeps, Ends, {}, "Fail Recive\n"},
        {kBoth, "Status:Flash Idle", Transfer, Transfer, Counts, Lasts},
        {kBoth, "finished", Transfer, Transfer, Counts, Lasts},
        {kBoth, "OK 90042000", Idle, Idle, Keeps, Ends},
        {kBoth, "Failed", StartData, StartData, Keeps, Ends},
        {kBoth, "Failed", Finished, Finished, Keeps, Ends},
        {kBoth, "Finished", Failed, Failed, Keeps, Ends},
    };
    for (const auto& row : rows) {
        for (const Mode mode : row.modes) {
            SCOPED_TRACE(testing::Message() << mode << ' ' << row.status << ' ' << row.answer);
            Update counting(mode);
            counting.Begin();
            counting.Refuse(1024);
            counting.updater.SetUpdateStatus(row.status);
            testing::internal::CaptureStdout();
            EXPECT_EQ(counting.After(row.answer), row.sent);
            EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
            EXPECT_EQ(counting.updater.GetUpdateStatus(), row.reached);
            counting.updater.SetUpdateStatus(Transfer);
            EXPECT_EQ(counting.Step(), row.unwanted == Counts ? -1 : 1);
            counting.Refuse(1);
            EXPECT_EQ(counting.Step(), row.unwanted == Forgets ? 1 : -1);

            if (row.reached != Connect && row.reached != Request && row.reached != Transfer)
                continue;  // nothing waits there
            Update waiting(mode);
            waiting.Begin();
            waiting.updater.SetUpdateStatus(row.status);
            waiting.Wait(3);
            waiting.After(row.answer);
            waiting.Wait(1);
            const bool ended =
                waiting.Step() < 0 || waiting.updater.GetUpdateStatus() != row.reached;
            EXPECT_EQ(ended, row.silence == Lasts);
        }
    }
}

TEST(Updater, SendsTheImageInBlocksThatEndOnMultiplesOf0x2000)
{
    const struct {
        const char* name;
        const char* image;
        std::vector<Lines> blocks;
    } rows[] = {
        {"at records and bases", kImage, {kFirst, kSecond, kThird, kFourth, {"end"}, {}}},
        {"records that step over",
         "9004: 41FF8 43FFC 45FF4 46000",
         {{"9004:", "41FF8", "43FFC", "45FF4"}, {"46000"}}},
        {"an empty row on an end", "9004: 41FF4 - 43FF4", {{"9004:", "41FF4"}, {}, {"43FF4"}}},
        {"empty rows elsewhere", "- 9004: 40000 - 41FF4 -", {{}, kFirst, {}}},
        {"an empty row after a base", "9004: - 40000", {{"9004:"}, {"40000"}}},
        {"two bases", "9004: 9005: 50000", {{"9004:", "9005:"}, {"50000"}}},
        {"a base at the end", "41FF4 9005:", {{"41FF4"}, {"9005:"}}},
        {"a record short of its checksum", "40000 41FF4! 42000", {{"40000", "41FF4!"}, {"42000"}}},
        {"a record without address",
         "40000 other 41FF4 end",
         {{"40000", "other", "41FF4"}, {"end"}}},
        {"no rows", "", {{}, {}}},
    };
    for (const auto& row : rows) {
        Update update(Alone, row.image);
        std::vector<Lines> blocks = {update.Begin()};
        while (blocks.size() < row.blocks.size())
            blocks.push_back(update.After("OK 00000000"));
        EXPECT_EQ(blocks, row.blocks) << row.name;
    }
}

TEST(Updater, GoesOnFromARefusedAddress)
{
    const struct {
        const char* where;
        const char* refusal;
        Lines sent;
        Lines next;
    } rows[] = {
        {"the start", "NG 90040000", kFirst, kSecond},
        {"inside a record", "NG 90040008", {"40000", "41FF4"}, kSecond},
        {"after a record", "NG 9004000C", {"41FF4"}, kSecond},
        {"where sending has got", "NG 90042000", kSecond, kThird},
        {"lower case", "NG 9004fff8", {"4FFF4"}, kFourth},
        {"a base", "NG 90050000", kFourth, {"end"}},
        {"after the last row", "NG 90052000", {}, {}},
        {"before the first", "NG 12345678", kFirst, kSecond},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.where);
        Update update(Alone);
        update.Begin();
        EXPECT_EQ(update.After(row.refusal), row.sent);
        EXPECT_EQ(update.After(row.refusal), Lines{}) << "it is on its way already";
        EXPECT_EQ(update.After("OK 90042000"), row.next);
    }
}

TEST(Updater, SendsARefusedBlockOnceMoreAfterSilenceUnlessInTheServer)
{
    Update alone(Alone);
    alone.Begin();
    alone.After("NG 90042000");
    alone.Wait(3);
    alone.After("NG 90040010");
    alone.Wait(3);
    EXPECT_EQ(alone.Step(), 1);
    EXPECT_EQ(alone.Sent(), Lines{}) << "a refusal ends the silence";
    alone.Wait(1);
    EXPECT_EQ(alone.Step(), 1);
    EXPECT_EQ(alone.Sent(), Lines{"41FF4"});
    alone.Wait(3);
    EXPECT_EQ(alone.Step(), 1);
    EXPECT_EQ(alone.After("NG 90040010"), Lines{"41FF4"}) << "it counts as new again";
    for (const int result : {1, -1}) {
        alone.Wait(4);
        EXPECT_EQ(alone.Step(), result);
    }

    Update inServer(InServer);
    inServer.Begin();
    inServer.After("NG 90040010");
    inServer.Wait(4);
    EXPECT_EQ(inServer.Step(), -1);
}

TEST(Updater, ReportsEvenPercentagesWhileDataRemain)
{
    const struct {
        const char* answer;
        const char* told;
    } rows[] = {
        {"OK 90042000", ""},
        {"OK 90044000", "Sending Data 22%\n"},
        {"OK 90050000", "Sending Data 88%\n"},
        {"OK 90052000", "Sending Data 100%\n"},
        {"OK 90052000", ""},
    };
    Update update(InServer);
    update.Begin();
    for (const auto& row : rows) {
        update.After(row.answer);
        EXPECT_EQ(update.Told(), row.told) << row.answer;
    }
    EXPECT_EQ(update.After("NG 90050000"), kFourth);
    EXPECT_EQ(update.After("OK 90052000"), Lines{}) << "rows after that block stay unsent";

    Update ended(InServer);
    ended.Begin();
    ended.After("END");
    EXPECT_EQ(ended.After("OK 90042000"), Lines{});

    Update noSize(InServer, "9004: 9004: end");
    noSize.Begin();
    EXPECT_EQ(noSize.After("OK 90040000"), Lines{"end"});
    EXPECT_EQ(noSize.Told(), "");
}

TEST(Updater, EndsAboveItsLimits)
{
    const struct {
        int status;
        Mode mode;
        int timeouts;
        int result;
        int reached;
        const char* printed;
        const char* told;
    } rows[] = {
        {Connect, Alone, 3, 1, Connect, "", ""},
        {Connect, Alone, 4, 1, Request, "", ""},
        {Request, Alone, 3, 1, Request, "Send WriteCommand\n", ""},
        {Request, Alone, 4, -1, Request, "Send WriteCommand\nPiano is not connected 2\n", ""},
        {Transfer, Alone, 3, 1, Transfer, "", ""},
        {Transfer, Alone, 4, -1, Transfer, "Piano is no reply\n", ""},
        {Connect, InServer, 3, 1, Connect, "Update Status APE\n", "Connecting to CSP\n"},
        {Connect, InServer, 4, 1, Request, "Update Status APE\n", "Connecting to CSP\n"},
        {Request, InServer, 3, 1, Request, "Update Status APE\n", ""},
        {Request, InServer, 4, -1, Request, "Update Status APE\n", "CSP is not connected.\n"},
        {Transfer, InServer, 3, 1, Transfer, "Update Status APE\n", ""},
        {Transfer, InServer, 4, -1, Transfer, "Update Status APE\n", ""},
        {Finished, Alone, 0, 0, Finished, "APE Update Finished\n", ""},
        {Finished, InServer, 0, 0, Finished, "Update Status APE\n", ""},
        {Failed, InServer, 0, -1, Failed, "Update Status APE\n", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.status << ' ' << row.mode << ' ' << row.timeouts);
        Update update(row.mode);
        update.Step();  // flash mode, in a stand-alone update
        update.Begin();
        update.Told();
        update.updater.SetUpdateStatus(row.status);
        update.Wait(row.timeouts);
        testing::internal::CaptureStdout();
        EXPECT_EQ(update.Step(), row.result);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_EQ(update.updater.GetUpdateStatus(), row.reached);
        EXPECT_EQ(update.Told(), row.told);
        if (row.status > Transfer)
            continue;

        update.updater.SetUpdateStatus(row.status);
        update.Refuse(1024);
        EXPECT_EQ(update.Step(), 1);
        update.Refuse(1);
        EXPECT_EQ(update.Step(), -1);
    }
}

TEST(Updater, ConnectsThroughFlashMode)
{
    const Lines flashMode = {"BF 00 7F 00", "BF 66 01 00", "STATUS"};
    Update alone(Alone);
    EXPECT_EQ(alone.Step(), 1);
    EXPECT_EQ(alone.Sent(), flashMode);
    for (int i = 1; i < 100000; ++i)
        alone.Step();
    EXPECT_EQ(alone.Sent(), Lines{}) << "once in 100,000 steps";
    alone.Step();
    EXPECT_EQ(alone.Sent(), flashMode);
    alone.After("Status:Flash Idle");
    alone.updater.SetUpdateStatus(Connect);
    alone.Step();
    EXPECT_EQ(alone.Sent(), flashMode);

    Update inServer(InServer);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(inServer.Step(), 1);
        EXPECT_EQ(inServer.Sent(), flashMode);
        EXPECT_EQ(inServer.Told(), "Connecting to CSP\n");
    }
}

TEST(Updater, StartsAgainOnceAfterAFailure)
{
    Update update(Alone);
    update.Begin();
    update.After("OK 90042000");
    update.After("Failed");
    EXPECT_EQ(update.Step(), 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(update.Step(), 1);
        EXPECT_EQ(update.Sent(), Lines{"WRITE  :"});
    }
    EXPECT_EQ(update.Begin(), kFirst);
    update.After("Failed");
    EXPECT_EQ(update.Step(), -1);
}

TEST(Updater, HasAnImageUntilTheNextLoadOrTheEndOfAnUpdate)
{
    const TempDir dir;
    const std::string longest = std::string(255 - dir.Path().size() - 1, 'x');
    const std::string image = HexText(std::string(0x400, 'x') + "V1.2", 16, "\n");
    char version[THexFile::kVersionSize] = {};
    TUpdater updater;
    EXPECT_FALSE(updater.SetUpdateStatus(Connect));
    EXPECT_EQ(updater.UpdateStatusDiag(nullptr, nullptr), 1) << "idle";
    for (const std::string& unloadable : {dir.Path("missing"), dir.Write(longest + "x", image)}) {
        EXPECT_EQ(updater.LoadIntelHex(dir.Write(longest, image).c_str(), version), 0);
        EXPECT_STREQ(version, "V1.2");
        EXPECT_EQ(updater.GetUpdateStatus(), Idle);
        EXPECT_TRUE(updater.SetUpdateStatus(Connect));
        EXPECT_EQ(updater.LoadIntelHex(unloadable.c_str(), nullptr), -1);
        EXPECT_EQ(updater.GetUpdateStatus(), Idle);
        EXPECT_FALSE(updater.SetUpdateStatus(Connect)) << "the older image is gone";
    }

    EXPECT_EQ(updater.LoadIntelHex(dir.Path(longest).c_str(), nullptr), 0);
    EXPECT_TRUE(updater.SetUpdateStatus(Connect));
    updater.ClearUpdateStatus();
    EXPECT_EQ(updater.GetUpdateStatus(), Idle);
    EXPECT_FALSE(updater.SetUpdateStatus(Connect));
}
