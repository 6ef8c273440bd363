#pragma once

// Files by name. Nothing here prints or logs, and no descriptor is left open.

// True when the path can be opened for reading, which a directory can, too.
bool FileExists(const char* path);
bool FileExistsX(const char* path);

bool DeleteFile(const char* path);
bool FileDelete(const char* path);

// Copies the bytes and the file times; the target is created with the permission bits 0666. Returns
// 0, or -1 when a file can't be opened, a write fails or fewer bytes come than the source's size
// tells. The partly written target stays in place then.
int CopyFile(const char* source, const char* target);

// Copies the bytes alone, permission bits 0600. A failed write makes the result false, but the copy
// runs on to the end of the source.
bool FileCopy(const char* source, const char* target);

// True when the second file begins with all the bytes of the first.
bool FileCompare(const char* first, const char* second);

// True when the file is smaller than the free space of the file system that holds the path, or when
// either can't be measured: the copy then fails on its own.
bool CheckDiskFree(const char* pathOnTarget, const char* file);
