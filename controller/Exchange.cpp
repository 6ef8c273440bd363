#include "Exchange.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <utility>

namespace {

constexpr int kMaxPercent = 100;
constexpr int kMostAdded = 4;  // lines that a unit with --strict adds to a result

constexpr std::string_view kServiceText = "KVT : Update the Service Center.";
constexpr std::string_view kConnecting = "Connecting to CSP";
constexpr std::string_view kReading = "Reading CSP ";
constexpr std::string_view kSending = "Sending Data ";
constexpr std::string_view kRestarting = "Rebooting CSP...";
constexpr std::string_view kReadSuccess = "CSP Read Success.";
constexpr std::string_view kReadFailure = "CSP Read Failed.";
constexpr std::string_view kUpdateSuccess = "CSP Update Success.";
constexpr std::string_view kUpdateFailure = "CSP Update Failed.";

struct Phase {
    std::string_view text;
    std::string_view name;
};
constexpr Phase kPhases[] = {
    {kConnecting, "connecting"},
    {kReading, kReadingPhase},
    {kSending, kWritingPhase},
    {kRestarting, "restarting"},
};

// Another client's work sends the same texts. The answer to the version request that precedes the
// command shows that they are this one's.
const std::vector<Reply> kUpdateReplies = {
    {kServiceText, Effect::Marks},
    {kConnecting, Effect::GoesOn},
    {kSending, Effect::GoesOn},
    {"CSP is not connected.", Effect::GoesOn},
    {kUpdateSuccess, Effect::Succeeds},
    {kUpdateFailure, Effect::Fails},
    {kRestarting, Effect::Ends},
    {"Cannot Execute CSP Update.", Effect::Refuses},
    {"Cannot execute Parameter Update.", Effect::Refuses},
};
const std::vector<Reply> kReadReplies = {
    {kServiceText, Effect::Marks},    {kConnecting, Effect::GoesOn},
    {kReading, Effect::GoesOn},       {"CSP is not connected.", Effect::GoesOn},
    {kReadSuccess, Effect::Succeeds}, {kReadFailure, Effect::Fails},
    {kRestarting, Effect::Ends},
};
const std::vector<Reply> kCopyReplies = {
    {"Copying CSP Parameters...", Effect::Starts},      {"Copy Success.", Effect::Copies},
    {"Parameter file is not exists.", Effect::Refuses}, {"Binary file error.", Effect::Refuses},
    {"Free Disk space error.", Effect::Refuses},        {"Copy error.", Effect::Refuses},
    {"Floppy in not inserted.", Effect::Refuses},
};
// A monitor ends with the latest result that it has seen.
const std::vector<Reply> kMonitorReplies = {
    {kReadSuccess, Effect::Succeeds},
    {kReadFailure, Effect::Fails},
    {kUpdateSuccess, Effect::Succeeds},
    {kUpdateFailure, Effect::Fails},
};

constexpr std::uint32_t kAskVersion = 0xDFDFDFDF;
constexpr std::uint32_t kAnswerRelease = 0xDFDFDFE0;
constexpr std::uint32_t kAnswerService = 0xDFDFDFE1;

bool BeginsWith(std::string_view line, std::string_view text)
{
    return line.substr(0, text.size()) == text;
}

bool EndsWith(std::string_view line, std::string_view text)
{
    return line.size() >= text.size() && line.substr(line.size() - text.size()) == text;
}

// Texts that the unit sends only while a read-back or an update runs.
bool IsWork(std::string_view line)
{
    return BeginsWith(line, kConnecting) || BeginsWith(line, kReading) ||
           BeginsWith(line, kSending) || BeginsWith(line, kRestarting);
}

bool IsNote(std::string_view line)
{
    return line.find(": not verified, since ") != std::string_view::npos;
}

// Adds a line to a text of one line.
void Append(std::string& text, std::string_view line)
{
    const bool isUnits = !text.empty() && text.back() == '.';
    text += text.empty() ? "" : isUnits ? " " : "; ";
    text += line;
}

// Texts with which work ends.
bool IsResult(std::string_view line)
{
    return EndsWith(line, kReadSuccess) || EndsWith(line, kReadFailure) ||
           EndsWith(line, kUpdateSuccess) || EndsWith(line, kUpdateFailure);
}

// What belongs to work that the command has started.
bool IsOfWork(Effect effect)
{
    return effect == Effect::GoesOn || effect == Effect::Succeeds || effect == Effect::Fails ||
           effect == Effect::Ends;
}

// The percentage that the line ends with, if it does.
std::optional<int> PercentOf(std::string_view line)
{
    if (line.empty() || line.back() != '%')
        return std::nullopt;
    line.remove_suffix(1);
    line.remove_prefix(line.find_last_of(' ') + 1);
    int percent = 0;
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), percent);
    const bool isNumber = error == std::errc() && end == line.data() + line.size();
    return isNumber && percent >= 0 && percent <= kMaxPercent ? std::optional(percent)
                                                              : std::nullopt;
}

}  // namespace

