/* /dev/PciDsp on a real kernel, as a character device in user space: passes the requests of the
 * program on to the simulated piano, as the preload library does in the simulated unit. */

#define FUSE_USE_VERSION 31

#include <cuse_lowlevel.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static const int kSetParameter = 33;
static const struct sockaddr_un kPiano = {AF_UNIX, "/sim/dsp.sock"};

static void Open(fuse_req_t request, struct fuse_file_info* file)
{
    fuse_reply_open(request, file);
}

static void Ioctl(fuse_req_t request, int command, void* argument, struct fuse_file_info* file,
                  unsigned flags, const void* input, size_t inputSize, size_t outputSize)
{
    (void)file, (void)flags, (void)input, (void)inputSize, (void)outputSize;
    char text[24];
    const int length = snprintf(text, sizeof text, "%lu", (unsigned long)argument);
    const int piano = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (command != kSetParameter)
        fuse_reply_err(request, ENOTTY);
    else if (sendto(piano, text, length, 0, (const struct sockaddr*)&kPiano, sizeof kPiano) < 0)
        fuse_reply_err(request, EIO);
    else
        fuse_reply_ioctl(request, 0, NULL, 0);
    close(piano);
}

int main(int argc, char** argv)
{
    static const char* const names[] = {"DEVNAME=PciDsp"};
    static const struct cuse_info device = {.dev_info_argc = 1,
                                            .dev_info_argv = (const char**)names};
    static const struct cuse_lowlevel_ops calls = {.open = Open, .ioctl = Ioctl};
    return cuse_lowlevel_main(argc, argv, &device, &calls, NULL);
}
