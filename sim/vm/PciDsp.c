// /dev/PciDsp as a character device in user space: passes requests on to the simulated piano.

#define FUSE_USE_VERSION 31

#include <cuse_lowlevel.h>
#include <errno.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static const int kSetParameter = 33;
static const struct sockaddr_un kPiano = {AF_UNIX, "/sim/dsp.sock"};

static void Ioctl(fuse_req_t request, int command, void* argument, struct fuse_file_info* file,
                  unsigned flags, const void* input, size_t inputSize, size_t outputSize)
{
    char text[24];
    const int length = snprintf(text, sizeof text, "%lu", (unsigned long)argument);
    const int piano = socket(AF_UNIX, SOCK_DGRAM, 0);
    const int isSent = command == kSetParameter &&
                       sendto(piano, text, length, 0, (const void*)&kPiano, sizeof kPiano) >= 0;
    close(piano);
    fuse_reply_ioctl(request, isSent ? 0 : -EIO, NULL, 0);
}

int main(int argc, char** argv)
{
    const char* names[] = {"DEVNAME=PciDsp"};
    const struct cuse_info device = {.dev_info_argc = 1, .dev_info_argv = names};
    const struct cuse_lowlevel_ops calls = {.ioctl = Ioctl};
    return cuse_lowlevel_main(argc, argv, &device, &calls, NULL);
}
