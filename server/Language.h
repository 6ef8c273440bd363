#pragma once

// 1 when the unit's language file names Japanese, else 0, also when there is no such file.
int GetIOCLanguage();
