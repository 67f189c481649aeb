#include "app/PfmFile.h"

#include "util/CheckedFile.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <vector>

bool IsPfmPath(const std::string& path)
{
    std::string ext = std::filesystem::path(path).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext == ".pfm";
}

std::string WritePfm(const std::string& path, int width, int height, int channels, const float* pixels)
{
    if (channels != 1 && channels != 3) return "a float map holds 1 or 3 channels, not " + std::to_string(channels);
    CheckedFile file(path);
    // A negative scale says the floats are little-endian.
    const std::string header = std::string(channels == 3 ? "PF" : "Pf") + "\n" + std::to_string(width) + " " +
                               std::to_string(height) + "\n-1.0\n";
    file.Write(header.data(), header.size());
    const std::size_t rowFloats = static_cast<std::size_t>(width) * channels;
    std::vector<unsigned char> row(rowFloats * 4);
    for (int y = height - 1; y >= 0; --y) {
        const float* src = pixels + static_cast<std::size_t>(y) * rowFloats;
        for (std::size_t i = 0; i < rowFloats; ++i) {
            std::uint32_t bits;
            std::memcpy(&bits, &src[i], 4);
            for (int b = 0; b < 4; ++b) row[i * 4 + b] = static_cast<unsigned char>(bits >> (8 * b));
        }
        file.Write(row.data(), row.size());
    }
    return file.Close();
}
