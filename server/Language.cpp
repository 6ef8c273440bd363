#include "Language.h"

#include "TSString.h"
#include "TextFile.h"
#include "UnitPaths.h"

int GetIOCLanguage()
{
    PieceReader file(kLanguageFile);
    const char* line = file ? file.Next() : nullptr;
    // Trimmed: the file may have been written by hand, with any line end.
    return line != nullptr && TSString(line).Trim() == "ja" ? 1 : 0;
}
