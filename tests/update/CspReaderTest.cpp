// The read-back's state machine, seen from the CSP, the controller and the file.

#include "HexFormat.h"
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
const Lines kCancelAndConnect = {kCancel[0], kConnect[0], kConnect[1], kConnect[2]};
const Lines kGivenUp = {kRequest[0], kCancel[0]};

// A read-back to param.hex. The name is relative: the unit's library keeps the program from
// changing other files of the machine.
struct ReadBack : Peers {
    ReadBack()
    {
        step = [this] { return reader.UpdateStatus(&midi, &zaurus); };
        countTimeout = [this] { reader.IncReaderCounter(); };
        hear = [this](const char* message, int length) {
            reader.GetCSPMessage(&midi, &zaurus, message, length);
        };
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

    TCspReader reader;
};

}  // namespace

TEST(CspReader, RequestsReadUntilCspStarts)
{
    const std::string request = "READ   :90040000:900A0000:0C\nUpdate Status CSP\n";
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
              "Status:Flash Idle\nUpdate Status CSP\n" +
                  request + request + request);
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

TEST(CspReader, ShowsEachBlockAndTakesNoDataPastEndIfProgressIsRequired)
{
    ReadBack read;
    read.reader.RequireProgress();
    read.Begin();
    std::istringstream records(HexText(std::string(0x60000, 'x'), 0x80, "\n"));
    testing::internal::CaptureStdout();
    for (std::string record; std::getline(records, record) && record != kEndOfFile;) {
        read.Let(record);
        read.TakeSent();
    }
    EXPECT_NE(testing::internal::GetCapturedStdout().find("\nNEXT   :90041000\n"),
              std::string::npos);
    EXPECT_EQ(read.reader.GetNextAddress(), kParameterEnd);
    read.Let(Record(4, 0, "\x90\x0A"));
    read.Let(Record(0, 0, "y"));
    EXPECT_EQ(read.step(), -1);
}

TEST(CspReader, StartsCleanAndSavesToDefaultFileForEmptyOrLongName)
{
    ReadBack read;
    read.Begin();
    read.Converse({{kBase}, {Record(0, 0, "data")}});
    std::string dots;
    while (dots.size() < 254)
        dots += "./";
    for (const auto& [name, saved] : {std::pair(std::string("param.hex"), "param.hex"),
                                      {"", "csp_param.hex"},
                                      {dots + "x", "x"},
                                      {dots + "yy", "csp_param.hex"}}) {
        read.reader.SetReaderParameter(0, 0, name.c_str());
        read.Begin();
        EXPECT_EQ(read.Converse({{kEndOfFile, {}, 0}}), "Update Status CSP\nCSP Update Finished\n");
        EXPECT_EQ(read.dir.Read(saved), std::string(kEndOfFile) + "\r\n") << name;
        std::filesystem::remove(saved);
    }
}
