// The update's state machine in both modes, seen from the CSP and the controller.

#include <sys/select.h>

#include "Peers.h"
#include "TUpdater.h"

using namespace Status;

namespace {

enum Mode { Alone, InServer };

// The words of an image's rows: "9004:" is a base record with that upper address, "41FF4" a record
// of 12 bytes at the low 16 bits, "41FF4!" the same without its checksum, "end" the end-of-file
// record, "-" an empty row, "other" a record without an address. Blocks of this one end after a
// record, at a 64 KiB boundary and at the end.
constexpr char kImage[] = "9004: 40000 41FF4 42000 43FF4 44000 4FFF4 9005: 50000 51FF4 end";

std::string RowOf(const std::string& word)
{
    if (word == "end" || word == "-" || word == "other")
        return word == "end" ? ":00000001FF" : word == "-" ? "" : Record(5, 0, "abcd");
    constexpr int kHex = 16;
    const auto number = std::stoul(word, nullptr, kHex);
    if (word.back() == ':')
        return Record(4, 0, {static_cast<char>(number >> 8U), static_cast<char>(number)});
    const std::string data(12, static_cast<char>(number >> 16U));
    const std::string record = Record(0, number % 0x10000, data);
    return record.substr(0, record.size() - (word.back() == '!' ? 2 : 0));
}

// An update of the image described by the words, at its start.
struct Update : Peers {
    explicit Update(Mode mode, const std::string& image = kImage)
    {
        step = [this, mode] {
            return mode == Alone ? updater.UpdateStatus()
                                 : updater.UpdateStatusDiag(&midi, &zaurus);
        };
        countTimeout = [this] { updater.IncUpdateCounter(); };
        hear = [this, mode](const char* message, int length) {
            mode == Alone ? updater.GetCSPMessage(message, length)
                          : updater.GetCSPMessageDiag(&midi, &zaurus, message, length);
        };
        std::istringstream words(image);
        std::string file;
        for (std::string word; words >> word;) {
            names[RowOf(word)] = word;
            file += RowOf(word) + "\r\n";
        }
        const std::string path = dir.Write("image.hex", file);
        if (mode == InServer) {
            EXPECT_EQ(updater.LoadIntelHex(path.c_str(), nullptr), 0);
            EXPECT_TRUE(updater.SetUpdateStatus(Connect));
        } else {
            EXPECT_EQ(updater.Initialize(false, 0, path.c_str(), TMidiCom::kPiano), 0);
            EXPECT_TRUE(patcher.Accept());
        }
    }

    // Sends the first block.
    void Begin()
    {
        updater.SetUpdateStatus(Request);
        Let("Start WRITE ?");
        step();
        TakeSent();
    }

    TUpdater updater;
};

const Lines kFlashMode = {"00 BF 00 7F 00", "00 BF 66 01 00", "STATUS"};
const Lines kWrite = {"WRITE  :"};
const Lines kFirst = {"9004:", "40000", "41FF4"};  // the blocks of kImage
const Lines kSecond = {"42000", "43FF4"};
const Lines kThird = {"44000", "4FFF4"};
const Lines kFourth = {"9005:", "50000", "51FF4"};

enum Count { Counts, Keeps, Forgets };
enum Silence { Ends = 10, Lasts = 20 };  // seconds, counted ten seconds after the answer

// What an answer does to the count of unwanted answers and to the silence before it, and what it
// makes the update send.
struct Effect {
    Count unwanted;
    Silence silence;
    Lines sent = {};
};
const Effect kWanted = {Forgets, Ends};
const Effect kUnwanted = {Counts, Lasts};
const Effect kIgnored = {Keeps, Lasts};
const Effect kClosing = {Keeps, Ends};
const Effect kNextBlock = {Forgets, Ends, kSecond};

}  // namespace

// Replaces libc's in this program: silence costs no time.
extern "C" int select(int count, fd_set* readable, fd_set*, fd_set*, timeval*)
{
    const timespec noTime{};
    return pselect(count, readable, nullptr, nullptr, &noTime, nullptr);
}

