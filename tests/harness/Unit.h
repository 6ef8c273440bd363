#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Bytes.h"
#include "Clock.h"
#include "Connection.h"
#include "Patcher.h"
#include "Process.h"
#include "TempDir.h"
#include "Wait.h"

// Makes the empty directory a unit, as `simunit new` does.
void CopyNewUnit(const std::string& root);

// A simulated unit in a directory of its own, with the programs that run in it. At the end of the
// scope all of them are killed and the directory goes, unless DIAG_KEEP is set: then its path is
// printed.
class Unit {
public:
    using Words = std::vector<std::string>;

    Unit();
    ~Unit();
    Unit(const Unit&) = delete;
    Unit& operator=(const Unit&) = delete;

    // Leaves the unit's directory on the disk.
    void Keep() const { tree->Keep(); }

    // The unit's files, by their path below its root ("etc/KVT-lang").
    std::string Path(const std::string& name = "") const { return tree->Path(name); }
    std::string Read(const std::string& name) const { return tree->Read(name); }
    std::string Write(const std::string& name, const std::string& bytes) const;
    bool Exists(const std::string& name) const { return tree->Exists(name); }
    void Remove(const std::string& name) const;

    // A setting for the programs started from here on, such as "SIMUNIT_FAULT=read:3:EIO", in
    // place of an earlier one of that name.
    void Set(const std::string& variable);

    // The standard output of the programs that are started from here on, in place of a file of each
    // one's own; closed without a path.
    void SetOutput(const std::string& path) { output = path; }

    // A program of the build, by its name, in the unit. DIAG_SERVER in the environment is the path
    // of another diag_server.
    Process& Start(const std::string& program, const Words& arguments = {});
    // diag_server as a server, on a port of its own.
    Process& StartServer(const Words& arguments = {});
    // diag_server to its end.
    Process& Run(const Words& arguments, std::chrono::nanoseconds limit = kLimit);
    // simpiano, once it is ready; throws when it doesn't come up. Its flash is in flash.bin after
    // each update and at its end.
    Process& StartPiano(const Words& arguments = {});

    // The port of the server that was started last; 0 when none listens in time.
    int Port() const;

    std::string Log(const std::string& name = "diagserver.log") const;
    // What was played: "call(arguments) = result" a line, without time and process.
    std::string Journal() const;
    std::string MidiLog() const { return Read("sim/midi.log"); }
    // Waits for a text in a file of the unit.
    bool WaitFor(const std::string& name, const std::string& text,
                 std::chrono::nanoseconds limit = kLimit) const;
    bool WaitForLog(const std::string& text) const;
    bool WaitForJournal(const std::string& text) const { return WaitFor("sim/journal", text); }

    // The limits of the medium, in bytes, and the errors of the played calls, by name ("EIO").
    void Free(std::uint64_t bytes) const { Control("free", std::to_string(bytes)); }
    void FullAfter(std::uint64_t bytes) const { Control("full-after", std::to_string(bytes)); }
    void PullAfter(std::uint64_t bytes) const { Control("pull-after", std::to_string(bytes)); }
    void DspErrno(const std::string& error) const { Control("dsp-errno", error); }
    void MountErrno(const std::string& error) const { Control("mount-errno", error); }
    void UmountErrno(const std::string& error) const { Control("umount-errno", error); }

    // Puts the medium in at "usb", "cdrom" or "floppy".
    void Mount(const std::string& point) const;
    bool IsMounted(const std::string& point) const;

    // The bytes at an address of the piano's flash, as it was last saved.
    std::string Flash(std::uint32_t address, std::size_t size) const;

private:
    void Control(const std::string& name, const std::string& text) const;
    Process& Spawn(const Words& command, Words variables);

    std::unique_ptr<TempDir> tree;
    Clock clock;
    std::optional<std::string> output;
    Words environment;
    std::list<Process> processes;
};
