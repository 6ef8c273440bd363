// The read-back's machine, seen from the CSP, the controller and the file.

#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Peers.h"
#include "TCspReader.h"

namespace {

#define CONNECT "BF 00 00 7F;BF 66 01 00;usleep 500000;STATUS;"
#define REQUEST "READ   :90040000:900A0000:0C;"

const std::string kBase = ":02000004900466";
const std::string kEndOfFile = ":00000001FF";

class ReadBack : public Peers {
public:
    ReadBack()
    {
        reader.SetReaderParameter(0, 0, dir.Path("param.hex").c_str());
        reader.SetReaderStatus(Connect);
    }

    int Step() { return reader.UpdateStatus(&midi, &zaurus); }

    // To a status on the road that leads there.
    void GoTo(int status)
    {
        Step();
        if (status == Idle)
            reader.ClearReaderStatus();
        if (status >= Request)
            After("Status:Flash Idle");
        if (status >= StartData) {
            Step();
            After("Start READ");
        }
        if (status >= Transfer)
            Step();
        if (status >= Finished)
            After(status == Finished ? kEndOfFile : "");
        EXPECT_EQ(reader.GetReaderStatus(), status);
        Got();
        Told();
    }

    TCspReader reader;

private:
    void Hear(const char* message, int length) override
    {
        reader.GetCSPMessage(&midi, &zaurus, message, length);
    }
};

}  // namespace

TEST(CspReader, FollowsTheCspsAnswersFromConnectToTransfer)
{
    ReadBack read;
    EXPECT_EQ(read.Step(), 1);
    EXPECT_EQ(read.Got(), CONNECT);
    EXPECT_EQ(read.Told(), "Connecting to CSP\n");
    EXPECT_EQ(read.Step(), 1);
    EXPECT_EQ(read.Got(), "");
    EXPECT_EQ(read.After("Start READ"), "CANCEL :;");
    EXPECT_EQ(read.Step(), 1);
    EXPECT_EQ(read.Got(), CONNECT) << "once more behind an unwanted line";

    EXPECT_EQ(read.After("Status:Flash Idle now"), "");
    EXPECT_EQ(read.After("Start REA"), "");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(read.Step(), 1);
        EXPECT_EQ(read.Got(), REQUEST) << "with every step, whatever range was asked for";
    }
    EXPECT_EQ(read.After("Start READ now"), "");
    EXPECT_EQ(read.After("Status:Flash Idle"), "") << "the data haven't started";
    EXPECT_EQ(read.Step(), 1);
    EXPECT_EQ(read.Got(), "NEXT   :;");
    EXPECT_EQ(read.reader.GetReaderStatus(), Transfer);
}

TEST(CspReader, AsksForEachBlockOnceAndSavesTheFileAtItsEnd)
{
    std::string text = HexText(Firmware(0x60000), 128, "\r\n");
    text.insert(text.rfind(':'), Record(4, 0, "\x90\x0A") + "\r\n");
    ReadBack read;
    read.GoTo(Transfer);

    std::string asked;
    std::map<std::uint32_t, std::string> seen;  // what the records up to an address brought
    for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
        read.reader.GetCSPMessage(&read.midi, &read.zaurus,
                                  text.substr(at, text.find('\n', at) + 1 - at).c_str(), 0);
        const std::uint32_t address = read.reader.hexFile->GetNextAddress();
        if (address % 0x1000 == 0) {
            const std::string got = read.Got();
            asked += got;
            seen[address] += got + read.Told();
        }
    }

    EXPECT_EQ(asked.size(), 0x5F * std::string("NEXT   :;").size());
    EXPECT_EQ(seen[0x90040000], "");
    EXPECT_EQ(seen[0x90041000], "NEXT   :;");
    EXPECT_EQ(seen[0x90042000], "NEXT   :;Reading CSP 2%\n");
    EXPECT_EQ(seen[0x90050000], "NEXT   :;");
    EXPECT_EQ(seen[0x90052000], "NEXT   :;Reading CSP 18%\n");
    EXPECT_EQ(seen[0x900A0000], "Reading CSP 100%\nReading CSP 100%\n");
    EXPECT_FALSE(read.dir.Exists("param.hex"));
    EXPECT_EQ(read.Step(), 0);
    EXPECT_TRUE(read.dir.Read("param.hex") == text);
}