TEST(Updater, EndsAt31SecondsOfSilenceAlone)
{
    Update update(Alone);
    testing::internal::CaptureStdout();
    EXPECT_EQ(update.updater.Run(), -1);
    const std::string printed = testing::internal::GetCapturedStdout();
    for (const char* next : {"Update Counter Inc 1+ 1\n", "Send WriteCommand\nPiano is not c"})
        EXPECT_NE(printed.find("Inc 1+ 31\n" + std::string(next)), std::string::npos) << next;
}

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
        {Transfer, "OK 900420", Transfer, kNextBlock, kWanted},
        {Transfer, "OK 90042", Transfer, kUnwanted, kUnwanted},
        {Transfer, "NG 90040010", Transfer, {Counts, Ends, {"41FF4"}}, {Counts, Lasts, {"41FF4"}}},
        {Transfer, "NG %s", Transfer, {Counts, Ends}, kUnwanted},
        {Transfer, "Erasing 5%n", Transfer, kWanted, kUnwanted},
        {Transfer, "WR:90042000", Transfer, kWanted, kUnwanted},
        {Transfer, "END", Transfer, kClosing, kIgnored},
        {Transfer, "Finished", Finished, kClosing, kIgnored},
        {Transfer, "Failed", Failed, kClosing, kIgnored},
        {Transfer, "finished", Transfer, kUnwanted, kUnwanted},
        {Idle, "OK 90042000", Idle, kIgnored, kIgnored},
    };
    for (const auto& row : rows) {
        for (const Mode mode : {Alone, InServer}) {
            SCOPED_TRACE(testing::Message() << mode << ' ' << row.status << ' ' << row.answer);
            const Effect& effect = mode == Alone ? row.alone : row.inServer;
            Update update(mode);
            update.Begin();
            update.Let("1024 unwanted");
            update.Let("30 s");  // which a new status forgets
            update.updater.SetUpdateStatus(row.status);
            update.Let("10 s");
            update.Let(row.answer);
            EXPECT_EQ(update.TakeSent(), effect.sent);
            EXPECT_EQ(update.updater.GetUpdateStatus(), row.reached);
            testing::internal::CaptureStdout();
            update.Let("10 s");
            EXPECT_EQ(testing::internal::GetCapturedStdout(),
                      "Update Counter Inc 10+ " + std::to_string(effect.silence) + "\n");
            update.updater.SetUpdateStatus(Transfer);
            EXPECT_EQ(update.step(), effect.unwanted == Counts ? -1 : 1);
            update.Let("1024 unwanted");
            EXPECT_EQ(update.step(), effect.unwanted == Forgets ? 1 : -1);
        }
    }
}

TEST(Updater, ResendsRefusedBlockAfterSilenceAndRestartsOnceAlone)
{
    const std::string upTo30 =
        "Update Counter Inc 10+ 10\nUpdate Counter Inc 10+ 20\nUpdate Counter Inc 10+ 30\n";
    const std::string above30 = "Update Counter Inc 10+ 40\n";
    const std::string longest = "WR:" + std::string(1020, 'x');  // that is looked at
    const Lines again = {"41FF4"};
    Update update(Alone);
    EXPECT_EQ(update.Converse({{"nothing", kFlashMode},
                               {"30 s"},
                               {"10 s"},
                               {"30 s", kWrite},
                               {"10 s", kWrite, -1},
                               {"Start WRITE ?", kFirst},
                               {"OK 9004200%s", kSecond},
                               {"NG 90040010", again},
                               {"30 s"},
                               {"10 s", again},
                               {"30 s"},
                               {"NG 90040010", again},
                               {"40 s", again},
                               {"30 s"},
                               {"10 s", {}, -1}}),
              "Send Flash Mode TUpdater Update\n" + upTo30 + above30 + upTo30 +
                  "Send WriteCommand\n" + above30 +
                  "Send WriteCommand\nPiano is not connected 2\n" +
                  "Start APE Update\nOK 9004200%s\r\n" + upTo30 + above30 + upTo30 + upTo30 +
                  above30 + upTo30 + above30 + "Piano is no reply\n");
    EXPECT_EQ(update.Converse({{"Erasing 5%n"},
                               {longest + "yy"},
                               {"Failed"},
                               {"nothing", kWrite},
                               {"Start WRITE ?", kFirst},
                               {"Finished", {}, 0}}),
              "Erasing 5%n\r\n" + longest +
                  "CSP Update Failed\nSend WriteCommand\nStart APE Update\nAPE Update Finished\n");
}

TEST(Updater, ReportsToControllerWhileDataRemain)
{
    constexpr char kConnecting[] = "Connecting to CSP\n";
    Update update(InServer);
    update.Converse({{"nothing", kFlashMode, 1, kConnecting},
                     {"30 s", kFlashMode, 1, kConnecting},
                     {"10 s", kFlashMode, 1, kConnecting},
                     {"30 s", kWrite},
                     {"10 s", kWrite, -1, "CSP is not connected.\n"},
                     {"Start WRITE ?", kFirst},
                     {"OK 90042000", kSecond},
                     {"OK 90044000", kThird, 1, "Sending Data 22%\n"},
                     {"OK 90050000", kFourth, 1, "Sending Data 88%\n"},
                     {"OK 90052000", {"end"}, 1, "Sending Data 100%\n"},
                     {"OK 90052000"},
                     {"NG 90050000", kFourth},
                     {"OK 90052000"},
                     {"30 s"},
                     {"10 s", {}, -1}});
    EXPECT_EQ(update.Converse({{"NG %s", kFirst, -1}, {"Finished", {}, 0}}),
              "NG Recive NG %s\r\n\nUpdate Status APE\nFinish Recive\nUpdate Status APE\n");

    Update ended(InServer);
    ended.Begin();
    EXPECT_EQ(ended.Converse({{"END"}, {"OK 90042000"}, {"Failed", {}, -1}}),
              "End Recive\nUpdate Status APE\nUpdate Status APE\nFail Recive\nUpdate Status APE\n");

    Update noSize(InServer, "9004: 9004: end");
    noSize.Begin();
    noSize.Converse({{"OK 90040000", {"end"}}});
}

