#pragma once

#include <string>
#include <vector>

#include "ParameterBackup.h"

class WholeFile;

// The copies of ParameterBackup with --strict. Either replaces its target whole or not at all, and
// only with a complete read-back:
//
//    disk    csp_param.hex --> CSP_PARA.NEW --> csp_param.rlg, csp_param.sum    medium
//            csp_param.hex <-- csp_param.hex.new <----- csp_param.rlg, csp_param.sum
//
// A copy to the medium has succeeded once the medium is flushed and has returned the same bytes. A
// copy from it is compared with the checksum, where there is one. The medium is mounted again from
// the device that is mounted at its place, which a stick that was pulled and inserted again may
// have changed.
class StrictCopy {
public:
    ParameterBackup::Result ToMedium();
    ParameterBackup::Result FromMedium();

    // Of the latest copy: why it has failed, or what couldn't be verified; a sentence each.
    const std::vector<std::string>& Reasons() const { return reasons; }

private:
    using Result = ParameterBackup::Result;

    Result Remount(unsigned long flags);
    Result Mount(const std::string& device, unsigned long flags);
    Result ReplaceOnMedium(const std::string& packed);
    std::string SumOfOldImage() const;
    Result WriteFiles(const std::string& image, const std::string& sum);
    Result FailToReplace(const WholeFile& image, const std::string& problem);
    bool FlushMedium() const;
    Result Fail(Result result, const std::string& reason);

    std::string Path(const char* name) const { return directory + name; }

    std::string directory;  // of the medium, with a slash at its end
    std::vector<std::string> reasons;
};
