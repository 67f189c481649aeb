#include "util/Text.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
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
    char text[32];
    if (bytes >= (std::uint64_t{1} << 30)) std::snprintf(text, sizeof text, "%.1f GiB", bytes / 1073741824.0);
    else std::snprintf(text, sizeof text, "%.0f MiB", std::ceil(bytes / 1048576.0));
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

DecimalText ParseDecimal(const std::string& text, double& out)
{
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return DecimalText::NotANumber;
    char* end = nullptr;
    errno = 0;
    out = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size()) return DecimalText::NotANumber;
    if (text.find_first_of("xX") != std::string::npos) return DecimalText::Hexadecimal;
    if (errno == ERANGE && std::isinf(out)) return DecimalText::TooLarge;
    return std::isfinite(out) ? DecimalText::Number : DecimalText::NotANumber;
}
