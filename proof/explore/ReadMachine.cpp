#include "ReadMachine.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "HexImage.h"
#include "Limits.h"
#include "TSStringList.h"
#include "Violation.h"

namespace {

using Kind = CspLine::Kind;

constexpr int kTimeout = 10;
constexpr unsigned kFirstPage = 0x9004;
constexpr unsigned kPages = 6;
constexpr int kBlocksInPage = 16;
constexpr std::uint32_t kBlockSize = 0x1000;
constexpr std::uint32_t kRecordSize = 128;
constexpr std::uint32_t kLongestRecord = 255;

constexpr unsigned kDataType = 0;
constexpr unsigned kBaseType = 4;
constexpr std::size_t kLineEndSize = 2;

CspLine BaseRecord(unsigned upper)
{
    const std::string bytes{static_cast<char>(upper >> 8U), static_cast<char>(upper)};
    return {RecordText(kBaseType, 0, bytes) + "\r\n", Kind::Base, upper << 16U};
}

CspLine Damaged(CspLine line)
{
    char& digit = line.text[line.text.size() - kLineEndSize - 1];
    digit = digit == '0' ? '1' : '0';
    line.isSound = false;
    return line;
}

// Without its last digit, which is a 0: what stands in its place may be taken for one.
CspLine Cut(const std::string& data, std::uint32_t address)
{
    std::string text;
    for (char last = 0; text.empty() || text.back() != '0'; ++last)
        text = RecordText(kDataType, address, data + last);
    text.pop_back();
    return {text + "\r\n", Kind::Data, address, static_cast<std::uint32_t>(data.size() + 1), false};
}

std::uint32_t Block(std::uint32_t address)
{
    return address - address % kBlockSize;
}

// The events that are one line of the CSP, whatever the state.
const std::map<std::string, CspLine>& Lines()
{
    static const std::map<std::string, CspLine> lines = {
        {"base 9004", BaseRecord(0x9004)},
        {"base 9005", BaseRecord(0x9005)},
        {"base 900A", BaseRecord(0x900A)},  // the end of the range
        {"base FFFF", BaseRecord(0xFFFF)},  // the last page that there is
        {"damaged base 9005", Damaged(BaseRecord(0x9005))},
        {"end of file", {":00000001FF\r\n", Kind::End}},
        {"end of file with another sum", {":0000000100\r\n", Kind::End}},
    };
    return lines;
}

}  // namespace

ReadMachine::State ReadMachine::Start()
{
    Hold(reader.GetReaderStatus() == Idle, "a new machine isn't idle");
    reader.SetReaderStatus(Connect);
    Step();
    return Save();
}

const std::vector<const char*>& ReadMachine::EventNames()
{
    static const std::vector<const char*> names = {
        "a pass",
        "a timeout",
        "unwanted lines to the limit",
        "Status:Flash Idle",
        "Status:Flash Busy",
        "Start READ",
        "base 9004",
        "base 9005",
        "base 900A",
        "base FFFF",
        "damaged base 9005",
        "a record",
        "a record of 255 bytes",
        "a record of no bytes",
        "records to the end of the block",
        "a record 4 ahead",
        "a record 4 back",
        "a record 4096 ahead",
        "a damaged record",
        "a cut record",
        "end of file",
        "end of file with another sum",
        ":00000003FD",  // of no known type
        "Start WRITE ?",
        "NG 90042000",
        "?",
        "",
    };
    return names;
}

