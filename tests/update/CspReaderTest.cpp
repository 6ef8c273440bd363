// The read-back's machine, seen from the CSP, the controller and the file.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "HexText.h"
#include "Peers.h"
#include "TCspReader.h"

namespace {

const std::string kBase = ":02000004900466";
const std::string kEndOfFile = ":00000001FF";

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

    // To a status up to Transfer, by the answers that lead there.
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
        EXPECT_EQ(reader.GetReaderStatus(), status);
        Sent();
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

TEST(CspReader, FollowsAnswersFromConnectToTransfer)
{
    const struct {
        const char* answer;  // before a step
        Lines atOnce;
        Lines withStep;
        int status;
        const char* printed;
    } rows[] = {
        {"Start READ", kCancel, kConnect, Connect,
         "Canceled\nUpdate Status CSP\nSend Flash Mode TCspReader Update\n"},
        {"Status:Flash Idle now",
         {},
         kRequest,
         Request,
         "Status:Flash Idle\nUpdate Status CSP\nREAD   :90040000:900A0000:0C\n"},
        {"Start REA", {}, kRequest, Request, "Update Status CSP\nREAD   :90040000:900A0000:0C\n"},
        {"Start READ now", {}, kNext, Transfer, "Update Status CSP\n"},
    };
    ReadBack read;
    read.GoTo(Connect);
    EXPECT_EQ(read.Step(), 1);
    EXPECT_EQ(read.Sent(), Lines{});
    for (const auto& row : rows) {
        SCOPED_TRACE(row.answer);
        testing::internal::CaptureStdout();
        EXPECT_EQ(read.After(row.answer), row.atOnce);
        EXPECT_EQ(read.Step(), 1);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_EQ(read.Sent(), row.withStep);
        EXPECT_EQ(read.reader.GetReaderStatus(), row.status);
    }
    EXPECT_EQ(read.Told(), "Connecting to CSP\nConnecting to CSP\n");

    read.reader.SetReaderStatus(Connect);
    read.GoTo(StartData);
    EXPECT_EQ(read.After("Status:Flash Idle"), Lines{}) << "the data haven't started";
    EXPECT_EQ(read.reader.GetReaderStatus(), StartData);
}

TEST(CspReader, BreaksOffAtLineOtherThanNextRecord)
{
    const std::string longest(1021, 'x');  // of the link, without its line end
    for (const char* line : {longest.c_str(), "", ":0400000001020304F3", ":0400080001020304EA"}) {
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
        std::size_t lastSent;  // lines of the step, the last ones of which are kCancel or not
        const char* told = "";
    } rows[] = {
        {Connect, 3, 0, 1, Connect, 0},
        {Connect, 4, 0, 1, Request, 0},
        {Connect, 0, 1024, 1, Connect, 3, "Connecting to CSP\n"},
        {Connect, 0, 1025, 1, Request, 3, "Connecting to CSP\n"},
        {Request, 3, 0, 1, Request, 1},
        {Request, 4, 0, -1, Request, 2, "CSP is not connected.\n"},
        {Request, 0, 1024, 1, Request, 1},
        {Request, 0, 1025, -1, Request, 2},
        {StartData, 4, 1025, 1, Transfer, 1},
        {Transfer, 3, 0, 1, Transfer, 0},
        {Transfer, 4, 0, -1, Transfer, 1},
        {Idle, 4, 1025, 1, Idle, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.status << ' ' << row.timeouts << ' ' << row.unwanted);
        ReadBack read;
        read.GoTo(row.status);
        read.Told();
        read.Wait(row.timeouts);
        read.SendUnwanted(row.unwanted);
        if (row.status == Transfer)
            read.After(kBase);  // a record makes no earlier silence good
        read.Sent();

        EXPECT_EQ(read.Step(), row.result);
        EXPECT_EQ(read.reader.GetReaderStatus(), row.reached);
        const Lines sent = read.Sent();
        EXPECT_EQ(sent.size(), row.lastSent);
        EXPECT_EQ(!sent.empty() && sent.back() == kCancel[0], row.result < 0);
        EXPECT_EQ(read.Told(), row.told);
        EXPECT_EQ(read.Step(), row.result) << "with fresh counters where the status is new";
    }
}

TEST(CspReader, AsksForNextBlockOnceAndStartsCleanNextTime)
{
    ReadBack read;
    for (int i = 0; i < 2; ++i) {
        read.reader.SetReaderStatus(Connect);
        read.GoTo(Transfer);
        read.After(kBase);
        for (std::size_t at = 0; at < 0xF80; at += 0x80)
            EXPECT_EQ(read.After(Record(0, at, std::string(0x80, 'x'))), Lines{});
        testing::internal::CaptureStdout();
        EXPECT_EQ(read.After(Record(0, 0xF80, std::string(0x80, 'x'))), kNext);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "NEXT   :90041000\n");
    }

    read.reader.SetReaderStatus(Connect);
    read.GoTo(Transfer);
    EXPECT_EQ(read.After(kEndOfFile), Lines{});
    EXPECT_EQ(read.Step(), 0);
    EXPECT_EQ(read.dir.Read("param.hex"), kEndOfFile + "\r\n");
}

TEST(CspReader, SavesToDefaultForEmptyOrLongName)
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
        read.GoTo(Transfer);
        read.After(kEndOfFile);
        EXPECT_EQ(read.Step(), 0);
        EXPECT_TRUE(std::filesystem::remove(saved)) << name;
    }
    std::filesystem::current_path(before);
}
