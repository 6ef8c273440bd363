#include "Scene.h"

#include <cstdlib>
#include <filesystem>
#include <sstream>

#include <gtest/gtest.h>

#include "HexText.h"

namespace {

constexpr std::size_t kVersionAt = 0x400;
constexpr std::size_t kStampSize = 20;  // "06/03/14/09:05:07 - "
constexpr char kRebooting[] = "Rebooting CSP...\n";
constexpr char kPianoOn[] = "ioctl(/dev/PciDsp, 33, 0xc01)";

// Runs a shell command. False when it fails or isn't there.
bool Shell(const std::string& command)
{
    // NOLINTNEXTLINE(cert-env33-c): the test's own words
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

}  // namespace

std::string FirmwareOf(const std::string& version, std::size_t size)
{
    std::string bytes = Firmware(size);
    bytes.replace(kVersionAt, version.size() + 1, version.c_str(), version.size() + 1);
    return bytes;
}

std::string PackedText(const std::string& data)
{
    std::string packed = "\x04\x90";
    for (const char byte : data)
        packed += byte == '\xDD' ? std::string("\xDD\xDD\x01") : std::string(1, byte);
    return packed;
}

std::string BytesOf(const Unit& unit, const std::string& name)
{
    const std::string from = unit.Path(name);
    const std::string to = unit.Path("sim/bytes.bin");
    EXPECT_TRUE(Shell("srec_cat " + from + " -Intel -offset -0x90040000 -o " + to + " -Binary || " +
                      "objcopy -I ihex -O binary " + from + " " + to));
    return unit.Read("sim/bytes.bin");
}

std::string LogTexts(const Unit& unit, const std::string& name)
{
    std::istringstream lines(unit.Log(name));
    std::string texts;
    for (std::string line; std::getline(lines, line);)
        texts += line.substr(std::min(kStampSize, line.size())) + "\n";
    return texts;
}

std::vector<std::string> Events(const Unit& unit, const std::string& start)
{
    std::istringstream lines(unit.MidiLog());
    std::vector<std::string> events;
    std::string stamp;
    for (std::string event; lines >> stamp && std::getline(lines >> std::ws, event);)
        if (event.compare(0, start.size(), start) == 0)
            events.push_back(event);
    return events;
}

std::string LinesOf(const std::string& text, const std::string& start)
{
    std::istringstream lines(text);
    std::string found;
    for (std::string line; std::getline(lines, line);)
        if (line.compare(0, start.size(), start) == 0)
            found += line + "\n";
    return found;
}

std::size_t Count(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

bool EndsClean(const Unit& unit, Process& program)
{
    const int status = program.Wait();
    const std::string journal = unit.Journal();
    EXPECT_EQ(status, 0) << program.Error();
    EXPECT_EQ(LinesOf(journal, "exit"), "exit descriptors=0\n");
    return status == 0;
}

bool TellPiano(const Unit& unit, const std::string& text)
{
    std::filesystem::rename(unit.Write("sim/say.new", text + "\n"), unit.Path("sim/say"));
    return WaitUntil([&] { return !unit.Exists("sim/say"); });
}

void FailReadBack(Patcher& patcher)
{
    ASSERT_TRUE(patcher.WaitForLine("STATUS"));
    patcher.SendLines({"Status:Flash Idle", "Start READ"});
    ASSERT_TRUE(patcher.WaitForLine("NEXT   :"));
    patcher.SendLines({"no record"});
}

OpenServer::OpenServer(const Unit::Words& pianoOptions, const std::string& faults)
    : piano(&unit.StartPiano(pianoOptions)), server(nullptr)
{
    Open(faults);
}

void OpenServer::Open(const std::string& faults)
{
    const std::size_t restarts = Count(unit.Journal(), kPianoOn);
    // Taken as soon as the link is up, so before anything is asked.
    unit.Write("sim/say", "@faults " + faults + "\n");
    server = &unit.StartServer();
    EXPECT_TRUE(WaitUntil([&] { return Count(unit.Journal(), kPianoOn) > restarts; }))
        << server->Error();
    SetFaults("");
    Connect();
}

std::string OpenServer::Ask(const std::string& groups, const std::string& until)
{
    const std::size_t before = controller->Received().size();
    EXPECT_TRUE(controller->Send(Bytes(groups)));
    EXPECT_TRUE(WaitUntil([&] {
        return controller->Received().find(until, before) != std::string::npos;
    })) << groups
        << " isn't answered with " << until;
    return controller->Received().substr(before);
}

std::string OpenServer::AskAndReboot(const std::string& groups)
{
    const std::size_t restarts = Count(unit.Journal(), kPianoOn);
    std::string answers = Ask(groups, kRebooting);
    EXPECT_TRUE(WaitUntil([&] { return Count(unit.Journal(), kPianoOn) > restarts; }));
    return answers;
}

void OpenServer::SetFaults(const std::string& options)
{
    EXPECT_TRUE(TellPiano(unit, "@faults " + options));
}

bool OpenServer::HasLogged(const std::string& text) const
{
    return WaitUntil([&] { return LogTexts(unit).find(text) != std::string::npos; });
}

void OpenServer::PutParameters(const std::string& data) const
{
    unit.Write("usr/local/lib/diag/csp_param.hex", HexText(data, 32, "\r\n"));
}
