#include "Csp.h"

#include "Hex.h"
#include "Transcript.h"

#include <algorithm>

namespace {

using Group = std::vector<unsigned char>;
const Group kSelectForUpdate{0xBF, 0x00, 0x7F, 0x00};
const Group kSelectForRead{0xBF, 0x00, 0x00, 0x7F};
const Group kFlashMode{0xBF, 0x66, 0x01, 0x00};

constexpr uint32_t kBlockSize = 0x2000;    // bytes between two "OK"s
constexpr uint32_t kStretchSize = 0x1000;  // bytes for one "NEXT   :"
constexpr uint32_t kUpperBits = 0xFFFF0000;

// Percent signs show whether the system ever uses a line as a format.
constexpr char kGarbage[] = "Unwanted 100%s%n";

}  // namespace

const Csp::Command Csp::kCommands[] = {
    {"STATUS", false, &Csp::OnStatus},   {"WRITE  :", false, &Csp::OnWrite},
    {"READ   :", true, &Csp::OnRead},    {"NEXT   :", false, &Csp::OnNext},
    {"CANCEL :", false, &Csp::OnCancel}, {"RESTART:", false, &Csp::OnRestart},
};

void Csp::SetPower(bool on)
{
    if (!on)
        Forget();
    powered = on;
}

void Csp::Forget()
{
    selected = false;
    state = State::Playing;
    sending = false;
    answers.clear();
}

void Csp::LoseLink()
{
    answers.clear();
    sending = false;
    answered = false;
}

void Csp::TakeMidi(const Group& group)
{
    if (!powered)
        return;
    if (selected && group == kFlashMode) {
        state = State::Idle;
        sending = false;
    }
    if (group == kSelectForUpdate || group == kSelectForRead)
        selected = true;
}

void Csp::TakeLine(const std::string& line)
{
    const bool deaf = !powered || state == State::Playing;
    for (const Command& command : kCommands) {
        const std::string word = command.word;
        if (command.hasArguments ? line.compare(0, word.size(), word) == 0 : line == word) {
            if (!deaf)
                (this->*command.act)(line);
            return;
        }
    }
    // The system sends the rows of any file, even one that isn't Intel HEX.
    if (state == State::WriteReady || state == State::Writing)
        TakeRecord(line);
    else if (line.empty() || line[0] != ':')
        transcript.Bad("command " + line);
}

void Csp::OnStatus(const std::string&)
{
    if (faults.noStatus)
        return;
    const bool busy = state == State::Writing || state == State::Reading;
    Answer(busy ? "Status:Flash Busy" : "Status:Flash Idle");
}

// The system repeats WRITE and READ until the answer arrives. A second "Start READ" after the first
// NEXT would end the read, so an answer is repeated only if it was lost with the link.
void Csp::OnWrite(const std::string&)
{
    if (state == State::WriteReady && answered)
        return;
    state = State::WriteReady;
    upperAddress = 0;
    expected.reset();
    wanted.reset();
    erasedPages.clear();
    outside = false;
    answered = true;
    Answer("Start WRITE ?");
}

void Csp::OnRead(const std::string& line)
{
    const auto start = HexDigits(line, 8, 8);
    const auto end = HexDigits(line, 17, 8);
    const auto step = HexDigits(line, 26, 2);
    if (line.size() != 28 || line[16] != ':' || line[25] != ':' || !start || !end || !step ||
        *step == 0) {
        transcript.Bad("command " + line);
        return;
    }
    if (state == State::ReadReady && answered)
        return;
    state = State::ReadReady;
    readAddress = *start;
    readEnd = std::min(*end, faults.readStop.value_or(*end));
    readStep = *step;
    announced.reset();
    sending = false;
    answered = true;
    Answer("Start READ");
}

void Csp::OnNext(const std::string&)
{
    if (state != State::ReadReady && state != State::Reading)
        return;
    state = State::Reading;
    sending = true;
}

void Csp::OnCancel(const std::string&)
{
    state = State::Idle;
    sending = false;
}

void Csp::OnRestart(const std::string&)
{
    Forget();
}

void Csp::TakeRecord(const std::string& line)
{
    state = State::Writing;
    const auto record = PianoRecord::FromText(line);
    if (!record) {
        if (!wanted)
            Refuse(expected.value_or(upperAddress));
        return;
    }
    switch (record->type) {
    case PianoRecord::kData: TakeData(*record); break;
    case PianoRecord::kLinearAddress: TakeLinearAddress(*record); break;
    case PianoRecord::kEndOfFile: TakeEndOfFile(); break;
    default: break;  // a program's start address has no effect on a flash
    }
}

