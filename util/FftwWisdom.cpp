#include "util/FftwWisdom.h"

#include <fstream>

namespace {

constexpr const char* kStart = "(fftw-";
constexpr const char* kWord = " fftw_wisdom";

}  // namespace

std::string NotFftwWisdom(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::string head(64, '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    if (head.empty()) return {};
    const std::string firstLine = head.substr(0, head.find('\n'));
    if (firstLine.rfind(kStart, 0) == 0 && firstLine.find(kWord) != std::string::npos) return {};
    return "the file exists and does not hold FFTW wisdom (text starting \"(fftw-3.3.10 fftw_wisdom\"), so it is "
           "not replaced";
}
