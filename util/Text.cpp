#include "util/Text.h"

#include <algorithm>
#include <cctype>

#include <cmath>
#include <cstdio>
#include <sstream>

std::string FormatNumber(double value)
{
    std::ostringstream s;
    s << value;
    return s.str();
}

std::string FormatMemorySize(std::uint64_t bytes)
{
    constexpr std::uint64_t kKiB = 1024, kMiB = kKiB * 1024, kGiB = kMiB * 1024;
    char text[40];
    if (bytes == 1) return "1 byte";
    if (bytes < kKiB) std::snprintf(text, sizeof text, "%llu bytes", static_cast<unsigned long long>(bytes));
    else if (bytes < kMiB) std::snprintf(text, sizeof text, "%.0f KiB", std::ceil(bytes / double(kKiB)));
    else if (bytes < kGiB) std::snprintf(text, sizeof text, "%.0f MiB", std::ceil(bytes / double(kMiB)));
    else std::snprintf(text, sizeof text, "%.1f GiB", bytes / double(kGiB));
    return text;
}

std::string Join(const std::vector<std::string>& items, const std::string& separator)
{
    std::string s;
    for (std::size_t i = 0; i < items.size(); ++i) s += (i ? separator : std::string()) + items[i];
    return s;
}

bool SameIgnoringCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

namespace {

// Edits that turn `a` into `b`, a swap of neighbours counting as one
// (the optimal string alignment distance), ASCII case ignored.
std::size_t EditDistance(const std::string& a, const std::string& b)
{
    const auto same = [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    };
    const std::size_t n = a.size(), m = b.size();
    std::vector<std::vector<std::size_t>> d(n + 1, std::vector<std::size_t>(m + 1));
    for (std::size_t i = 0; i <= n; ++i) d[i][0] = i;
    for (std::size_t j = 0; j <= m; ++j) d[0][j] = j;
    for (std::size_t i = 1; i <= n; ++i)
        for (std::size_t j = 1; j <= m; ++j) {
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (same(a[i - 1], b[j - 1]) ? 0 : 1)});
            if (i > 1 && j > 1 && same(a[i - 1], b[j - 2]) && same(a[i - 2], b[j - 1]))
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    return d[n][m];
}

}  // namespace

std::string NearestName(const std::string& typed, const std::vector<std::string>& names)
{
    // Long inputs are not names anyone meant to type; they are not compared.
    constexpr std::size_t kLongestCompared = 64;
    if (typed.empty() || typed.size() > kLongestCompared) return {};
    const std::size_t allowed = typed.size() < 3 ? 0 : typed.size() < 6 ? 1 : typed.size() < 12 ? 2 : 3;
    std::string best;
    std::size_t bestDistance = allowed + 1;
    for (const std::string& name : names) {
        if (name.size() > kLongestCompared) continue;
        const std::size_t d = EditDistance(typed, name);
        if (d < bestDistance) bestDistance = d, best = name;
    }
    return best;
}