// clang-format off
const std::vector<Query>& Queries()
{
    // Nothing in the answer to a command shows that it is one, unless a version with the service
    // text is requested in the same write: the unit answers all of it or, when it is busy, nothing.
    static const std::vector<Query> queries = {
        {"version", "the unit's release; the unit goes on answering with the service text",
         Wait::Replies,
         {kAnswerService, kAskVersion, kAnswerRelease, kAskVersion, kAnswerService, kAskVersion},
         {{kServiceText, Effect::Heads}}},
        {"version on", "from now on the unit answers controllers with the release", Wait::Replies,
         {kAnswerService, kAskVersion, kAnswerRelease}, {{kServiceText, Effect::Confirms}}},
        {"version off", "from now on it answers with the service text", Wait::Replies,
         {kAnswerService, kAskVersion}, {{kServiceText, Effect::Confirms}}},
        {"find-update", "look for a firmware file on the media and load it", Wait::Replies,
         {0xDFDF00AA},
         {{"[ System version: Update File ]", Effect::Finds},
          {"Update File is not exsit.", Effect::Refuses}}},
        {"update", "write the firmware file that was found", Wait::Replies,
         {kAnswerService, kAskVersion, 0xDFDF00BB}, kUpdateReplies},
        {"find-parameters", "look for the unit's parameter file and load it", Wait::Replies,
         {0xDFDF00C1},
         {{"[ Parameter Back Up File ]", Effect::Starts},
          {"CSP Parameter : ", Effect::Answers},
          {"Parameter File is not exsit.", Effect::Refuses}}},
        {"update-parameters", "write the parameter file that was found", Wait::Replies,
         {kAnswerService, kAskVersion, 0xDFDF00C2}, kUpdateReplies},
        {"read", "read the parameters back into the unit's file; a success ends the server",
         Wait::Replies, {kAnswerService, kAskVersion, 0xDFDF00C0}, kReadReplies},
        {"backup", "copy the parameter file to the medium", Wait::Replies, {0xDFDF00C3},
         kCopyReplies},
        {"restore", "copy the parameter file from the medium", Wait::Replies, {0xDFDF00C4},
         kCopyReplies},
        {"send", "send bytes, in hex, and show what comes back for 2 seconds", Wait::Window, {},
         {}},
        {"monitor", "show everything until the unit ends the connection", Wait::Close, {},
         kMonitorReplies},
    };
    return queries;
}
// clang-format on

const Query& QueryOf(std::string_view command)
{
    const auto& queries = Queries();
    const auto found = std::find_if(queries.begin(), queries.end(),
                                    [&](const Query& query) { return query.command == command; });
    assert(found != queries.end());
    return *found;
}

std::string GroupBytes(const Query& query)
{
    std::string bytes;
    for (const std::uint32_t group : query.groups) {
        for (unsigned shift = 32; shift > 0; shift -= 8)
            bytes += static_cast<char>(group >> (shift - 8) & 0xFFU);
    }
    return bytes;
}

std::optional<Progress> ProgressOf(std::string_view line)
{
    for (const Phase& phase : kPhases) {
        if (BeginsWith(line, phase.text))
            return Progress{phase.name, PercentOf(line)};
    }
    return std::nullopt;
}

std::string TextOf(const Progress& progress)
{
    const std::string phase(progress.phase);
    return progress.percent ? phase + ", " + std::to_string(*progress.percent) + " %" : phase;
}

