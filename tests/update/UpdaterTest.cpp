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
// of 12 bytes at the low 16 bits, "end" the end-of-file record, "-" an empty row, "other" a record
// without an address. Blocks of this one end after a record, at a 64 KiB boundary and at the end.
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
        return Record(0, number % 0x10000, std::string(12, static_cast<char>(number >> 16U)));
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

const Lines kFirst = {"9004:", "40000", "41FF4"};  // the blocks of kImage
const Lines kSecond = {"42000", "43FF4"};
const Lines kThird = {"44000", "4FFF4"};
const Lines kFourth = {"9005:", "50000", "51FF4"};

enum Count { Counts, Keeps, Forgets };
enum Silence { Ends, Lasts };

// What an answer does to the count of unwanted answers and to the silence before it, and what goes
// out.
struct Effect {
    Count unwanted;
    Silence silence;
    Lines sent = {};
};
const Effect kWanted = {Forgets, Ends};
const Effect kUnwanted = {Counts, Lasts};
const Effect kIgnored = {Keeps, Ends};
const Effect kNextBlock = {Forgets, Ends, kSecond};

// All that is printed in a conversation.
std::string Converse(Mode mode)
{
    testing::internal::CaptureStdout();
    {
        Update update(mode);
        update.Step();
        update.updater.SetUpdateStatus(Request);
        update.Step();
        update.Wait(2);
        update.Begin();
        for (const char* answer :
             {"OK 9004200%s", "NG %s", "Erasing 5%n", "WR:90042000", "END", "Finished"})
            update.After(answer);
        update.Step();
        update.updater.SetUpdateStatus(Transfer);
        update.After("Failed");
    }
    return testing::internal::GetCapturedStdout();
}

}  // namespace

TEST(Updater, ActsOnAnswersOfEachStatus)
{
    const struct {
        int status;
        const char* answer;
        int reached;
        Effect alone;
        Effect inServer;
    } rows[] = {
        {Connect, "Status:Flash Idle now", Request, kWanted, kWanted},
        {Connect, "Status:Flash Idl", Connect, kUnwanted, kUnwanted},
        {Request, "Start WRITE ?", StartData, kWanted, kWanted},
        {Request, "Start WRITE", Request, kUnwanted, kUnwanted},
        {Transfer, "OK:90042000", Transfer, kNextBlock, kNextBlock},
        {Transfer, "OK 90044000", Transfer, kNextBlock, kWanted},
        {Transfer, "OK 9004200%s", Transfer, kNextBlock, kWanted},
        {Transfer, "OK 900420", Transfer, kNextBlock, kWanted},
        {Transfer, "OK 90042", Transfer, kUnwanted, kUnwanted},
        {Transfer, "NG 90040010", Transfer, {Counts, Ends, {"41FF4"}}, {Counts, Lasts, {"41FF4"}}},
        {Transfer, "NG %s", Transfer, {Counts, Ends}, kUnwanted},
        {Transfer, "Erasing 5%n", Transfer, kWanted, kUnwanted},
        {Transfer, "WR:90042000", Transfer, kWanted, kUnwanted},
        {Transfer, "END", Transfer, kIgnored, {Keeps, Lasts}},
        {Transfer, "Finished", Finished, kIgnored, kIgnored},
        {Transfer, "Failed", Failed, kIgnored, kIgnored},
        {Transfer, "finished", Transfer, kUnwanted, kUnwanted},
        {Idle, "OK 90042000", Idle, kIgnored, kIgnored},
        {StartData, "Failed", StartData, kIgnored, kIgnored},
        {Finished, "Failed", Finished, kIgnored, kIgnored},
        {Failed, "Finished", Failed, kIgnored, kIgnored},
    };
    for (const auto& row : rows) {
        for (const Mode mode : {Alone, InServer}) {
            SCOPED_TRACE(testing::Message() << mode << ' ' << row.status << ' ' << row.answer);
            const Effect& effect = mode == Alone ? row.alone : row.inServer;
            Update counting(mode);
            counting.Begin();
            counting.SendUnwanted(1024);
            counting.updater.SetUpdateStatus(row.status);
            EXPECT_EQ(counting.After(row.answer), effect.sent);
            EXPECT_EQ(counting.updater.GetUpdateStatus(), row.reached);
            counting.updater.SetUpdateStatus(Transfer);
            EXPECT_EQ(counting.Step(), effect.unwanted == Counts ? -1 : 1);
            counting.SendUnwanted(1);
            EXPECT_EQ(counting.Step(), effect.unwanted == Forgets ? 1 : -1);

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
            EXPECT_EQ(ended, effect.silence == Lasts);
        }
    }
}

TEST(Updater, PrintsStepsAndAnswers)
{
    EXPECT_EQ(Converse(Alone),
              "Init Midicom\nInit Midicom\nCSP File Version: \nMIDI Alive\n"
              "Send Flash Mode TUpdater Update\nSend WriteCommand\n"
              "Update Counter Inc 10+ 10\nUpdate Counter Inc 10+ 20\nStart APE Update\n"
              "OK 9004200%s\r\nErasing 5%n\r\nWR:90042000\r\nAPE Update Finished\n"
              "Delete Midicom\nDelete Midicom\n");
    EXPECT_EQ(Converse(InServer),
              "Init Midicom\nMIDI Alive\nUpdate Status APE\nUpdate Status APE\n"
              "Update Counter Inc 10+ 10\nUpdate Counter Inc 10+ 20\nUpdate Status APE\n"
              "NG Recive NG %s\r\n\nEnd Recive\nFinish Recive\nUpdate Status APE\nFail Recive\n"
              "Delete Midicom\n");
}

