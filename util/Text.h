#pragma once
// Numbers, sizes and lists as messages show them.
#include <cstdint>
#include <string>
#include <vector>

// The shortest plain form of a number with six significant digits: 2.5, 1e+20,
// 0.0001, nan, inf.
std::string FormatNumber(double value);
// Bytes in the unit that shows them: "1 byte", "512 bytes", whole KiB below
// 1 MiB and whole MiB below 1 GiB (both rounded up), GiB with one decimal above.
std::string FormatMemorySize(std::uint64_t bytes);
// "a, b, c"; "" for no items.
std::string Join(const std::vector<std::string>& items, const std::string& separator = ", ");
// Whether `a` and `b` are the same text but for the case of ASCII letters.
bool SameIgnoringCase(const std::string& a, const std::string& b);
// The name among `names` that `typed` is most likely a slip of: the fewest
// letters changed, added, dropped or swapped with a neighbour, case aside, and
// few enough for a name of that length (none below 3 letters, one below 6,
// two below 12, three from there). "" when none is that close; the first of equals.
std::string NearestName(const std::string& typed, const std::vector<std::string>& names);
