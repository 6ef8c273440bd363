#pragma once

// The character device through which the piano side is switched off and on, which restarts the CSP.
// It is opened and closed for every call. Nothing here knows the CSP's state, and only RestartPiano
// waits.
//
// The driver has one request, and takes a number in the place of the usual pointer:
//    parameter << 8 | value      0C01 switches the piano side on, 0C00 off

// Passes one parameter to the device. `value` must fit 8 bits, it isn't masked. The result is that
// of the ioctl, or negative when the device can't be opened.
int set_qmparam(unsigned long parameter, int value);

// Switches the piano side on when `on` is not 0, else off. Off and on again restarts the CSP.
// Negative when the device failed.
int PciDsp_setPiano(int on);

// How long a restart keeps the piano side off: the CSP loses its state in that time.
inline constexpr unsigned kOffSeconds = 5;

// Restarts the CSP: off, kOffSeconds, on. Blocks for that time. 0, or the errno of the first call
// that failed; the others are made all the same.
int RestartPiano();
