// Console lines of any content into both state machines, in both modes, with steps and silence
// between them.

#include <cstring>

#include "FuzzInput.h"
#include "TCspReader.h"
#include "TUpdater.h"

static const char kImage[] = ":020000049004"
                             "66\r\n"
                             ":041FFC0001020304D7\r\n"
                             ":043FFC0001020304B7\r\n"
                             ":0404000056312E3032"
                             "16\r\n"
                             ":00000001FF\r\n";

namespace {

// One byte says what happens next: silence, or a line that follows it.
template <class Machine>
void Drive(Machine& machine, const std::uint8_t* data, std::size_t size)
{
    Feed feed(data, size);
    int result = machine.Step();
    while (!feed.IsEmpty() && result > 0) {
        if (feed.Byte() % 4 == 0) {
            machine.Silence();
        } else {
            const std::string line = feed.Line() + "\r\n";
            machine.Say(line.c_str(), static_cast<int>(std::strlen(line.c_str())));
        }
        result = machine.Step();
        Require(result >= -1 && result <= 1);
    }
}

struct Links {
    Links() { midi.Set_connecttype(225); }
    TMidiCom midi;
    TZaurusCom zaurus;
};

struct Update : Links {
    explicit Update(bool server) : inServer(server)
    {
        const MemoryFile file(reinterpret_cast<const std::uint8_t*>(kImage), sizeof(kImage) - 1);
        Require(updater.LoadIntelHex(file.Path().c_str(), nullptr) == 0);
        updater.midi = &midi;
        Require(updater.SetUpdateStatus(Connect));
    }
    ~Update() { updater.midi = nullptr; }
    int Step()
    {
        const int result =
            inServer ? updater.UpdateStatusDiag(&midi, &zaurus) : updater.UpdateStatus();
        Require(updater.lineIndex >= 0 && updater.lineIndex <= updater.hexFile->lineCount);
        return result;
    }
    void Silence()
    {
        if (inServer)
            updater.IncUpdateCounter();
        else
            updater.updateCounter += 10;
    }
    void Say(const char* line, int length)
    {
        if (inServer)
            updater.GetCSPMessageDiag(&midi, &zaurus, line, length);
        else
            updater.GetCSPMessage(line, length);
    }
    bool inServer;
    TUpdater updater;
};

struct Read : Links {
    Read()
    {
        reader.SetReaderParameter(0, 0, "/dev/null");
        reader.SetReaderStatus(Connect);
    }
    int Step() { return reader.UpdateStatus(&midi, &zaurus); }
    void Silence() { reader.IncReaderCounter(); }
    void Say(const char* line, int length) { reader.GetCSPMessage(&midi, &zaurus, line, length); }
    TCspReader reader;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Update alone(false);
    Drive(alone, data, size);
    Update inServer(true);
    Drive(inServer, data, size);
    Read read;
    Drive(read, data, size);
    return 0;
}