std::optional<int> ReadMachine::Apply(const std::string& event)
{
    constexpr int kAway = 4;
    if (event == "a pass")
        return Step();
    if (event == "a timeout")
        return Wait();
    if (event == "unwanted lines to the limit")
        return Save().errors == 0 ? std::optional(HearToTheLimit()) : std::nullopt;
    if (event == "records to the end of the block")
        return HearBlock();
    if (event == "a record")
        return Hear(Record(0, kAway));
    if (event == "a record of 255 bytes")
        return Hear(Record(0, kLongestRecord));
    if (event == "a record of no bytes")
        return Hear(Record(0, 0));
    if (event == "a record 4 ahead")
        return Hear(Record(kAway, kAway));
    if (event == "a record 4 back")
        return Hear(Record(-kAway, kAway));
    if (event == "a record 4096 ahead")
        return Hear(Record(kBlockSize, kAway));
    if (event == "a damaged record")
        return Hear(Damaged(Record(0, kAway)));
    if (event == "a cut record")
        return Hear(Cut("abc", Save().next & 0xFFFFU));
    const auto line = Lines().find(event);
    return Hear(line == Lines().end() ? CspLine{event + "\r\n"} : line->second);
}

void ReadMachine::Load(const State& state)
{
    reader.hexFile->Reset();
    reader.hexFile->baseAddress = state.base;
    reader.hexFile->nextAddress = state.next;
    reader.readStart = state.start;
    reader.readEnd = state.end;
    reader.lastAddress = state.shown;
    reader.readerStatus = state.status;
    reader.readerCounter = state.silence;
    reader.errorCounter = state.errors;
    reader.flashModeCounter = state.flashSteps;
}

ReadMachine::State ReadMachine::Save() const
{
    const auto address = [](unsigned long value) { return static_cast<std::uint32_t>(value); };
    return {reader.readerStatus,       reader.readerCounter,        reader.errorCounter,
            reader.flashModeCounter,   reader.hexFile->baseAddress, reader.hexFile->nextAddress,
            address(reader.readStart), address(reader.readEnd),     address(reader.lastAddress)};
}

void ReadMachine::CheckSilence()
{
    int seconds = 0;
    while (Wait() > 0) {
        seconds += kTimeout;
        Hold(seconds <= kSilenceBound, "silence doesn't end the read");
    }
}

std::optional<ReadMachine::State> ReadMachine::Restart()
{
    reader.ClearReaderStatus();
    Hold(reader.GetReaderStatus() == Idle, "a cleared read isn't idle");
    Hold(reader.readerCounter == 0, "a cleared read keeps its silence");
    Hold(Step() > 0, "an idle read ends");

    reader.SetReaderStatus(Connect);
    Hold(reader.GetReaderStatus() == Connect && reader.hexFile->checkedLines->count == 0 &&
             reader.hexFile->GetNextAddress() == 0,
         "a new read has something left of the last one");
    Hold(Step() > 0, "a new start fails at once");
    const State started = Save();
    if (tried.insert(Whole(started)).second)
        CheckGoodConversation();
    return started;
}

void ReadMachine::CheckLongRuns()
{
    CheckManyPasses();
    CheckWholeRead();
}

void ReadMachine::CheckManyPasses()
{
    reader.SetReaderStatus(Connect);
    for (int i = 0; i < kFlashModePeriod + 2; ++i)
        Hold(Step() > 0, "a pass ends the read");
    reader.ClearReaderStatus();
}

void ReadMachine::CheckWholeRead()
{
    reader.SetReaderStatus(Connect);
    Step();
    Hear({"Status:Flash Idle\r\n"});
    asked = 0;
    Hear({"Start READ\r\n"});
    for (unsigned page = 0; page < kPages; ++page) {
        Hear(BaseRecord(kFirstPage + page));
        for (int block = 0; block < kBlocksInPage; ++block)
            Hold(HearBlock().value_or(0) > 0, "a good read ends early");
    }
    Hold(asked == long{kPages} * kBlocksInPage, "a block isn't asked for just once");
    Hold(Hear(Lines().at("end of file")) == 0, "a good read isn't finished");
    reader.ClearReaderStatus();
}

std::string ReadMachine::Whole(const State& state)
{
    char text[160];
    std::snprintf(text, sizeof(text),
                  "status %d silence %d errors %d flash steps %d base %X next %X start %X end %X "
                  "shown %X",
                  state.status, state.silence, state.errors, state.flashSteps, state.base,
                  state.next, state.start, state.end, state.shown);
    return text;
}

