#include "WholeFile.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "FileBytes.h"
#include "OutputFile.h"
#include "Reason.h"

namespace {

bool WriteAll(int file, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t count = write(file, bytes.data(), bytes.size());
        if (count <= 0)
            return false;
        bytes.remove_prefix(count);
    }
    return true;
}

}  // namespace

WholeFile::WholeFile(std::string path, std::string workPath)
    : target(std::move(path)),
      work(std::move(workPath)),
      old(open(target.c_str(), O_RDONLY | kOpenFlags))
{}

// A failure is reported after this, so its reason stays.
WholeFile::~WholeFile()
{
    const int reason = errno;
    if (file && !isCommitted)
        unlink(work.c_str());
    errno = reason;
}

bool WholeFile::Write(std::string_view bytes)
{
    return Create() && WriteAll(file.Get(), bytes) && fsync(file.Get()) == 0 &&
           IsOnDisk(work, bytes);
}

// The new file gets the permission bits of the older one.
bool WholeFile::Create()
{
    file.Reset(CreateOutputFile(work.c_str(), kForEverybody, AtPath::Removed));
    struct stat state = {};
    if (file && old && fstat(old.Get(), &state) == 0)
        static_cast<void>(fchmod(file.Get(), state.st_mode));  // a medium may have none
    return static_cast<bool>(file);
}

bool WholeFile::Commit()
{
    if (rename(work.c_str(), target.c_str()) != 0)
        return false;
    isCommitted = true;
    // In this order: FAT keeps the place and the size of a file next to its name, and writes them
    // with the file. Written first, they would be found under both names after a power cut.
    return FlushDirectoryOf(target) && fsync(file.Get()) == 0;
}

std::string WholeFile::Problem() const
{
    if (isCommitted)
        return ReasonFor(target + ": replaced, but not flushed");
    return ReasonFor(file ? target : work);
}

bool FlushDirectoryOf(const std::string& path)
{
    const std::string name = path.substr(0, path.rfind('/') + 1) + ".";
    const UniqueFd directory(open(name.c_str(), O_RDONLY | O_DIRECTORY | kOpenFlags));
    return directory && (fsync(directory.Get()) == 0 || errno == EINVAL);
}

bool IsOnDisk(const std::string& path, std::string_view bytes)
{
    const UniqueFd file(OpenToRead(path.c_str()));
    // Where the system keeps them all the same, the comparison is still one of what it keeps.
    if (file)
        static_cast<void>(posix_fadvise(file.Get(), 0, 0, POSIX_FADV_DONTNEED));
    FileBytes found;
    if (!file || !ReadWholeFile(file.Get(), found))
        return false;
    errno = EIO;
    return found.Text() == bytes;
}