TEST(Updater, SendsImageInBlocksThatEndOnMultiplesOf0x2000)
{
    const struct {
        const char* image;
        std::vector<Lines> blocks;
    } rows[] = {
        {kImage, {kFirst, kSecond, kThird, kFourth, {"end"}, {}}},
        {"9004: 41FF8 43FFC 45FF4 46000", {{"9004:", "41FF8", "43FFC", "45FF4"}, {"46000"}}},
        {"9004: 41FF4 - 43FF4", {{"9004:", "41FF4"}, {}, {"43FF4"}}},
        {"- 9004: 40000 - 41FF4 -", {{}, kFirst, {}}},
        {"9004: - 40000", {{"9004:"}, {"40000"}}},
        {"9004: 9005: 50000", {{"9004:", "9005:"}, {"50000"}}},
        {"41FF4 9005:", {{"41FF4"}, {"9005:"}}},
        {"40000 other 41FF4 end", {{"40000", "other", "41FF4"}, {"end"}}},
        {"", {{}, {}}},
    };
    for (const auto& row : rows) {
        Update update(Alone, row.image);
        std::vector<Lines> blocks = {update.Begin()};
        while (blocks.size() < row.blocks.size())
            blocks.push_back(update.After("OK 00000000"));
        EXPECT_EQ(blocks, row.blocks) << row.image;
    }

    Update update(InServer);
    update.updater.SendIntelHex(&update.midi, 0x90042000, 1);
    EXPECT_EQ(update.Sent(), Lines{"42000"}) << "any size";
    update.updater.SendIntelHex(&update.midi, 0x90042000, 0);
    EXPECT_EQ(update.Sent(), Lines{});
    update.updater.ClearUpdateStatus();
    update.updater.SendIntelHex(&update.midi, 0, 1);
    EXPECT_EQ(update.Sent(), Lines{}) << "no image";
}

TEST(Updater, BeginsAgainWhateverWasSentBefore)
{
    Update update(InServer, "- 01FF4 9004: 42000");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(update.Begin(), Lines{}) << "an empty row ends at address 0";
        EXPECT_EQ(update.After("OK 00000000"), Lines{"01FF4"});
        EXPECT_EQ(update.After("OK 00002000"), (Lines{"9004:", "42000"}));
    }
}

TEST(Updater, ContinuesFromRefusedAddress)
{
    const struct {
        const char* refusal;
        Lines sent;
        Lines next;
    } rows[] = {
        {"NG 90040008", {"40000", "41FF4"}, kSecond},
        {"NG 9004000C", {"41FF4"}, kSecond},
        {"NG 90042000", kSecond, kThird},
        {"NG 9004fff8", {"4FFF4"}, kFourth},
        {"NG 90050000", kFourth, {"end"}},
        {"NG 90052000", {}, {}},
        {"NG 12345678", kFirst, kSecond},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.refusal);
        Update update(Alone);
        update.Begin();
        EXPECT_EQ(update.After(row.refusal), row.sent);
        EXPECT_EQ(update.After(row.refusal), Lines{}) << "it is on its way already";
        EXPECT_EQ(update.After("OK 90042000"), row.next);
    }
}

TEST(Updater, SendsRefusedBlockOnceMoreAfterSilenceUnlessInServer)
{
    Update alone(Alone);
    alone.Begin();
    alone.After("NG 90040010");
    alone.Wait(3);
    EXPECT_EQ(alone.Step(), 1);
    EXPECT_EQ(alone.Sent(), Lines{});
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
    Update update(InServer);
    update.Begin();
    for (const auto& [answer, told] : {std::pair("OK 90042000", ""),
                                       {"OK 90044000", "Sending Data 22%\n"},
                                       {"OK 90050000", "Sending Data 88%\n"},
                                       {"OK 90052000", "Sending Data 100%\n"},
                                       {"OK 90052000", ""}}) {
        update.After(answer);
        EXPECT_EQ(update.Told(), told) << answer;
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
    for (const Mode mode : {Alone, InServer}) {
        for (const int status : {Connect, Request, Transfer}) {
            SCOPED_TRACE(testing::Message() << mode << ' ' << status);
            Update update(mode);
            update.Begin();
            update.updater.SetUpdateStatus(status);
            update.Wait(3);
            EXPECT_EQ(update.Step(), 1);
            EXPECT_EQ(update.updater.GetUpdateStatus(), status);
            update.Wait(1);
            EXPECT_EQ(update.Step(), status == Connect ? 1 : -1);
            EXPECT_EQ(update.updater.GetUpdateStatus(), status == Connect ? Request : status);

            update.updater.SetUpdateStatus(status);
            update.SendUnwanted(1024);
            EXPECT_EQ(update.Step(), 1);
            update.SendUnwanted(1);
            EXPECT_EQ(update.Step(), -1);
        }
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

TEST(Updater, HasImageUntilNextLoadOrEndOfUpdate)
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
}
