#include "PciDsp.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "UniqueFd.h"
#include "UnitPaths.h"

static constexpr unsigned long kSetParameter = 33;
static constexpr unsigned kParameterShift = 8;
static constexpr unsigned long kPianoPower = 12;

int set_qmparam(unsigned long parameter, int value)
{
    const UniqueFd device(open(kPianoPowerDevice, O_RDWR | O_CLOEXEC));
    if (!device)
        return device.Get();
    const unsigned long argument = parameter << kParameterShift | value;
    return ioctl(device.Get(), kSetParameter, argument);
}

int PciDsp_setPiano(int on)
{
    // Any number but 0 means on, and the driver knows only 1.
    return set_qmparam(kPianoPower, on != 0 ? 1 : 0);
}

int RestartPiano()
{
    const int offError = PciDsp_setPiano(0) < 0 ? errno : 0;
    sleep(kOffSeconds);
    const int onError = PciDsp_setPiano(1) < 0 ? errno : 0;
    return offError != 0 ? offError : onError;
}
