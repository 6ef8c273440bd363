#include "PciDsp.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "UniqueFd.h"
#include "UnitPaths.h"

static constexpr unsigned long kSetParameter = 33;  // the driver's one request, a plain number
static constexpr unsigned long kPianoPower = 12;
static constexpr unsigned kOffTime = 5;  // seconds

int set_qmparam(unsigned long parameter, int value)
{
    const UniqueFd device(open(kPianoPowerDevice, O_RDWR | O_CLOEXEC));
    if (!device)
        return device.Get();
    // The driver takes the number itself, not a pointer to it.
    const unsigned long argument = (parameter << 8U) | static_cast<unsigned long>(value);
    return ioctl(device.Get(), kSetParameter, argument);
}

int PciDsp_setPiano(int on)
{
    return set_qmparam(kPianoPower, on != 0 ? 1 : 0);
}

void RestartPiano()
{
    PciDsp_setPiano(0);
    sleep(kOffTime);
    PciDsp_setPiano(1);
}