bool Exchange::Take(std::string_view line)
{
    if (IsAnswerNext()) {
        TakeAnswer(line);
        return true;
    }
    if (IsResult(line))
        serverEnds = EndsWith(line, kReadSuccess);
    return TakeKnown(EffectOf(line), line);
}

bool Exchange::TakeKnown(Effect effect, std::string_view line)
{
    const bool isKnown = effect != Effect::Nothing || IsWork(line);
    if (status && !isKnown && query->wait == Wait::Replies) {
        Explain(line);
        return true;
    }
    if (IsExplaining()) {
        state = State::Ended;
        return false;
    }
    // Another's work: the unit has dropped this command without a word, or will.
    if (state == State::Sent && (IsWork(line) || IsOfWork(effect))) {
        if (IsWork(line))
            otherWork = ProgressOf(line);
        return false;
    }
    if (effect != Effect::Nothing)
        otherWork.reset();  // it has ended, or this command would have been dropped
    Apply(effect, line);
    return effect != Effect::Nothing || query->wait == Wait::Close;
}

// Bytes of the piano, which have no line end, may stand before a text.
Effect Exchange::EffectOf(std::string_view line) const
{
    for (const Reply& reply : query->replies) {
        if (BeginsWith(line, reply.text) || EndsWith(line, reply.text))
            return reply.effect;
    }
    return Effect::Nothing;
}

bool Exchange::EndsWork(std::string_view line)
{
    return BeginsWith(line, kRestarting);
}

std::string_view Exchange::CompletedPhase(std::string_view line) const
{
    if (state != State::Taken || EffectOf(line) != Effect::Succeeds)
        return {};
    return EndsWith(line, kReadSuccess) ? kReadingPhase : kWritingPhase;
}

// If the release file has no line end, the next answer follows in the same line; if there is no
// release line, the line is that answer alone.
void Exchange::TakeAnswer(std::string_view line)
{
    const bool hasService = EndsWith(line, kServiceText);
    if (hasService)
        line.remove_suffix(kServiceText.size());
    answer = line;
    if (hasService && line.empty())
        End(State::Ended, Status::Failed, "the unit has no release line");
    else
        End(state == State::Found ? State::Explaining : State::Ended, Status::Success, {});
}

// After a success only what there is to add about a file that was found or copied.
void Exchange::Explain(std::string_view line)
{
    const bool isExpected = IsExplaining() || status == Status::Failed;
    if (!isExpected || added == kMostAdded)
        return;
    if (IsNote(line))
        Append(note, line);
    else if (state != State::Noting)
        Append(reason, line);
    if (++added == kMostAdded && IsExplaining())
        state = State::Ended;
}

void Exchange::Apply(Effect effect, std::string_view line)
{
    switch (effect) {
    case Effect::Nothing:
    case Effect::GoesOn: break;
    case Effect::Marks:
    case Effect::Starts: state = State::Taken; break;
    case Effect::Heads: state = State::Headed; break;
    case Effect::Finds: state = State::Found; break;
    case Effect::Succeeds: End(state, Status::Success, {}); break;
    case Effect::Fails: End(state, Status::Failed, line); break;
    case Effect::Answers:
        answer = line;
        End(State::Explaining, Status::Success, {});
        break;
    case Effect::Confirms: End(State::Ended, Status::Success, {}); break;
    case Effect::Copies: End(State::Noting, Status::Success, {}); break;
    case Effect::Refuses: End(State::Explaining, Status::Failed, line); break;
    case Effect::Ends: EndWork(); break;
    }
}

// The reasons for a failure come before this or after it.
void Exchange::EndWork()
{
    if (!status || query->wait == Wait::Close)
        return;
    const bool isExplained = status == Status::Success || added > 0;
    state = isExplained ? State::Ended : State::Explaining;
}

// A server closes the connection by itself after a read-back that succeeded.
Status Exchange::ResultAt(bool close) const
{
    if (!close)
        return status || query->wait == Wait::Window ? Result() : Status::NoAnswer;
    if (query->wait == Wait::Close)
        return serverEnds ? Status::Success : Status::Connection;
    return status.value_or(Status::Connection);
}

void Exchange::End(State with, Status how, std::string_view why)
{
    state = with;
    status = how;
    reason = why;
    note.clear();
    added = 0;
}
