#pragma once
// How much memory one render may use. A tool estimates what a frame will need
// before it allocates and refuses a frame that would not fit, rather than
// being killed by the system part way through. A render farm can cap it lower.
#include <cstddef>
#include <cstdint>
#include <string>

// The limit in bytes: the one set with SetMemoryLimit, else LUMIVANE_MAX_MEMORY,
// else the memory the system reports available.
std::uint64_t MemoryLimit();
// 0 returns to the default. Where the limit came from, for messages.
void SetMemoryLimit(std::uint64_t bytes);
std::string MemoryLimitSource();

// "512M", "8G", "1.5G" or a plain number of bytes. Throws std::invalid_argument
// with what is accepted.
std::uint64_t ParseMemorySize(const std::string& text);
// Bytes as MiB or GiB, for messages.
std::string FormatMemorySize(std::uint64_t bytes);
