#pragma once

#include <cstdint>

#include "CheckedFile.h"
#include "StrictReport.h"

class Image;

// Compares the CSP's flash with the file that was written to it.
class FlashVerifier {
public:
    explicit FlashVerifier(const StrictReport& itsReport) : report(itsReport) {}

    // Reads the parameter flash and restarts the CSP, which blocks. Reports what differs, what of
    // the file lies elsewhere and so wasn't compared, and a restart that failed. False when the
    // flash differs or can't be read, or the restart has failed.
    bool Verify(int connecttype, const CheckedFile& file) const;

private:
    bool CompareText(const CheckedFile& file, const std::string& flash) const;
    bool Compare(const Image& file, const Image& flash) const;
    void ReportRest(const AddressRange& range) const;
    void ReportSkipped(std::uint32_t first, std::uint32_t last) const;

    const StrictReport& report;
};