std::string ReadMachine::Folded(const State& state)
{
    constexpr int kAskedOnce = 2;
    State folded = state;
    folded.errors = ClassOf(state.errors, kMostErrors);
    folded.flashSteps = std::min(state.flashSteps, kAskedOnce);
    folded.next = Block(state.next) + (state.next % kBlockSize == 0 ? 0U : 1U);
    folded.shown = 0;
    return Whole(folded);
}

int ReadMachine::Step()
{
    const ReadRules::Outcome expected = ReadRules::Stepped(Save());
    const int result = reader.UpdateStatus(&link.midi, &link.zaurus);
    Hold(result == expected.result, "a step has another result");
    Compare(expected, "by a step");
    Hold(result != 0 || reader.readerStatus == Finished, "a success without an end of the file");
    return result;
}

int ReadMachine::Wait()
{
    const int before = reader.readerCounter;
    reader.IncReaderCounter();
    Hold(reader.readerCounter == before + kTimeout, "a timeout counts wrongly");
    return Step();
}

int ReadMachine::Hear(const CspLine& line)
{
    const State before = Save();
    const TSStringList& image = *reader.hexFile->checkedLines;
    const int kept = image.count;
    const ReadRules::Outcome expected = ReadRules::Heard(before, line);
    reader.GetCSPMessage(&link.midi, &link.zaurus, line.text.c_str(),
                         static_cast<int>(line.text.size()));
    Hold(image.count == kept + (expected.isTaken ? 1 : 0),
         expected.isTaken ? "a record in order isn't taken"
                          : "a line is taken that doesn't follow");
    Hold(!expected.isTaken ||
             *static_cast<const TSString*>(image.GetItem(kept)) == line.text.c_str(),
         "a record isn't kept as it came");
    Compare(expected, "by a line");
    Hold(reader.readerStatus != Finished || before.status == Finished || line.kind == Kind::End,
         "finished without an end of the file");
    return Step();
}

int ReadMachine::HearToTheLimit()
{
    int result = 1;
    while (result > 0 && reader.errorCounter < kMostErrors && reader.readerStatus < StartData)
        result = Hear({"?\r\n"});
    return result;
}

std::optional<int> ReadMachine::HearBlock()
{
    const State start = Save();
    const std::uint32_t end = Block(start.next) + kBlockSize;
    if (start.status != Transfer || Block(start.next) - start.base >= kBlocksInPage * kBlockSize)
        return std::nullopt;
    int result = 1;
    while (result > 0 && Save().next != end)
        result = Hear(Record(0, std::min(kRecordSize, end - Save().next)));
    return result;
}

CspLine ReadMachine::Record(int distance, std::uint32_t count) const
{
    const std::uint32_t place = Save().next + static_cast<std::uint32_t>(distance);
    const std::uint32_t address = place & 0xFFFFU;
    std::string data;
    for (std::uint32_t i = 0; i < count; ++i)
        data += static_cast<char>((place + i) >> 8U ^ (place + i));
    return {RecordText(kDataType, address, data) + "\r\n", Kind::Data, address, count};
}

// From a start on, with a CSP that does what it should.
void ReadMachine::CheckGoodConversation()
{
    Hear({"Status:Flash Idle\r\n"});
    Hear({"Start READ\r\n"});
    Hear(BaseRecord(kFirstPage));
    Hear(Record(0, kRecordSize));
    Hold(Hear(Lines().at("end of file")) == 0, "a good read isn't finished");
}

void ReadMachine::Compare(const ReadRules::Outcome& expected, const char* otherwise)
{
    const State found = Save();
    const std::vector<std::string> sent = link.TakeSent();
    asked += std::count(sent.begin(), sent.end(), "NEXT   :");
    HoldLines(sent, expected.sent, otherwise);
    if (found.Fields() != expected.state.Fields())
        throw Violation{std::string("another state ") + otherwise + ": " + Whole(found) +
                        " instead of " + Whole(expected.state)};
    Hold(found.errors <= kMostErrors + 1 && found.silence <= kMostSilence &&
             found.flashSteps <= kFlashModePeriod,
         "a counter goes on above its limit");
}
