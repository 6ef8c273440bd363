#pragma once

#include <optional>

#include "Clock.h"
#include "Process.h"
#include "TempDir.h"
#include "Texts.h"
#include "UnitPaths.h"
#include "Wait.h"

// Where the logs and the lock file are.
inline const std::string kLogFolder = kLogDirectory;

// The path of a program or a library of the build.
std::string Program(const std::string& name);

// A port that differs for each process of the tests, and is below those that the system chooses.
std::string OwnPort();

// A simulated unit, whose files have their paths below its root ("etc/KVT-lang"), with the programs
// that run in it. At the end of the scope they are killed and the directory is removed, unless
// DIAG_KEEP is set: then its path is printed.
class Unit : public TempDir {
public:
    // What fails: a call of a program, "write:3:EIO" or "open@fw.hex:EIO", and then the first
    // piano, as an option of simpiano describes it, "--die-after 12". Either may be missing.
    explicit Unit(const std::string& faults = "");
    ~Unit();

    void Remove(const std::string& name) const { std::filesystem::remove_all(Path(name)); }

    // A setting for the programs started from now on, such as "SIMUNIT_FAULT=read@.rlg:EIO". It
    // replaces an earlier one of that name.
    void Set(const std::string& variable) { environment.push_back(variable); }

    // The standard output of the programs started from now on, instead of a file for each. Without
    // a path it is closed, and standard error with it.
    void SetOutput(const std::string& path) { output = path; }

    // Starts a program of the build in the unit. Run waits for the end of diag_server.
    Process& Start(const std::string& program, const Words& arguments = {});
    Process& Run(const Words& arguments);
    // Waits for the end of a program, which must leave no descriptor open. Returns its status.
    int AwaitEnd(Process& program, std::chrono::nanoseconds limit = kLimit) const;
    // Starts simpiano and waits until it is ready. Its flash is in flash.bin after each update and
    // at its end.
    Process& StartPiano(const Words& arguments = {});

    // The port of the server started last; 0 when none listens in time.
    int Port() const;

    std::string Log(const std::string& path = kServerLog) const { return Read(path); }
    // Its entries without their time stamps.
    std::string LogTexts(const std::string& path = kServerLog) const;
    // The simulated calls, "call(arguments) = result" on each line, without time and process.
    std::string Journal() const;
    std::string MidiLog() const { return Read("sim/midi.log"); }
    // Waits for a text in a file of the unit.
    bool WaitFor(const std::string& name, const std::string& text) const;
    bool WaitForLog(const std::string& text) const { return WaitFor(kServerLog, text); }
    bool WaitForJournal(const std::string& text) const { return WaitFor("sim/journal", text); }

    // Changes a setting of the simulation: the bytes that the medium accepts ("full-after",
    // "pull-after", "free"), its device ("device"), the error of mount ("mount-errno"), or orders
    // to the piano ("say").
    void Control(const std::string& name, const std::string& text) const;
    // Mounts the medium at "usb", "cdrom" or "floppy", as the unit does when one is inserted.
    void Mount(const std::string& point) const;

    // The first bytes of the parameter flash, as the piano has last saved it.
    std::string Flash(std::size_t size) const;

private:
    Process& Spawn(const Words& command, const Words& variables);

    std::optional<Clock> clock;
    std::optional<std::string> output;
    Words environment;
    Words pianoFaults;
    std::list<Process> processes;
};
