#include "Unit.h"

#include <iostream>
#include <regex>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// The command that runs a program for another processor; empty when it is for this one.
const Words kEmulator = {DIAG_EMULATOR};

// An emulator is a program of this machine, so only the program in it gets the library.
std::string Preload()
{
    const std::string preload = "LD_PRELOAD=" + Program("libsimunit.so");
    return kEmulator.empty() ? preload : "QEMU_SET_ENV=" + preload;
}

}  // namespace

std::string Program(const std::string& name)
{
    return std::string(DIAG_BUILD_DIRECTORY) + "/" + name;
}

std::string OwnPort()
{
    return std::to_string(10000 + getpid() % 20000);
}

void CopyNewUnit(const std::string& root)
{
    fs::copy(DIAG_NEW_UNIT, root, fs::copy_options::recursive);
}

Unit::Unit(const std::string& faults) : pianoFaults(Split(faults))
{
    CopyNewUnit(Path());
    clock.emplace(Path("sim/clock"));
    SetClock(&*clock);
    if (Contains(faults, ":")) {
        Set("SIMUNIT_FAULT=" + pianoFaults[0]);
        pianoFaults.erase(pianoFaults.begin());
    }
    Set("LSAN_OPTIONS=print_suppressions=0:suppressions=" DIAG_LEAKS);
}

Unit::~Unit()
{
    processes.clear();
    SetClock(nullptr);
    const std::string journal = Read("sim/journal");
    if (Contains(journal, "stray ")) {
        std::cerr << "writes outside the unit: " << journal.substr(journal.find("stray "));
        std::abort();
    }
    if (std::getenv("DIAG_KEEP") != nullptr) {
        Keep();
        std::cerr << "kept: " << Path() << "\n";
    }
}

Process& Unit::Spawn(const Words& command, const Words& variables)
{
    const std::string streams =
        Path("sim/" + fs::path(command[0]).filename().string() + std::to_string(processes.size()));
    return processes.emplace_back(Process::Setup{
        Join(kEmulator, command),
        Join(variables, {Preload(), "SIMUNIT_CLOCK=" + Path("sim/clock")}), Path("cwd"),
        output.value_or(streams + ".out"), output == "" ? "" : streams + ".err", &*clock});
}

Process& Unit::Start(const std::string& program, const Words& arguments)
{
    return Spawn(Join({Program(program)}, arguments),
                 Join(environment, {"SIMUNIT_ROOT=" + Path()}));
}

Process& Unit::Run(const Words& arguments)
{
    Process& program = Start("diag_server", arguments);
    program.Wait();
    return program;
}

int Unit::AwaitEnd(Process& program, std::chrono::nanoseconds limit) const
{
    const int status = program.Wait(limit);
    Check(status != -1, "it hangs: " + program.Error());
    Check(Contains("\n" + Journal(), "\nexit descriptors=0\n"), "a descriptor is left");
    return status;
}

Process& Unit::StartPiano(const Words& arguments)
{
    // The flash is saved again and again, so it ends soon after the parameters.
    const Words command{Program("simpiano"), "--root", Path(), "--save",
                        Path("flash.bin"),   "--size", "A1000"};
    Process& piano = Spawn(Join(command, Join(arguments, std::exchange(pianoFaults, {}))), {});
    Check(WaitUntil([&] { return piano.Output() == "ready\n"; }), piano.Error());
    return piano;
}

int Unit::Port() const
{
    const std::string listens = "listen(tcp ";
    if (!WaitForJournal(listens))
        return 0;
    const std::string journal = Journal();
    return std::stoi(journal.substr(journal.rfind(listens) + listens.size()));
}

std::string Unit::LogTexts(const std::string& path) const
{
    static const std::regex stamp("\\d\\d/\\d\\d/\\d\\d/\\d\\d:\\d\\d:\\d\\d - ");
    return std::regex_replace(Log(path), stamp, "");
}

std::string Unit::Journal() const
{
    static const std::regex timeAndProcess("(^|\n)\\S+ +\\S+ +");
    return std::regex_replace(Read("sim/journal"), timeAndProcess, "$1");
}

bool Unit::WaitFor(const std::string& name, const std::string& text) const
{
    return WaitUntil([&] { return Contains(Read(name), text); });
}

void Unit::Control(const std::string& name, const std::string& text) const
{
    // Atomic, since the program may be reading it.
    fs::rename(Write("sim/" + name + ".new", text + "\n"), Path("sim/" + name));
}

void Unit::Mount(const std::string& point) const
{
    const std::string device = Exists("sim/device") ? Read("sim/device") : "/dev/sda";
    Write("sim/mounts", Read("sim/mounts") + device + " /mnt/" + point + " vfat rw,relatime 0 0\n");
}

std::string Unit::Flash(std::size_t size) const
{
    constexpr std::size_t kParameters = 0x40000;
    const std::string flash = Read("flash.bin");
    return flash.substr(std::min(kParameters, flash.size()), size);
}
