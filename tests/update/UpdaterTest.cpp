// The update's machine in both of its modes, seen from the CSP and the controller.

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Peers.h"
#include "TUpdater.h"

namespace {

using Texts = std::vector<std::string>;

// The row that a word stands for: "9004:" an upper address, "1FF4" 12 bytes of data from there on,
// "end" the end-of-file record, "-" an empty row, "other" a record without an address.
std::string Row(const std::string& word, char fill)
{
    if (word == "end" || word == "-" || word == "other")
        return word == "end" ? ":00000001FF" : word == "-" ? "" : Record(5, 0, "abcd");
    const auto number = std::stoul(word, nullptr, 16);
    if (word.back() == ':')
        return Record(4, 0, {static_cast<char>(number >> 8U), static_cast<char>(number)});
    return Record(0, number, std::string(12, fill));
}

// Its blocks end behind a record, at a 64 KiB boundary and in front of the end-of-file record.
constexpr char kImage[] = "9004: 0000 1FF4 2000 3FF4 4000 FFF4 9005: 0000 1FF4 end";

// An update of the image that the words stand for.
class Update : public Peers {
public:
    explicit Update(bool server, const std::string& image = kImage) : inServer(server)
    {
        std::istringstream words(image);
        std::string text;
        for (std::string word; words >> word; text += rows.back() + "\r\n")
            rows.push_back(Row(word, static_cast<char>(rows.size())));
        EXPECT_EQ(updater.LoadIntelHex(dir.Write("image.hex", text).c_str(), nullptr), 0);
        updater.midi = inServer ? nullptr : &midi;
        EXPECT_TRUE(updater.SetUpdateStatus(Connect));
    }
    ~Update() override { updater.midi = nullptr; }

    // A step after so many seconds without an answer.
    int Step(int silence = 0)
    {
        for (updater.updateCounter = 0; updater.updateCounter < silence;) {
            if (inServer)
                updater.IncUpdateCounter();
            else
                ++updater.updateCounter;  // as Run does
        }
        return inServer ? updater.UpdateStatusDiag(&midi, &zaurus) : updater.UpdateStatus();
    }
    // From the request to the first block, which it gives.
    std::string Begin()
    {
        updater.SetUpdateStatus(Request);
        After("Start WRITE ?");
        EXPECT_EQ(Step(), 1);
        EXPECT_EQ(updater.GetUpdateStatus(), Transfer);
        return Got();
    }

    TUpdater updater;

private:
    void Hear(const char* message, int length) override
    {
        if (inServer)
            updater.GetCSPMessageDiag(&midi, &zaurus, message, length);
        else
            updater.GetCSPMessage(message, length);
    }

    bool inServer;
};

}  // namespace

TEST(Updater, ActsOnTheAnswersOfEachStatus)
{
    // In front of an answer stand 1 error and 20 seconds. Behind it: the status, the errors, the
    // seconds, what was sent, what was printed.
    const struct {
        int from;
        const char* answer;
        const char* alone;
        const char* inServer = nullptr;  // null: the same
    } cases[] = {
        {Connect, "Status:Flash Idle", "1 0 0 "},
        {Connect, "Status:Flash Idle now", "1 0 0 "},
        {Connect, "Status:Flash Idl", "0 2 20 "},
        {Connect, "Start WRITE ?", "0 2 20 "},
        {Request, "Start WRITE ?", "2 0 0 "},
        {Request, "Start WRITE", "1 2 20 "},
        {Transfer, "OK 90042000", "3 0 0 3;4;OK 90042000\r\n", "3 0 0 3;4;"},
        {Transfer, "OK:90042000", "3 0 0 3;4;OK:90042000\r\n", "3 0 0 3;4;"},
        {Transfer, "OK 90044000", "3 0 0 3;4;OK 90044000\r\n", "3 0 0 "},
        {Transfer, "OK 9004200%s", "3 0 0 3;4;OK 9004200%s\r\n", "3 0 0 "},
        {Transfer, "OK 900420", "3 0 0 3;4;OK 900420\r\n", "3 0 0 "},
        {Transfer, "OK 90042", "3 2 20 "},
        {Transfer, "NG 90040010", "3 2 0 2;", "3 2 20 2;NG Recive NG 90040010\r\n\n"},
        {Transfer, "NG %s", "3 2 0 ", "3 2 20 NG Recive NG %s\r\n\n"},
        {Transfer, "Erasing 5%n", "3 0 0 Erasing 5%n\r\n", "3 2 20 "},
        {Transfer, "WR:90042000", "3 0 0 WR:90042000\r\n", "3 2 20 "},
        {Transfer, "END", "3 1 0 ", "3 1 20 End Recive\n"},
        {Transfer, "Finished", "4 1 0 ", "4 1 20 Finish Recive\n"},
        {Transfer, "Failed", "5 1 0 ", "5 1 20 Fail Recive\n"},
        {Transfer, "Status:Flash Idle", "3 2 20 "},
        {Transfer, "finished", "3 2 20 "},
        {Idle, "OK 90042000", "-1 1 20 "},
        {StartData, "Failed", "2 1 20 "},
        {Finished, "Failed", "4 1 20 "},
        {Failed, "Finished", "5 1 20 "},
    };
    for (const auto& c : cases) {
        for (const bool inServer : {false, true}) {
            Update update(inServer);
            TUpdater& updater = update.updater;
            update.Begin();
            updater.updateStatus = c.from;
            updater.errorCounter = 1;
            updater.updateCounter = 20;

            testing::internal::CaptureStdout();
            std::ostringstream seen;
            const std::string sent = update.After(c.answer);
            seen << updater.updateStatus << ' ' << updater.errorCounter << ' '
                 << updater.updateCounter << ' ' << sent << testing::internal::GetCapturedStdout();

            EXPECT_EQ(seen.str(), inServer && c.inServer != nullptr ? c.inServer : c.alone)
                << c.answer;
        }
    }
}

