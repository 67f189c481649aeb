#pragma once
// Where this code runs from, so an install finds its parts beside itself
// wherever it was moved.
#include <string>

// The program's own file when `address` is null, otherwise that of the
// program or shared library holding `address`; "" when it cannot be told.
std::string OwnFile(const void* address = nullptr);

enum class Beside { File, Folder };

// `relative` to the folder of OwnFile(address), made plain, when a file or
// folder (as `kind` says) is there; otherwise `fallback`.
std::string BesideOwnFile(const void* address, const std::string& relative, Beside kind, const std::string& fallback);
