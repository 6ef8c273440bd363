#pragma once

// Files by name. Nothing here prints or logs, and no descriptor stays open. FileExistsX,
// FileDelete, FileCopy and FileCompare are for the unit's other programs.

// True when the path can be opened for reading, which a directory can, too.
bool FileExists(const char* path);
bool FileExistsX(const char* path);

bool DeleteFile(const char* path);
bool FileDelete(const char* path);

// Copies the bytes and the file times; the target is created with the permission bits 0666. Returns
// 0, or -1 when a file can't be opened, a write fails, or the number of bytes copied isn't the size
// that the source has at the start. The partly written target stays in place then. A source that is
// neither a regular file nor a character device isn't opened, and no target is created for it.
int CopyFile(const char* source, const char* target);

// Copies the bytes alone, permission bits 0600. A failed write makes the result false, but the copy
// goes on to the end of the source. The same sources are refused.
bool FileCopy(const char* source, const char* target);

// True when the second file begins with all the bytes of the first. False also when one of them
// would be refused as a source.
bool FileCompare(const char* first, const char* second);

// True when the file is smaller than the free space of the file system that the path is on, or when
// either can't be measured: the copy then fails on its own.
bool CheckDiskFree(const char* pathOnTarget, const char* file);