TEST(Updater, SendsTheImageInBlocksThatEndOnMultiplesOf0x2000)
{
    const struct {
        const char* name;
        const char* image;
        Texts blocks;
    } cases[] = {
        {"ends behind records", kImage, {"0;1;2;", "3;4;", "5;6;", "7;8;9;", "10;", ""}},
        {"records that step over", "9004: 1FF8 3FFC 5FF4 6000", {"0;1;2;3;", "4;"}},
        {"an empty row on an end", "9004: 1FF4 - 3FF4", {"0;1;", "", "3;"}},
        {"empty rows elsewhere", "- 9004: 0000 - 1FF4 -", {"", "1;2;4;", ""}},
        {"an empty row behind a base", "9004: - 0000", {"0;", "2;"}},
        {"two bases", "9004: 9005: 0000", {"0;1;", "2;"}},
        {"a base at the end", "1FF4 9005:", {"0;", "1;"}},
        {"a record without address", "0000 other 1FF4 end", {"0;1;2;", "3;"}},
        {"no rows", "", {"", ""}},
    };
    for (const auto& c : cases) {
        Update update(false, c.image);
        Texts blocks = {update.Begin()};
        while (blocks.size() < c.blocks.size())
            blocks.push_back(update.After("OK 00000000"));
        EXPECT_EQ(blocks, c.blocks) << c.name;
    }
}

TEST(Updater, GoesOnFromARefusedAddress)
{
    const struct {
        const char* where;
        const char* refusal;
        const char* sent;
        const char* next;
    } cases[] = {
        {"at the start", "NG 90040000", "0;1;2;", "3;4;"},
        {"inside a record", "NG 90040008", "1;2;", "3;4;"},
        {"behind a record", "NG 9004000C", "2;", "3;4;"},
        {"where sending has got", "NG 90042000", "3;4;", "5;6;"},
        {"in lower case", "NG 9004fff8", "6;", "7;8;9;"},
        {"at a base", "NG 90050000", "7;8;9;", "10;"},
        {"behind the last row", "NG 90052000", "", ""},
        {"in front of the first", "NG 12345678", "0;1;2;", "3;4;"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.where);
        Update update(false);
        update.Begin();
        EXPECT_EQ(update.After(c.refusal), c.sent);
        EXPECT_EQ(update.After(c.refusal), "") << "it is on its way already";
        EXPECT_EQ(update.After("OK 90042000"), c.next);
    }
}

TEST(Updater, SendsARefusedBlockOnceMoreAfterSilenceUnlessInTheServer)
{
    Update alone(false);
    alone.Begin();
    alone.After("NG 90042000");
    alone.After("NG 90040010");
    EXPECT_EQ(alone.Step(30), 1);
    EXPECT_EQ(alone.Got(), "");
    EXPECT_EQ(alone.Step(31), 1);
    EXPECT_EQ(alone.Got(), "2;");
    EXPECT_EQ(alone.updater.updateCounter, 0);
    EXPECT_EQ(alone.After("NG 90040010"), "2;") << "it counts as new again";
    EXPECT_EQ(alone.Step(31), 1);
    EXPECT_EQ(alone.Step(31), -1);

    Update inServer(true);
    inServer.Begin();
    inServer.After("NG 90040010");
    EXPECT_EQ(inServer.Step(40), -1);
}

