// The update's state machine: a step of each status.

#include "TUpdater.h"

#include "Console.h"
#include "HexFormat.h"
#include "Trace.h"
#include "UpdateMode.h"

namespace {

Step GiveUp(const UpdateMode& mode, const char* text)
{
    mode.PrintAlone(text);
    mode.LogAlone(text);
    return Step::Failed;
}

}  // namespace

int TUpdater::UpdateStatus()
{
    return ToInt(TakeStep(UpdateMode::Alone(midi.get())));
}

int TUpdater::UpdateStatusDiag(TMidiCom* link, TZaurusCom* controller)
{
    Trace("Update Status APE\n");
    return ToInt(TakeStep(UpdateMode::InServer(link, controller)));
}

Step TUpdater::TakeStep(const UpdateMode& mode)
{
    switch (updateStatus) {
    case Status::Connect: return StepConnect(mode);
    case Status::Request: return StepRequest(mode);
    case Status::StartData: return StepStartData(mode);
    case Status::Transfer: return StepTransfer(mode);
    case Status::Finished: return StepFinished(mode);
    case Status::Failed: return StepFailed(mode);
    default: return EndOfStep(mode);
    }
}

// An update goes on even if the CSP never reported that it is idle.
Step TUpdater::StepConnect(const UpdateMode& mode)
{
    if (!mode.spacesFlashMode || CountToSend(flashModeCounter)) {
        AskForStatus(mode.midi, kWriteFlashMode, mode.flashModeWait);
        mode.PrintAlone("Send Flash Mode TUpdater Update\n");
        mode.SendInServer(kConnectingText);
    }
    if (IsSilent())
        EnterStatus(Status::Request);
    return EndOfStep(mode);
}

// The request goes out with every step until the CSP answers: alone at least once a second.
Step TUpdater::StepRequest(const UpdateMode& mode)
{
    rows.Rewind();
    SendLine(mode.midi, "WRITE  :");
    mode.PrintAlone("Send WriteCommand\n");
    if (!IsSilent())
        return EndOfStep(mode);
    mode.SendInServer(kNotConnectedText);
    return GiveUp(mode, "Piano is not connected 2\n");
}

// An image without rows sends nothing, and silence ends its update. The texts here and below call
// the piano side APE or CSP, whichever of the two is connected.
Step TUpdater::StepStartData(const UpdateMode& mode)
{
    mode.LogAlone("Start CSP Update\n");
    rows.Begin();
    SendIntelHex(mode.midi, 0, kWriteBlock);
    EnterStatus(Status::Transfer);
    mode.PrintAlone("Start APE Update\n");
    return EndOfStep(mode);
}

// Silence after a refused block sends that block once more, since it may have been lost on its way.
// Any other silence ends the update.
Step TUpdater::StepTransfer(const UpdateMode& mode)
{
    if (!IsSilent())
        return EndOfStep(mode);
    if (ngAddress == 0 || !mode.resendsRefused) {
        constexpr char kNoReply[] = "Piano is no reply\n";
        mode.LogAlone(kNoReply);  // before it is printed, unlike in GiveUp
        mode.PrintAlone(kNoReply);
        return Step::Failed;
    }
    SendIntelHex(mode.midi, ngAddress, kWriteBlock);
    ngAddress = 0;
    updateCounter = 0;
    return EndOfStep(mode);
}

Step TUpdater::StepFinished(const UpdateMode& mode)
{
    mode.PrintAlone("APE Update Finished\n");
    mode.LogAlone("CSP Update Finished\n");
    if (renameFile && !mode.inServer)
        RenameImage();
    return Step::Done;
}

// A restart begins at the request: the CSP is in flash mode already.
Step TUpdater::StepFailed(const UpdateMode& mode)
{
    const Step failed = GiveUp(mode, "CSP Update Failed\n");
    if (retryCount >= mode.restarts)
        return failed;
    ++retryCount;
    EnterStatus(Status::Request);
    return Step::GoesOn;
}

Step TUpdater::EndOfStep(const UpdateMode& mode) const
{
    if (errorCounter <= kErrorLimit)
        return Step::GoesOn;
    return GiveUp(mode, "Piano Comunication Error !\n");
}

void TUpdater::EnterStatus(int status)
{
    updateStatus = status;
    updateCounter = 0;
}

bool TUpdater::IsSilent() const
{
    return updateCounter > kSilenceLimit;
}
