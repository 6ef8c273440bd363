// The update's state machine: a step of each status. Where the two modes differ, the rule of the
// server follows that of update mode.

#include "TUpdater.h"

#include "HexFormat.h"
#include "Trace.h"

int TUpdater::UpdateStatus()
{
    return ToInt(TakeStep());
}

int TUpdater::UpdateStatusDiag(TMidiCom* link, TZaurusCom* controller)
{
    Trace("Update Status APE\n");
    return ToInt(TakeStepDiag({true, link, controller}));
}

Step TUpdater::TakeStep()
{
    switch (updateStatus) {
    case Status::Connect: return StepConnect();
    case Status::Request: return StepRequest();
    case Status::StartData: return StepStartData();
    case Status::Transfer: return StepTransfer();
    case Status::Finished: return StepFinished();
    case Status::Failed: return StepFailed();
    default: return EndOfStep();
    }
}

Step TUpdater::TakeStepDiag(const Setting& setting)
{
    switch (updateStatus) {
    case Status::Connect: return StepConnectDiag(setting);
    case Status::Request: return StepRequestDiag(setting);
    case Status::StartData: return StepStartDataDiag(setting);
    case Status::Transfer: return StepTransferDiag();
    case Status::Finished: return Step::Done;
    case Status::Failed: return Step::Failed;
    default: return EndOfStepDiag();
    }
}

// An update goes on even if the CSP never reported that it is idle.
Step TUpdater::StepConnect()
{
    if (IsSilent())
        EnterStatus(Status::Request);
    if (CountToSend(flashModeCounter)) {
        AskForStatus(midi.get(), kWriteFlashMode);
        Trace("Send Flash Mode TUpdater Update\n");
    }
    return EndOfStep();
}

// Sends with every step and doesn't wait, for the loop serves others, too.
Step TUpdater::StepConnectDiag(const Setting& setting)
{
    AskForStatus(setting.midi, kWriteFlashMode, 0);
    SendToController(setting.zaurus, kConnectingText);
    if (IsSilent())
        EnterStatus(Status::Request);
    return EndOfStepDiag();
}

// The request goes out with every step, so at least once a second until the CSP answers.
Step TUpdater::StepRequest()
{
    AskForWrite(midi.get());
    Trace("Send WriteCommand\n");
    return IsSilent() ? GiveUp("Piano is not connected 2\n") : EndOfStep();
}

Step TUpdater::StepRequestDiag(const Setting& setting)
{
    AskForWrite(setting.midi);
    if (!IsSilent())
        return EndOfStepDiag();
    SendToController(setting.zaurus, kNotConnectedText);
    return Step::Failed;
}

Step TUpdater::StepStartData()
{
    Log("Start CSP Update\n");
    BeginData(midi.get());
    Trace("Start APE Update\n");
    return EndOfStep();
}

Step TUpdater::StepStartDataDiag(const Setting& setting)
{
    BeginData(setting.midi);
    return EndOfStepDiag();
}

// Silence after a refused block sends that block once more, since it may have been lost on its way.
// Any other silence ends the update.
Step TUpdater::StepTransfer()
{
    if (!IsSilent())
        return EndOfStep();
    if (ngAddress == 0) {
        constexpr char kNoReply[] = "Piano is no reply\n";
        Log(kNoReply);  // before it is printed, unlike in GiveUp
        Trace(kNoReply);
        return Step::Failed;
    }
    SendIntelHex(midi.get(), ngAddress, kWriteBlock);
    ngAddress = 0;
    updateCounter = 0;
    return EndOfStep();
}

// In the server silence always ends the update: the controller can search the file again and start
// anew.
Step TUpdater::StepTransferDiag()
{
    return IsSilent() ? Step::Failed : EndOfStepDiag();
}

// The texts call the piano side APE or CSP, whichever of the two is connected.
Step TUpdater::StepFinished()
{
    Trace("APE Update Finished\n");
    Log("CSP Update Finished\n");
    if (renameFile)
        RenameImage();
    return Step::Done;
}

// The one restart begins at the request: the CSP is in flash mode already.
Step TUpdater::StepFailed()
{
    if (retryCount != 0)
        return GiveUp("CSP Update Failed\n");
    PrintAndLog("CSP Update Failed\n");
    ++retryCount;
    EnterStatus(Status::Request);
    return Step::GoesOn;
}

Step TUpdater::EndOfStep()
{
    return errorCounter > kErrorLimit ? GiveUp("Piano Comunication Error !\n") : Step::GoesOn;
}

Step TUpdater::EndOfStepDiag()
{
    return errorCounter > kErrorLimit ? Step::Failed : Step::GoesOn;
}

Step TUpdater::GiveUp(const char* text)
{
    PrintAndLog(text);
    return Step::Failed;
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

void TUpdater::AskForWrite(TMidiCom* link)
{
    rows.Rewind();
    SendLine(link, "WRITE  :");
}

// An image without rows sends nothing, and silence ends its update.
void TUpdater::BeginData(TMidiCom* link)
{
    rows.Begin();
    SendIntelHex(link, 0, kWriteBlock);
    EnterStatus(Status::Transfer);
}
