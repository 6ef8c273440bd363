#pragma once

#include "TSString.h"

// Paths taken apart and changed. Names may be Shift-JIS, as removable media carry them. A "\", "/"
// or ":" separates; the output buffers have room for the path, and for the new extension where
// there is one. The output isn't touched where the result is false.
//
// The program changes extensions and extracts directories; the rest is for the unit's other
// programs.

// Puts the extension, dot included, in the place of the one that the path has, or appends it when
// the path has no dot, or none but as its first character. The last dot anywhere in the path
// counts, also one in a directory's name. False when the path is empty or ends in a separator.
bool ChangeFileExtX(const char* path, const char* extension, char* output);

// The extension, dot included. False as above, and when there is no dot.
bool ExtractFileExtX(const char* path, char* output);

// What follows the last separator. False when there is none, so a bare file name has no name, or
// when nothing follows it.
bool ExtractFileNameX(const char* path, char* output);

// The part before the last separator; a colon stays. A path without a separator stays as it is.
// Always true.
bool ExtractFileDirX(const char* path, char* output);

// The same on strings; an empty string where the plain form returns false.
TSString ChangeFileExtSX(const TSString& path, const TSString& extension);
TSString ExtractFileExtSX(const TSString& path);
TSString ExtractFileNameSX(const TSString& path);
TSString ExtractFileDirSX(const TSString& path);