void Csp::TakeLinearAddress(const PianoRecord& record)
{
    const uint32_t upper = (static_cast<uint32_t>(record.data[0]) << 24) |
                           (static_cast<uint32_t>(record.data[1]) << 16);
    // The system doesn't repeat the upper address when it goes back inside a page, so what belongs
    // to the ignored records must not change it.
    if (wanted && upper != (*wanted & kUpperBits))
        return;
    upperAddress = upper;
    expected.reset();
}

void Csp::TakeData(const PianoRecord& record)
{
    const uint32_t address = upperAddress | record.address;
    const auto count = static_cast<uint32_t>(record.data.size());
    const uint32_t end = address + count;
    if (count == 0)
        return;
    if (wanted) {
        if (*wanted - address >= count)
            return;
        wanted.reset();
    } else if (expected && address != *expected && !(faults.allowGaps && address > *expected)) {
        Refuse(*expected);
        return;
    }
    if (IsRefusedByFault(address, end))
        return;

    Store(address, record.data);
    expected = end;
    if (end % kBlockSize != 0)
        return;
    Answer("WR:" + Hex(end - 2 * (kBlockSize / 3), 8));
    Answer("WR:" + Hex(end - kBlockSize / 3, 8));
    Answer("OK " + Hex(end, 8));
}

bool Csp::IsRefusedByFault(uint32_t address, uint32_t end)
{
    const auto hit = std::find_if(faults.ngAt.begin(), faults.ngAt.end(),
                                  [&](uint32_t at) { return at - address < end - address; });
    if (hit == faults.ngAt.end())
        return false;
    const uint32_t at = *hit;
    faults.ngAt.erase(hit);
    Refuse(at);
    return true;
}

void Csp::Refuse(uint32_t address)
{
    wanted = address;
    Answer("NG " + Hex(address, 8));
}

void Csp::Store(uint32_t address, const std::vector<unsigned char>& data)
{
    for (const unsigned char byte : data) {
        const uint32_t page = address & kUpperBits;
        if (erasedPages.insert(page).second) {
            flash.ErasePage(page);
            Answer("Erasing " + Hex(page, 8));
        }
        outside = !flash.Write(address, byte) || outside;
        ++address;
    }
}

void Csp::TakeEndOfFile()
{
    if (wanted)
        return;
    state = State::Idle;
    Answer("END");
    const bool failed = outside || faults.failures > 0;
    if (faults.failures > 0)
        --faults.failures;
    if (!failed && !saveFile.empty() && !flash.Save(saveFile))
        transcript.Note("flash not saved");
    Answer(failed ? "Failed" : "Finished");
}

void Csp::Answer(const std::string& line)
{
    if (faults.silent || faults.garbageEndless)
        return;
    answers.insert(answers.end(), static_cast<size_t>(std::max(faults.garbage, 0)), kGarbage);
    answers.push_back(line);
}

std::optional<std::string> Csp::TakeNextLine()
{
    if (!powered || state == State::Playing || faults.silent)
        return std::nullopt;
    if (faults.garbageEndless)
        return kGarbage;
    if (!answers.empty()) {
        std::string line = std::move(answers.front());
        answers.pop_front();
        return line;
    }
    if (sending)
        return TakeNextRecord();
    return std::nullopt;
}

std::string Csp::TakeNextRecord()
{
    PianoRecord record;
    if (readAddress >= readEnd) {
        sending = false;
        state = State::Idle;
        record.type = PianoRecord::kEndOfFile;
        return record.ToText();
    }
    const uint32_t upper = readAddress & kUpperBits;
    if (announced != upper) {
        announced = upper;
        record.type = PianoRecord::kLinearAddress;
        record.data = {static_cast<unsigned char>(upper >> 24),
                       static_cast<unsigned char>((upper >> 16) & 0xFFU)};
        return record.ToText();
    }

    const uint32_t toCut = faults.readCut - readAddress % faults.readCut;
    const uint32_t count = std::min({readStep, toCut, readEnd - readAddress});
    const uint32_t address = readAddress;
    record = DataRecordAt(address, count);
    readAddress += count;
    sending = readAddress % kStretchSize != 0 || readAddress >= readEnd;

    std::string text = record.ToText();
    const auto& bad = faults.badChecksumAt;
    if (bad && *bad - address < count)
        text.back() = text.back() == '0' ? '1' : '0';
    return text;
}

PianoRecord Csp::DataRecordAt(uint32_t address, uint32_t count) const
{
    PianoRecord record;
    record.address = static_cast<uint16_t>(address & 0xFFFFU);
    for (uint32_t i = 0; i < count; ++i)
        record.data.push_back(flash.Read(address + i));
    return record;
}
