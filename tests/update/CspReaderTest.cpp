// The read-back's machine, seen from the CSP, the controller and the file.

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Peers.h"
#include "TCspReader.h"

namespace {

const std::string kBase = ":02000004900466";
const std::string kEndOfFile = ":00000001FF";

std::string Base(unsigned upper)
{
    return Record(4, 0, {static_cast<char>(upper >> 8U), static_cast<char>(upper)});
}

// A read-back to param.hex.
class ReadBack : public Peers {
public:
    ReadBack()
    {
        OpenMidi();
        reader.SetReaderParameter(0, 0, dir.Path("param.hex").c_str());
        reader.SetReaderStatus(Connect);
    }

    int Step() { return reader.UpdateStatus(&midi, &zaurus); }
    // So many times ten seconds without an answer.
    void Wait(int timeouts)
    {
        for (int i = 0; i < timeouts; ++i)
            reader.IncReaderCounter();
    }

    // To a status, by the answers that lead there.
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
        Sent();
        Told();
    }

    TCspReader reader;

private:
    void Hear(const char* message, int length) override
    {
        reader.GetCSPMessage(&midi, &zaurus, message, length);
    }
};

const Lines kConnect = {"BF 00 00 7F", "BF 66 01 00", "STATUS"};
const Lines kRequest = {"READ   :90040000:900A0000:0C"};
const Lines kNext = {"NEXT   :"};
const Lines kCancel = {"CANCEL :"};

}  // namespace

TEST(CspReader, FollowsTheCspsAnswersFromConnectToTransfer)
{
    // What the CSP says before a step, what goes out at once and with the step.
    const struct {
        const char* answer;
        Lines atOnce;
        Lines withTheStep;
        int status;
        const char* told = "";
    } rows[] = {
        {"", {}, kConnect, Connect, "Connecting to CSP\n"},
        {"", {}, {}, Connect},
        {"Start READ", kCancel, kConnect, Connect, "Connecting to CSP\n"},
        {"Status:Flash Idle now", {}, kRequest, Request},
        {"Start REA", {}, kRequest, Request},
        {"Start READ now", {}, kNext, Transfer},
    };
    ReadBack read;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.answer);
        EXPECT_EQ(*row.answer == '\0' ? Lines{} : read.After(row.answer), row.atOnce);
        EXPECT_EQ(read.Step(), 1);
        EXPECT_EQ(read.Sent(), row.withTheStep);
        EXPECT_EQ(read.reader.GetReaderStatus(), row.status);
        EXPECT_EQ(read.Told(), row.told);
    }
    ReadBack started;
    started.GoTo(StartData);
    EXPECT_EQ(started.After("Status:Flash Idle"), Lines{}) << "the data haven't started";
    EXPECT_EQ(started.reader.GetReaderStatus(), StartData);
}

TEST(CspReader, AsksForEachBlockOnceAndSavesTheFileAtItsEnd)
{
    const std::string data = Firmware(0x60000);
    std::string text;
    ReadBack read;
    read.GoTo(Transfer);
    const auto take = [&](const std::string& record) {
        text += record + "\r\n";
        return read.After(record);
    };

    std::map<std::uint32_t, std::string> told;  // by the address that the records have reached
    for (std::uint32_t at = 0; at < data.size();) {
        if (at % 0x10000 == 0) {
            EXPECT_EQ(take(Base(0x9004 + (at >> 16U))), Lines{});
        }
        const std::string record = Record(0, at % 0x10000, data.substr(at, 0x80));
        at += 0x80;
        EXPECT_EQ(take(record), at % 0x1000 == 0 && at < 0x60000 ? kNext : Lines{}) << at;
        told[at] = read.Told();
    }
    EXPECT_EQ(take(Base(0x900A)), Lines{});
    EXPECT_EQ(take(kEndOfFile), Lines{});

    EXPECT_EQ(told[0x01000], "");
    EXPECT_EQ(told[0x02000], "Reading CSP 2%\n");
    EXPECT_EQ(told[0x10000], "");
    EXPECT_EQ(told[0x12000], "Reading CSP 18%\n");
    EXPECT_EQ(told[0x60000] + read.Told(), "Reading CSP 100%\nReading CSP 100%\n");
    EXPECT_FALSE(read.dir.Exists("param.hex"));
    EXPECT_EQ(read.Step(), 0);
    EXPECT_TRUE(read.dir.Read("param.hex") == text);
}

