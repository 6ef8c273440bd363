#include "Language.h"

#include <cstdio>

#include "TSString.h"
#include "UnitPaths.h"

static constexpr int kLineSize = 1024;

int GetIOCLanguage()
{
    std::FILE* file = std::fopen(kLanguageFile, "r");
    if (file == nullptr)
        return 0;
    char line[kLineSize] = {};
    const bool hasLine = std::fgets(line, sizeof(line), file) != nullptr;
    std::fclose(file);
    if (!hasLine)
        return 0;
    return TSString(line).Trim() == "ja" ? 1 : 0;
}
