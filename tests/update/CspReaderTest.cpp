// The read-back's state machine, seen from the CSP, the controller and the file.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "HexFormat.h"
#include "HexText.h"
#include "Peers.h"
#include "TCspReader.h"

using namespace Status;

namespace {

constexpr char kConnecting[] = "Connecting to CSP\n";
constexpr char kBase[] = ":02000004900466";
constexpr char kEndOfFile[] = ":00000001FF";

const Lines kConnect = {"7F BF 00 00 00", "00 BF 66 01 00", "STATUS"};
const Lines kRequest = {"READ   :90040000:900A0000:0C"};
const Lines kNext = {"NEXT   :"};
const Lines kCancel = {"CANCEL :"};
const Lines kCancelAndConnect = {kConnect[0], kConnect[1], kCancel[0], kConnect[2]};
const Lines kGivenUp = {kRequest[0], kCancel[0]};

// A read-back to param.hex. The name is relative: the unit's library keeps the program from
// changing other files of the machine.
class ReadBack : public Peers {
public:
    ReadBack()
    {
        std::filesystem::current_path(dir.Path());
        reader.SetReaderParameter(0, 0, "param.hex");
        reader.SetReaderStatus(Connect);
    }

    // Continues to the first record.
    void Begin()
    {
        reader.SetReaderStatus(Connect);
        Converse({{"nothing", kConnect, 1, kConnecting},
                  {"Status:Flash Idle", kRequest},
                  {"Start READ", kNext}});
    }
    int Step() override { return reader.UpdateStatus(&midi, &zaurus); }

    TCspReader reader;

private:
    void CountTimeout() override { reader.IncReaderCounter(); }
    void Hear(const char* message, int length) override
    {
        reader.GetCSPMessage(&midi, &zaurus, message, length);
    }
};

}  // namespace

TEST(CspReader, RequestsReadUntilCspStarts)
{
    ReadBack read;
    EXPECT_EQ(read.Converse({{"nothing", kConnect, 1, kConnecting},
                             {"30 s"},
                             {"Start READ", kCancelAndConnect, 1, kConnecting},
                             {"Status:Flash Idle now", kRequest},
                             {"30 s", kRequest},
                             {"Start REA", kRequest},
                             {"Start READ now", kNext}}),
              "Update Status CSP\nSend Flash Mode TCspReader Update\nUpdate Status CSP\n"
              "Canceled\nUpdate Status CSP\nSend Flash Mode TCspReader Update\n"
              "Status:Flash Idle\nUpdate Status CSP\nREAD   :90040000:900A0000:0C\n"
              "Update Status CSP\nREAD   :90040000:900A0000:0C\n"
              "Update Status CSP\nREAD   :90040000:900A0000:0C\nUpdate Status CSP\n");
}

TEST(CspReader, EndsAfterMoreThan30SecondsOfSilence)
{
    ReadBack read;
    read.Converse({{"nothing", kConnect, 1, kConnecting},
                   {"30 s"},
                   {"10 s"},
                   {"30 s", kRequest},
                   {"10 s", kGivenUp, -1, "CSP is not connected.\n"}});
    read.Let("Start READ");
    read.Converse({{"40 s", kNext}, {"30 s"}, {kBase}, {"10 s", kCancel, -1}});
    read.reader.ClearReaderStatus();
    read.Converse({{"40 s"}, {"1025 unwanted"}});
}

TEST(CspReader, EndsAfterMoreThan1024UnwantedAnswers)
{
    ReadBack read;
    read.Let("1024 unwanted");
    read.Let("Status:Flash Idle");
    read.Converse({{"1024 unwanted", kRequest}});
    read.reader.SetReaderStatus(Connect);
    read.Let("1024 unwanted");
    read.Converse({{"nothing", kConnect, 1, kConnecting},
                   {"?", kCancelAndConnect, 1, kConnecting},
                   {"1024 unwanted", kRequest},
                   {"?", kGivenUp, -1}});
    read.Let("Start READ");
    read.Converse({{"Status:Flash Idle", kNext}});
}

TEST(CspReader, CancelsAtLineOtherThanNextRecord)
{
    const std::string longest(1021, 'x');  // of the link, without its line end
    for (const std::string& line :
         {longest, std::string(), {":0400000001020304F3"}, {":0400080001020304EA"}}) {
        ReadBack read;
        read.Begin();
        EXPECT_EQ(read.Converse({{kBase}, {kBase}, {line, {"CANCEL :", "CANCEL :"}, -1}}),
                  "NEXT   :90040000\nUpdate Status CSP\nUpdate Status CSP\nRecive " + line +
                      "\r\n\nUpdate Status CSP\n");
        EXPECT_FALSE(read.dir.Exists("param.hex"));
    }
}

TEST(CspReader, TakesNoDataPastEndIfProgressIsRequired)
{
    ReadBack read;
    read.reader.RequireProgress();
    read.Begin();
    const std::string data(0x80, 'x');
    for (std::size_t at = 0; at < 0x60000; at += data.size()) {
        if (at % 0x10000 == 0)
            read.Let(Record(4, 0, {'\x90', static_cast<char>(4 + (at >> 16U))}));
        read.Let(Record(0, at % 0x10000, data));
        read.TakeSent();
    }
    EXPECT_EQ(read.reader.GetNextAddress(), kParameterEnd);
    read.Let(Record(4, 0, "\x90\x0A"));
    read.Let(Record(0, 0, "y"));
    EXPECT_EQ(read.Step(), -1);
}

TEST(CspReader, StartsCleanNextTime)
{
    const std::string data(0x80, 'x');
    ReadBack read;
    for (int i = 0; i < 2; ++i) {
        read.Begin();
        read.Let(kBase);
        for (std::size_t at = 0; at < 0xF80; at += data.size())
            read.Let(Record(0, at, data));
        EXPECT_EQ(read.Converse({{Record(0, 0xF80, data), kNext}}),
                  "NEXT   :90041000\nUpdate Status CSP\n");
    }
    read.Begin();
    EXPECT_EQ(read.Converse({{kEndOfFile, {}, 0}}), "Update Status CSP\nCSP Update Finished\n");
    EXPECT_EQ(read.dir.Read("param.hex"), std::string(kEndOfFile) + "\r\n");
}

TEST(CspReader, SavesToDefaultFileForEmptyOrLongName)
{
    std::string dots;
    while (dots.size() < 254)
        dots += "./";
    ReadBack read;
    for (const auto& [name, saved] : {std::pair(std::string(), "csp_param.hex"),
                                      {dots + "x", "x"},
                                      {dots + "yy", "csp_param.hex"}}) {
        read.reader.SetReaderParameter(0, 0, name.c_str());
        read.Begin();
        read.Converse({{kEndOfFile, {}, 0}});
        EXPECT_TRUE(std::filesystem::remove(saved)) << name;
    }
}
