#pragma once

// The driver of /dev/PciDsp: one request, 33, whose argument is a number. Each call is journalled,
// and the argument of a successful one is sent as decimal text to ROOT/sim/dsp.sock, the socket of
// the piano. Returns 0, or -1 with errno.
int DspIoctl(unsigned long request, unsigned long argument);