TEST(Updater, EntersFlashModeEvery100000Steps)
{
    Update update(Alone);
    update.Converse({{"nothing", kFlashMode}});
    for (int i = 1; i < 100000; ++i)
        update.step();
    EXPECT_EQ(update.TakeSent(), Lines{});
    update.Converse({{"nothing", kFlashMode}, {"Status:Flash Idle", kWrite}});
    update.updater.SetUpdateStatus(Connect);
    update.Converse({{"nothing", kFlashMode}});
}

TEST(Updater, SendsImageInBlocksThatEndOnMultiplesOf0x2000)
{
    const std::pair<const char*, std::vector<Lines>> rows[] = {
        {kImage, {kFirst, kSecond, kThird, kFourth, {"end"}, {}}},
        {"9004: 41FF8 43FFC 45FF4 46000", {{"9004:", "41FF8", "43FFC", "45FF4"}, {"46000"}}},
        {"9004: 41FF4 - 43FF4", {{"9004:", "41FF4"}, {}, {"43FF4"}}},
        {"- 9004: 40000 - 41FF4 -", {{}, kFirst, {}}},
        {"9004: - 40000", {{"9004:"}, {"40000"}}},
        {"9004: 9005: 50000", {{"9004:", "9005:"}, {"50000"}}},
        {"41FF4 9005:", {{"41FF4"}, {"9005:"}}},
        {"40000 41FF4! 42000", {{"40000", "41FF4!"}, {"42000"}}},
        {"40000 other 41FF4 end", {{"40000", "other", "41FF4"}, {"end"}}},
        {"", {{}, {}}},
    };
    for (const auto& [image, blocks] : rows) {
        SCOPED_TRACE(image);
        Update update(Alone, image);
        update.updater.SetUpdateStatus(Request);
        std::string answer = "Start WRITE ?";
        for (const Lines& block : blocks) {
            update.Converse({{answer, block}});
            answer = "OK 00000000";
        }
    }

    Update update(InServer);
    const auto send = [&](unsigned long address, int size) {
        update.updater.SendIntelHex(&update.midi, address, size);
        return update.TakeSent();
    };
    EXPECT_EQ(send(0, 1), (Lines{"9004:", "40000"})) << "any size, from the first row";
    EXPECT_EQ(send(0x90042000, 1), Lines{"42000"});
    EXPECT_EQ(send(0x90042000, 0), Lines{});
    update.updater.ClearUpdateStatus();
    EXPECT_EQ(send(0, 1), Lines{}) << "no image";
}

TEST(Updater, ContinuesFromRefusedAddressAndStartsAtAddress0)
{
    Update update(Alone);
    update.Begin();
    update.Converse({{"NG 90040008", {"40000", "41FF4"}},
                     {"NG 90040008"},
                     {"OK 90042000", kSecond},
                     {"NG 9004000C", {"41FF4"}},
                     {"OK 90042000", kSecond},
                     {"NG 90044000", kThird},
                     {"OK 90050000", kFourth},
                     {"NG 9004fff8", {"4FFF4"}},
                     {"OK 90050000", kFourth},
                     {"NG 90050000", kFourth},
                     {"OK 90052000", {"end"}},
                     {"NG 90052000"},
                     {"NG 12345678", kFirst},
                     {"OK 90042000", kSecond}});

    Update other(InServer, "- 01FF4 9004: 42000");
    for (int i = 0; i < 2; ++i) {
        other.updater.SetUpdateStatus(Request);
        other.Converse({{"Start WRITE ?"},  // an empty row ends at address 0
                        {"OK 00000000", {"01FF4"}},
                        {"OK 00002000", {"9004:", "42000"}},
                        {"NG 00001000", {"01FF4"}},
                        {"NG 90042000", {"42000"}},
                        {"NG 00002001", {"9004:", "42000"}}});
    }
}

TEST(Updater, KeepsImageUntilNextLoadOrEndOfUpdate)
{
    const TempDir dir;
    const std::string longest = std::string(255 - dir.Path().size() - 1, 'x');
    const std::string image = HexText("data", 4, "\n");
    TUpdater updater;
    EXPECT_EQ(updater.UpdateStatusDiag(nullptr, nullptr), 1) << "idle";
    for (const std::string& unloadable : {dir.Path("missing"), dir.Write(longest + "x", image)}) {
        EXPECT_EQ(updater.LoadIntelHex(dir.Write(longest, image).c_str(), nullptr), 0);
        EXPECT_TRUE(updater.SetUpdateStatus(Connect));
        EXPECT_EQ(updater.LoadIntelHex(unloadable.c_str(), nullptr), -1);
        EXPECT_EQ(updater.GetUpdateStatus(), Idle);
        EXPECT_FALSE(updater.SetUpdateStatus(Connect)) << "the older image is gone";
    }
}