TEST(CspReader, BreaksOffAtALineThatIsNotTheNextRecord)
{
    for (const char* line : {"Status:Flash Idle", "", ":0400000001020304F3", ":04000000010203",
                             ":020000021000EC", ":0400080001020304EA", kBase.c_str() + 1}) {
        ReadBack read;
        read.GoTo(Transfer);
        EXPECT_EQ(read.After(kBase), "");

        testing::internal::CaptureStdout();
        EXPECT_EQ(read.After(line), "CANCEL :;");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("Recive ") + line + "\r\n\n");
        EXPECT_EQ(read.Step(), -1);
        EXPECT_EQ(read.Got(), "CANCEL :;") << "behind what was still on its way";
        EXPECT_FALSE(read.dir.Exists("param.hex"));
    }
}

TEST(CspReader, EndsBehindItsLimits)
{
    const struct {
        int status;
        int timeouts;
        int unwanted;
        int result;
        int reached;
        const char* sent;
        const char* told = "";
    } cases[] = {
        {Connect, 3, 0, 1, Connect, ""},
        {Connect, 4, 0, 1, Request, ""},
        {Connect, 0, 1024, 1, Connect, CONNECT, "Connecting to CSP\n"},
        {Connect, 0, 1025, 1, Request, CONNECT, "Connecting to CSP\n"},
        {Request, 3, 0, 1, Request, REQUEST},
        {Request, 4, 0, -1, Request, REQUEST "CANCEL :;", "CSP is not connected.\n"},
        {Request, 0, 1024, 1, Request, REQUEST},
        {Request, 0, 1025, -1, Request, REQUEST "CANCEL :;"},
        {StartData, 4, 1025, 1, Transfer, "NEXT   :;"},
        {Transfer, 3, 0, 1, Transfer, ""},
        {Transfer, 4, 0, -1, Transfer, "CANCEL :;"},
        {Finished, 4, 1025, 0, Finished, ""},
        {Failed, 4, 1025, -1, Failed, "CANCEL :;"},
        {Idle, 4, 1025, 1, Idle, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.status << ' ' << c.timeouts << ' ' << c.unwanted);
        ReadBack read;
        read.GoTo(c.status);
        for (int i = 0; i < c.timeouts; ++i)
            read.reader.IncReaderCounter();
        for (int i = 0; i < c.unwanted; ++i)
            read.After("?");
        if (c.status == Transfer)
            read.After(kBase);  // a record makes no earlier silence good

        EXPECT_EQ(read.Step(), c.result);
        EXPECT_EQ(read.reader.GetReaderStatus(), c.reached);
        EXPECT_EQ(read.Got(), c.sent);
        EXPECT_EQ(read.Told(), c.told);
        EXPECT_EQ(read.Step(), c.result) << "with fresh counters where the status is new";
    }
}

TEST(CspReader, StartsCleanWhateverTheLastReadLeft)
{
    ReadBack read;
    read.GoTo(Transfer);
    read.After(kBase);
    for (std::size_t at = 0; at < 0xF80; at += 0x80)
        read.After(Record(0, at, std::string(0x80, 'x')));
    EXPECT_EQ(read.After(Record(0, 0xF80, std::string(0x80, 'x'))), "NEXT   :;");

    read.reader.SetReaderStatus(Connect);
    EXPECT_EQ(read.Step(), 1);
    EXPECT_EQ(read.Got(), CONNECT);
    read.GoTo(Finished);
    EXPECT_EQ(read.Step(), 0);
    EXPECT_EQ(read.dir.Read("param.hex"), kEndOfFile + "\r\n");
}

TEST(CspReader, SavesToItsDefaultForANameThatIsEmptyOrTooLong)
{
    std::string dots;
    while (dots.size() < 254)
        dots += "./";
    const TempDir dir;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(dir.Path());
    ReadBack read;
    for (const auto& [name, saved] : {std::pair(std::string(), "csp_param.hex"),
                                      {dots + "x", "x"},
                                      {dots + "yy", "csp_param.hex"}}) {
        read.reader.SetReaderParameter(0, 0, name.c_str());
        read.reader.SetReaderStatus(Connect);
        read.GoTo(Finished);
        EXPECT_EQ(read.Step(), 0);
        EXPECT_TRUE(std::filesystem::remove(saved)) << name;
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
    std::filesystem::current_path(before);
}