TEST(CspReader, BreaksOffAtALineThatIsNotTheNextRecord)
{
    const std::string longest(1021, 'x');  // of the link, without its line end
    for (const char* line :
         {longest.c_str(), "Status:Flash Idle", "", ":0400000001020304F3", ":04000000010203",
          ":020000021000EC", ":0400080001020304EA", "02000004900466"}) {
        SCOPED_TRACE(line);
        ReadBack read;
        read.GoTo(Transfer);
        EXPECT_EQ(read.After(kBase), Lines{});

        testing::internal::CaptureStdout();
        EXPECT_EQ(read.After(line), kCancel);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("Recive ") + line + "\r\n\n");
        EXPECT_EQ(read.Step(), -1);
        EXPECT_EQ(read.Sent(), kCancel) << "after what was still on its way";
        EXPECT_FALSE(read.dir.Exists("param.hex"));
    }
}

TEST(CspReader, EndsAboveItsLimits)
{
    const struct {
        int status;
        int timeouts;
        int unwanted;
        int result;
        int reached;
        Lines sent;
        const char* told = "";
    } rows[] = {
        {Connect, 3, 0, 1, Connect, {}},
        {Connect, 4, 0, 1, Request, {}},
        {Connect, 0, 1024, 1, Connect, kConnect, "Connecting to CSP\n"},
        {Connect, 0, 1025, 1, Request, kConnect, "Connecting to CSP\n"},
        {Request, 3, 0, 1, Request, kRequest},
        {Request, 4, 0, -1, Request, kRequest + kCancel, "CSP is not connected.\n"},
        {Request, 0, 1024, 1, Request, kRequest},
        {Request, 0, 1025, -1, Request, kRequest + kCancel},
        {StartData, 4, 1025, 1, Transfer, kNext},
        {Transfer, 3, 0, 1, Transfer, {}},
        {Transfer, 4, 0, -1, Transfer, kCancel},
        {Finished, 4, 1025, 0, Finished, {}},
        {Failed, 4, 1025, -1, Failed, kCancel},
        {Idle, 4, 1025, 1, Idle, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.status << ' ' << row.timeouts << ' ' << row.unwanted);
        ReadBack read;
        read.GoTo(row.status);
        read.Wait(row.timeouts);
        for (int i = 0; i < row.unwanted; ++i)
            read.After("?");
        if (row.status == Transfer)
            read.After(kBase);  // a record makes no earlier silence good

        EXPECT_EQ(read.Step(), row.result);
        EXPECT_EQ(read.reader.GetReaderStatus(), row.reached);
        EXPECT_EQ(read.Sent(), row.sent);
        EXPECT_EQ(read.Told(), row.told);
        EXPECT_EQ(read.Step(), row.result) << "with fresh counters where the status is new";
    }
}

TEST(CspReader, StartsCleanWhateverTheLastReadLeft)
{
    ReadBack read;
    read.GoTo(Transfer);
    read.After(kBase);
    for (std::size_t at = 0; at < 0xF80; at += 0x80)
        read.After(Record(0, at, std::string(0x80, 'x')));
    EXPECT_EQ(read.After(Record(0, 0xF80, std::string(0x80, 'x'))), kNext);

    read.reader.SetReaderStatus(Connect);
    EXPECT_EQ(read.Step(), 1);
    EXPECT_EQ(read.Sent(), kConnect);
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
