#include "Exchange.h"

#include <algorithm>
#include <charconv>

namespace {

constexpr int kMaxPercent = 100;

constexpr std::string_view kConnecting = "Connecting to CSP";
constexpr std::string_view kReading = "Reading CSP ";
constexpr std::string_view kSending = "Sending Data ";
// What the unit says only while a read-back or an update runs.
constexpr std::string_view kJobTexts[] = {kConnecting, kReading, kSending};

const std::vector<Reply> kUpdateReplies = {
    {kConnecting, Effect::Starts},
    {kSending, Effect::GoesOn},
    {"CSP is not connected.", Effect::GoesOn},
    {"CSP Update Success.", Effect::Succeeds},
    {"CSP Update Failed.", Effect::Fails},
    {"Rebooting CSP...", Effect::Ends},
    {"Cannot Execute CSP Update.", Effect::Refuses},
    {"Cannot execute Parameter Update.", Effect::Refuses},
};
const std::vector<Reply> kReadReplies = {
    {kConnecting, Effect::Starts},
    {kReading, Effect::GoesOn},
    {"CSP is not connected.", Effect::GoesOn},
    {"CSP Read Success.", Effect::Succeeds},
    {"CSP Read Failed.", Effect::Fails},
    {"Rebooting CSP...", Effect::Ends},
};
const std::vector<Reply> kCopyReplies = {
    {"Copying CSP Parameters...", Effect::Starts},      {"Copy Success.", Effect::Answers},
    {"Parameter file is not exists.", Effect::Refuses}, {"Binary file error.", Effect::Refuses},
    {"Free Disk space error.", Effect::Refuses},        {"Copy error.", Effect::Refuses},
    {"Floppy in not inserted.", Effect::Refuses},
};
// A monitor ends with the latest result that it has seen.
const std::vector<Reply> kMonitorReplies = {
    {"CSP Read Success.", Effect::Succeeds},
    {"CSP Read Failed.", Effect::Fails},
    {"CSP Update Success.", Effect::Succeeds},
    {"CSP Update Failed.", Effect::Fails},
};

bool BeginsWith(std::string_view line, std::string_view text)
{
    return line.substr(0, text.size()) == text;
}

bool IsJobText(std::string_view line)
{
    return std::any_of(std::begin(kJobTexts), std::end(kJobTexts),
                       [&](std::string_view text) { return BeginsWith(line, text); });
}

}  // namespace

// clang-format off
const std::vector<Command>& Commands()
{
    static const std::vector<Command> commands = {
        {"version", "the text or the version that the unit answers with",
         Wait::Replies, 0xDFDFDFDF, {{"", Effect::Answers}}},
        {"version on", "from now on answer with the version", Wait::Taken, 0xDFDFDFE0, {}},
        {"version off", "from now on answer with the text", Wait::Taken, 0xDFDFDFE1, {}},
        {"find-update", "look for a firmware file on the media and load it",
         Wait::Replies, 0xDFDF00AA,
         {{"[ System version: Update File ]", Effect::Heads},
          {"Update File is not exsit.", Effect::Refuses}}},
        {"update", "write the firmware file that was found",
         Wait::Replies, 0xDFDF00BB, kUpdateReplies},
        {"find-parameters", "look for the unit's parameter file and load it",
         Wait::Replies, 0xDFDF00C1,
         {{"[ Parameter Back Up File ]", Effect::Starts},
          {"CSP Parameter : ", Effect::Answers},
          {"Parameter File is not exsit.", Effect::Refuses}}},
        {"update-parameters", "write the parameter file that was found",
         Wait::Replies, 0xDFDF00C2, kUpdateReplies},
        {"read", "read the parameters back into the unit's file; a success ends the server",
         Wait::Replies, 0xDFDF00C0, kReadReplies},
        {"backup", "copy the parameter file to the medium",
         Wait::Replies, 0xDFDF00C3, kCopyReplies},
        {"restore", "copy the parameter file from the medium",
         Wait::Replies, 0xDFDF00C4, kCopyReplies},
        {"send", "send BYTES, in hex, and show what comes back for 2 seconds",
         Wait::Window, 0, {}},
        {"monitor", "show everything until the unit ends the connection",
         Wait::Close, 0, kMonitorReplies},
    };
    return commands;
}
// clang-format on

const Command* FindCommand(std::string_view name)
{
    const auto& commands = Commands();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const Command& command) { return command.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

std::string GroupBytes(const Command& command)
{
    std::string bytes;
    for (unsigned shift = 24; command.group != 0 && bytes.size() < 4; shift -= 8)
        bytes += static_cast<char>(command.group >> shift & 0xFF);
    return bytes;
}

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

bool Exchange::Take(std::string_view line)
{
    if (headed) {
        End(Status::Success, {});
        return true;
    }
    const auto fits = [&](const Reply& reply) { return BeginsWith(line, reply.text); };
    const auto found = std::find_if(command.replies.begin(), command.replies.end(), fits);
    const Effect effect = found == command.replies.end() ? Effect::Nothing : found->effect;

    // Somebody else's work: the unit has dropped this command without a word.
    const bool isOwn = effect == Effect::Starts || (started && effect != Effect::Nothing);
    if (command.wait == Wait::Replies && IsJobText(line) && !isOwn) {
        End(Status::NoAnswer, "the unit is busy with a read-back or an update");
        return true;
    }
    SetResult(effect, line);
    return effect != Effect::Nothing || command.wait == Wait::Close;
}

void Exchange::SetResult(Effect effect, std::string_view line)
{
    switch (effect) {
    case Effect::Nothing:
    case Effect::GoesOn: break;
    case Effect::Starts: started = true; break;
    case Effect::Heads: headed = true; break;
    case Effect::Succeeds:
        status = Status::Success;
        reason.clear();
        break;
    case Effect::Fails:
        status = Status::UnitFailed;
        reason = line;
        break;
    case Effect::Answers: End(Status::Success, {}); break;
    case Effect::Refuses: End(Status::UnitFailed, line); break;
    // The end of work that was under way before doesn't end this one.
    case Effect::Ends: ended = status.has_value(); break;
    }
}

Status Exchange::ResultAt(bool close) const
{
    const Wait wait = command.wait;
    const bool isExpected =
        close ? wait == Wait::Taken || wait == Wait::Close : wait == Wait::Window;
    if (status || isExpected)
        return Result();
    return close ? Status::Connection : Status::NoAnswer;
}

void Exchange::End(Status with, std::string_view why)
{
    status = with;
    reason = why;
    ended = true;
}
