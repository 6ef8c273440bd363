#include "Advice.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr Advice kAdvice[] = {
    {"Update File is not exsit.",
     "the unit has found no firmware file that it can load: it looks for csp_prog.hex and "
     "csp_prog.rlg on a USB stick and then on a CD, and for csp_prog.rlg on a floppy disk",
     "write the file with \"diagctl prepare FILE DIR\", insert the medium and try again"},
    {"Parameter File is not exsit.", "the unit has no parameter file that it can load",
     "copy one from a medium with \"diagctl restore\", or make one with \"diagctl read\", "
     "which ends the server"},
    {"Cannot Execute CSP Update.",
     "no firmware file is loaded, since each search is good for one update, or a unit "
     "with --strict has found it damaged",
     "run \"diagctl find-update\" before, and check the file with \"diagctl check\""},
    {"Cannot execute Parameter Update.",
     "no parameter file is loaded, since each search is good for one update, or a unit "
     "with --strict has found it damaged",
     "run \"diagctl find-parameters\" before"},
    {"CSP Update Failed.",
     "the board has refused the data or fallen silent; its flash may be half written",
     "leave the piano on, check the file, search for it and update again"},
    {"CSP Read Failed.",
     "the board has not answered, or its answer was damaged, or the unit could not save it",
     "make sure that the piano is on, and try again"},
    {"Parameter file is not exists.",
     "there is no parameter file to copy: a backup takes the unit's own, a restore "
     "csp_param.rlg on the medium",
     "before a backup, run \"diagctl read\", which ends the server; for a restore, insert "
     "the medium with the backup"},
    {"Binary file error.",
     "the unit's parameter file is damaged, or the unit's disk is full; the medium is unchanged",
     "run \"diagctl read\" again, start the server anew, then the backup"},
    {"Free Disk space error.",
     "the medium has no room for the new copy next to the old one, which is unchanged",
     "delete files from the medium, or use another one"},
    {"Copy error.",
     "the medium has no FAT file system, is write-protected or was pulled out, or the copy on "
     "it is damaged",
     "try another medium; after a failed restore, check the parameters with "
     "\"diagctl find-parameters\""},
    {"Floppy in not inserted.", "neither a USB stick nor a floppy disk is mounted on the unit",
     "insert the medium, wait until the unit has mounted it, and try again"},
};

}  // namespace

const Advice* AdviceFor(std::string_view reason)
{
    const auto* const found =
        std::find_if(std::begin(kAdvice), std::end(kAdvice), [&](const Advice& advice) {
            return reason.substr(0, advice.text.size()) == advice.text;
        });
    return found == std::end(kAdvice) ? nullptr : found;
}
