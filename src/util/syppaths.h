// Joining a path and a file name.
#pragma once

namespace tlm {

enum sypFileSystem : int { sypVMS = 0, sypDOS = 1, sypUNIX = 2 };

// Whose rules the path functions follow; at first those of the system that this program was built for. Any number may
// be set, the functions fail for one that they do not know.
void sypSetFileSystem(int kind);

// Joins path and file into the buffer of `size` bytes, terminator included: directly (VMS), with a backslash unless the
// path ends in one (DOS), or always with '/' (UNIX). 1, or 0 with the reason on standard error and an empty buffer. An
// empty file gives 0 without a message. A null pointer is a bad argument, and so is a size below 1.
int sypMakeFileSpec(const char* path, const char* file, char* buffer, int size);

}  // namespace tlm
