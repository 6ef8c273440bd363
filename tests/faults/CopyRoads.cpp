// Parameters to a medium and back.

#include "Image.h"
#include "Road.h"
#include "Server.h"

namespace {

constexpr char kParameterFile[] = "usr/local/lib/diag/csp_param.hex";
constexpr char kMediumFile[] = "medium/csp_param.rlg";

constexpr char kSuccess[] = "Copy Success.\n";
constexpr char kNoFile[] = "Parameter file is not exists.\n";
constexpr char kNotCompressed[] = "Binary file error.\n";
constexpr char kNoRoom[] = "Free Disk space error.\n";
constexpr char kCopyError[] = "Copy error.\n";
constexpr char kNoMedium[] = "Floppy in not inserted.\n";
const std::vector<Server::Text> kTexts = {kSuccess, kNoFile,    kNotCompressed,
                                          kNoRoom,  kCopyError, kNoMedium};

constexpr std::size_t kRecordSize = 32;
constexpr std::size_t kSmall = 48;
constexpr std::size_t kLarge = 0x10020;  // a record behind the first 64 KiB

// Holds that a refusal has a reason in the fault.
void HoldRefusal(const Stage& stage, const std::string& text)
{
    const bool hasReason =
        (text == kNoFile && stage.IsHit({"csp_param"})) ||
        (text == kNotCompressed && stage.IsHit({"csp_param"})) ||
        (text == kCopyError && (stage.IsHit("mount", "/mnt") || stage.IsHit({"csp_param"}))) ||
        (text == kNoMedium && stage.IsHit("umount", "/mnt"));
    Hold(hasReason, "refused for no reason: " + text);
}

std::string BackupOutcome(const Stage& stage, const std::string& text, const std::string& packed)
{
    const std::string copy = stage.unit.Read(kMediumFile);
    if (text == kSuccess) {
        if (copy == packed)
            return "copied";
        // Stdio shows a failed read as the end of the file.
        Hold(stage.IsHit("fread", "csp_param.hex") && copy.size() < packed.size(),
             "something else was copied");
        return "copied, cut by a read error";
    }
    HoldRefusal(stage, text);
    if (text == kCopyError && !stage.IsHit("mount", "/mnt"))
        return "failed and told";
    Hold(copy == "old", "the old copy is gone");
    return "refused, old copy kept";
}

std::string RestoreOutcome(const Stage& stage, const std::string& text, const std::string& whole,
                           const std::string& old)
{
    const std::string file = stage.unit.Read(kParameterFile);
    if (text == kSuccess) {
        Hold(file == whole, "something else was copied");
        return "copied, file equal";
    }
    HoldRefusal(stage, text);
    if (file == old)
        return "failed and told, old file kept";
    // The file is written in place, so what stops the last stage leaves it cut.
    Hold(stage.IsHit("write", "csp_param.hex") || stage.IsHit("read", "csp_param.bin"),
         "the old file is gone for no reason");
    return "failed and told, file cut";
}

// Carries a copy command out; the result's text, empty when the command was lost.
std::string Copy(const Stage& stage, Server& server, const std::string& command)
{
    const Server::Reply reply = server.Ask(command, kTexts);
    for (const Server::Text& text : kTexts) {
        if (!reply.Has(text))
            continue;
        server.HoldTold(reply, text);
        return text.told;
    }
    Hold(stage.IsHit({kController}), "no answer");
    return "";
}

std::string RestoreOf(Stage& stage, std::size_t size)
{
    const std::string bytes = Parameters(size);
    const std::string old = HexOf(Pattern(0x20, 13), kRecordSize);
    stage.unit.Write(kParameterFile, old);
    stage.unit.Write(kMediumFile, PackedOf(bytes));
    stage.unit.Mount("floppy");
    Server server(stage);
    if (server.IsWithoutPatcher())
        return server.End("ended without the MIDI Patcher");
    const std::string text = Copy(stage, server, "DF DF 00 C4");
    if (text.empty())
        return server.End("command lost");
    return server.End(RestoreOutcome(stage, text, HexOf(bytes, kRecordSize), old));
}

}  // namespace

std::string Backup(Stage& stage)
{
    const std::string bytes = Parameters(kSmall);
    const std::string hex = HexOf(bytes, kRecordSize);
    stage.unit.Write(kParameterFile, hex);
    stage.unit.Write(kMediumFile, "old");
    stage.unit.Mount("usb");
    Server server(stage);
    if (server.IsWithoutPatcher())
        return server.End("ended without the MIDI Patcher");
    const std::string text = Copy(stage, server, "DF DF 00 C3");
    Hold(stage.unit.Read(kParameterFile) == hex, "the parameter file has changed");
    if (text.empty())
        return server.End("command lost");
    return server.End(BackupOutcome(stage, text, PackedOf(bytes)));
}

std::string Restore(Stage& stage)
{
    return RestoreOf(stage, kSmall);
}

std::string LargeRestore(Stage& stage)
{
    return RestoreOf(stage, kLarge);
}
