#pragma once
// What a path names: whether it is a regular file, and whether two paths name
// the same file. Every command asks these before it reads or writes, so a
// plate is never written over and a FIFO or device is never read as an image.
#include <string>

// Why `path` (symbolic links followed) is not a file to read or write whole:
// "it is a FIFO, not a regular file", and the like for folders, devices and
// sockets; "" for a regular file or a path where nothing is.
std::string NotRegularFile(const std::string& path);

// A key equal for two paths exactly when they name the same file: the device
// and inode where the file exists (hard links and symbolic links compare
// equal), else its absolute path with "." and ".." resolved and the symbolic
// links that exist followed.
std::string FileIdentity(const std::string& path);

inline bool SameFile(const std::string& a, const std::string& b) { return FileIdentity(a) == FileIdentity(b); }
