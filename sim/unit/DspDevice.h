#pragma once

// The driver of /dev/PciDsp: one request, 33, whose argument is a number. Each call is journalled,
// and the argument of a successful one is sent to ROOT/sim/dsp.sock as decimal text, where the
// piano may listen. Returns 0, or -1 with errno.
int DspIoctl(unsigned long request, unsigned long argument);