TEST(Updater, TellsTheControllerEvenPercentagesWhileDataRemain)
{
    Update update(true);
    update.Begin();
    Texts told;
    for (const char* answer :
         {"OK 90042000", "OK 90044000", "OK 90050000", "OK 90052000", "OK 90052000"}) {
        update.After(answer);
        told.push_back(update.Told());
    }
    EXPECT_EQ(told,
              (Texts{"", "Sending Data 22%\n", "Sending Data 88%\n", "Sending Data 100%\n", ""}));
    EXPECT_EQ(update.After("NG 90050000"), "7;8;9;");
    EXPECT_EQ(update.After("OK 90052000"), "") << "what a refusal leaves behind the end stays";

    Update ended(true);
    ended.Begin();
    ended.After("END");
    EXPECT_EQ(ended.After("OK 90042000"), "");

    Update noSize(true, "9004: 9004: end");
    noSize.Begin();
    EXPECT_EQ(noSize.After("OK 90040000"), "2;");
    EXPECT_EQ(noSize.Told(), "");
}

TEST(Updater, EndsBehindItsLimits)
{
    const struct {
        int status;
        bool inServer;
        int silence;
        int result;
        int reached;
        const char* logged;
        const char* told;
    } cases[] = {
        {Connect, false, 30, 1, Connect, "", ""},
        {Connect, false, 31, 1, Request, "", ""},
        {Request, false, 30, 1, Request, "", ""},
        {Request, false, 31, -1, Request, "Piano is not connected 2\n", ""},
        {Transfer, false, 30, 1, Transfer, "", ""},
        {Transfer, false, 31, -1, Transfer, "Piano is no reply\n", ""},
        {Connect, true, 30, 1, Connect, "", "Connecting to CSP\n"},
        {Connect, true, 40, 1, Request, "", "Connecting to CSP\n"},
        {Request, true, 30, 1, Request, "", ""},
        {Request, true, 40, -1, Request, "", "CSP is not connected.\n"},
        {Transfer, true, 30, 1, Transfer, "", ""},
        {Transfer, true, 40, -1, Transfer, "", ""},
        {Finished, true, 0, 0, Finished, "", ""},
        {Failed, true, 0, -1, Failed, "", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.status << c.inServer << c.silence);
        Update update(c.inServer);
        update.Begin();
        update.updater.SetUpdateStatus(c.status);
        logged.clear();
        EXPECT_EQ(update.Step(c.silence), c.result);
        EXPECT_EQ(update.updater.GetUpdateStatus(), c.reached);
        EXPECT_EQ(update.updater.updateCounter, c.reached == c.status ? c.silence : 0);
        EXPECT_EQ(logged, c.logged);
        EXPECT_EQ(update.Told(), c.told);
        if (c.status > Transfer)
            continue;

        update.updater.SetUpdateStatus(c.status);
        for (int i = 0; i < 1024; ++i)
            update.After("?");
        EXPECT_EQ(update.Step(), 1);
        update.After("?");
        logged.clear();
        EXPECT_EQ(update.Step(), -1);
        EXPECT_EQ(logged, c.inServer ? "" : "Piano Comunication Error !\n");
    }
}

TEST(Updater, ConnectsThroughFlashMode)
{
    constexpr char kConnect[] = "BF 00 7F 00;BF 66 01 00;usleep 500000;STATUS;";
    Update alone(false);
    EXPECT_EQ(alone.Step(), 1);
    EXPECT_EQ(alone.Got(), kConnect);
    for (int i = 1; i < 100000; ++i)
        alone.Step();
    EXPECT_EQ(alone.Got(), "") << "once in 100,000 steps";
    alone.Step();
    EXPECT_EQ(alone.Got(), kConnect);
    alone.After("Status:Flash Idle");
    alone.updater.SetUpdateStatus(Connect);
    alone.Step();
    EXPECT_EQ(alone.Got(), kConnect);

    Update inServer(true);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(inServer.Step(), 1);
        EXPECT_EQ(inServer.Got(), "BF 00 7F 00;BF 66 01 00;STATUS;");
        EXPECT_EQ(inServer.Told(), "Connecting to CSP\n");
    }
}

TEST(Updater, StartsAgainOnceAfterAFailure)
{
    Update update(false);
    update.Begin();
    update.After("OK 90042000");
    update.After("Failed");
    EXPECT_EQ(update.Step(), 1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(update.Step(), 1);
        EXPECT_EQ(update.Got(), "WRITE  :;");
    }
    EXPECT_EQ(update.Begin(), "0;1;2;");
    update.After("Failed");
    EXPECT_EQ(update.Step(), -1);
}

TEST(Updater, HasAnImageUntilTheNextLoadOrTheEndOfAnUpdate)
{
    const TempDir dir;
    const std::string longest = std::string(255 - dir.Path().size() - 1, 'x');
    const std::string image = HexText(std::string(0x400, 'x') + "V1.2", 16, "\n");
    char version[TUpdater::kTextSize] = {};
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
