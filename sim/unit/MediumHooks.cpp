// The removable medium, and the program's end.

#include <climits>
#include <csignal>

#include <sys/mount.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "Descriptors.h"
#include "Journal.h"
#include "MappedPath.h"
#include "Medium.h"
#include "Real.h"
#include "Settings.h"
#include "Subject.h"

#pragma GCC visibility push(default)

namespace {

constexpr unsigned long long kPlenty = 1ULL << 30;  // bytes

// Puts the configured room into the result of statfs, in blocks of single bytes.
void SetFree(struct statfs& found)
{
    unsigned long long left = kPlenty;
    ReadControl("free", left);
    found.f_bsize = 1;
    found.f_frsize = found.f_bsize;
    found.f_bavail = left;
    found.f_bfree = found.f_bavail;
    found.f_blocks = found.f_bavail;
}

// The result of a simulated call with an outcome of 0 or an errno.
int JournalOutcome(const BoundedText& line, int error)
{
    return JournalResult(line, error == 0 ? 0 : FailWith(error));
}

// Late write errors appear here: planned ones, and those of a medium that is gone, which syncfs
// doesn't report.
template <typename Flush>
int FlushWith(Flush& real, Call& call, int descriptor)
{
    const Owner owner = OwnerOf(descriptor);
    if (owner != Owner::File && owner != Owner::Medium && owner != Owner::Gone)
        return real(descriptor);
    int error = FailsNow(call, descriptor) ? errno : 0;
    if (OwnerOf(descriptor) == Owner::Gone && &call == &calls::fsync)
        error = EIO;
    BoundedText line;
    line.Add(call.name).Add("(").Add(SubjectName(descriptor).Get()).Add(")");
    return JournalOutcome(line, error);
}

void JournalEnd(const char* how)
{
    BoundedText line;
    Journal(line.Add(how).Add(" descriptors=").AddNumber(OpenDescriptors()));
}

// A server that is ended by a signal also journals the descriptors that it leaves open.
void OnTerminate(int)
{
    JournalEnd("terminated");
    std::signal(SIGTERM, SIG_DFL);
    std::raise(SIGTERM);
}

__attribute__((constructor)) void Begin()
{
    if (Root() == nullptr)
        return;
    if (std::signal(SIGTERM, OnTerminate) != SIG_DFL)
        std::signal(SIGTERM, SIG_IGN);
}

__attribute__((destructor)) void End()
{
    if (Root() != nullptr)
        JournalEnd("exit");
}

}  // namespace

extern "C" {

int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void* data) noexcept
{
    static Real real(mount);
    if (Root() == nullptr)
        return real(source, target, type, flags, data);
    const char* options = data == nullptr ? "" : static_cast<const char*>(data);
    int error = FailsNow(calls::mount, target) ? errno : ErrnoOf(ControlWord("mount-errno").Get());
    if (error == 0)
        error = MountMedium(source, target, flags, options);
    BoundedText line;
    line.Add("mount(").Add(source).Add(", ").Add(target).Add(", ").Add(type).Add(", ");
    line.AddHex(flags).Add(", ").Add(options);
    return JournalOutcome(line.Add(")"), error);
}

int umount(const char* target) noexcept
{
    static Real real(umount);
    if (Root() == nullptr)
        return real(target);
    const int error = FailsNow(calls::umount, target) ? errno : UnmountMedium(target);
    BoundedText line;
    return JournalOutcome(line.Add("umount(").Add(target).Add(")"), error);
}

// The machine's own disk has no part in what the unit flushes.
void sync() noexcept
{
    static Real real(sync);
    if (Root() == nullptr) {
        real();
        return;
    }
    CountCall(calls::sync, kNoSubject);
    BoundedText line;
    Journal(line.Add("sync()"));
}

int fsync(int descriptor)
{
    static Real real(fsync);
    return FlushWith(real, calls::fsync, descriptor);
}

int fdatasync(int descriptor)
{
    static Real real(fdatasync);
    return FlushWith(real, calls::fsync, descriptor);
}

int syncfs(int descriptor) noexcept
{
    static Real real(syncfs);
    return FlushWith(real, calls::syncfs, descriptor);
}

int statfs(const char* path, struct statfs* found) noexcept
{
    static Real real(static_cast<int (*)(const char*, struct statfs*) noexcept>(statfs));
    const UnitPath examined(path);
    const int result = CallAtPath(calls::statfs, Intent::Look, examined,
                                  [&](const char* at) { return real(at, found); });
    if (!examined.IsUnits())
        return result;
    if (result == 0 && examined.IsOnMedium())
        SetFree(*found);
    BoundedText line;
    return JournalResult(line.Add("statfs(").Add(path).Add(")"), result);
}

}  // extern "C"
