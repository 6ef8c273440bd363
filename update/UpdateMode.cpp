#include "UpdateMode.h"

#include "Log.h"
#include "Trace.h"
#include "UnitPaths.h"

UpdateMode UpdateMode::Alone(TMidiCom* midi)
{
    UpdateMode mode;
    mode.midi = midi;
    return mode;
}

UpdateMode UpdateMode::InServer(TMidiCom* midi, TZaurusCom* zaurus)
{
    UpdateMode mode;
    mode.inServer = true;
    mode.midi = midi;
    mode.zaurus = zaurus;
    mode.restarts = 0;
    mode.flashModeWait = 0;
    mode.spacesFlashMode = false;
    mode.resendsRefused = false;
    mode.takesAnyOk = false;
    mode.takesBusy = false;
    mode.anyAnswerEndsSilence = false;
    return mode;
}

void UpdateMode::PrintAlone(const char* text) const
{
    if (!inServer)
        Trace(text);
}

void UpdateMode::LogAlone(const char* text) const
{
    if (!inServer)
        static_cast<void>(AddLogFile(kUpdateLog, text));
}

void UpdateMode::PrintInServer(const char* text) const
{
    if (inServer)
        Trace(text);
}

void UpdateMode::SendInServer(const char* text) const
{
    if (inServer)
        SendToController(zaurus, text);
}
