#include "app/ImageFiles.h"

#include "app/ExitCodes.h"
#include "app/ExrFiles.h"
#include "app/Interrupt.h"
#include "app/PfmFile.h"
#include "util/AtomicFile.h"
#include "util/FileIdentity.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string LowerExtension(const std::string& path)
{
    std::string ext = fs::path(path).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ext;
}

}  // namespace

namespace {

void CheckIsFile(const std::string& path)
{
    std::error_code ec;
    if (!fs::exists(path, ec)) throw FileError("cannot read " + path + ": no such file");
    // Checked before opening: a FIFO or a device would be read for ever.
    if (const std::string why = NotRegularFile(path); !why.empty()) throw FileError("cannot read " + path + ": " + why);
}

}  // namespace

ImageFile ReadImageFile(const std::string& path)
{
    CheckIsFile(path);
    if (std::optional<ImageFile> file = ReadExrFile(path)) return std::move(*file);
    return Codec().Read(path);
}

FileHeader ReadImageHeader(const std::string& path)
{
    CheckIsFile(path);
    if (std::optional<FileHeader> header = ReadExrHeader(path)) return std::move(*header);
    return Codec().Header(path);
}

std::optional<std::pair<FileLayout, int>> PeekImageFile(const std::string& path)
{
    try {
        const FileHeader header = ReadImageHeader(path);
        return std::make_pair(header.layout, header.channels);
    } catch (const ProgramError&) {
        return std::nullopt;
    }
}

void CheckImageHeader(const std::string& path)
{
    CheckIsFile(path);
    if (!PeekImageFile(path)) throw FileError("cannot read " + path + ": not an image file (its header cannot be read)");
}

bool HoldsFloat(const std::string& path, int depth)
{
    const bool asked = depth == IMDP_Float16 || depth == IMDP_Float32;
    const std::string ext = LowerExtension(path);
    if (IsPfmPath(path) || ext == ".exr") return true;
    const std::string format = Codec().FormatOf(path);
    if (format.empty()) return asked;  // writing will say why
    if (format == "openexr" || format == "hdr") return true;
    return asked && (format == "tiff" || format == "dpx");
}

std::vector<std::string> WriteImageFile(const std::string& path, const Image& image, const FileLayout& like,
                                        std::optional<int> depth, const std::string& compression)
{
    CheckOutputFolder(path);
    const bool direct = LowerExtension(path) == ".exr" && WritesExr(like, depth.value_or(image.Depth));
    PendingFile pending(path);
    ImageCodec::Written written;
    if (direct) written.failure = WriteExrFile(pending.TempPath(), image, like, depth, compression);
    else written = Codec().Write(path, pending.TempPath(), image, like, depth, compression);
    if (!written.failure.empty()) throw pending.Failure(written.failure);
    pending.Commit();
    return written.warnings;
}

void CheckOutputFolder(const std::string& path)
{
    if (const std::string why = AtomicFile::CannotWrite(path); !why.empty())
        throw FileError("cannot write " + path + ": " + why);
}

std::string ParseCompression(const std::string& text, const std::string& output)
{
    const std::string what = "--compression " + text;
    std::string name = text, level;
    if (const auto colon = text.find(':'); colon != std::string::npos) {
        name = text.substr(0, colon);
        level = text.substr(colon + 1);
    }
    for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    static const char* const kNames[] = {"none", "rle", "zips", "zip", "piz", "pxr24", "b44", "b44a", "dwaa", "dwab"};
    if (std::find_if(std::begin(kNames), std::end(kNames), [&](const char* n) { return name == n; }) == std::end(kNames))
        throw UsageError(what + ": expected none, rle, zips, zip, piz, pxr24, b44, b44a, dwaa or dwab, "
                                "optionally with :LEVEL for zip, zips, dwaa and dwab");
    const bool zlib = name == "zip" || name == "zips", dwa = name == "dwaa" || name == "dwab";
    if (text.find(':') != std::string::npos) {
        char* end = nullptr;
        const double value = std::strtod(level.c_str(), &end);
        const bool whole = !level.empty() && end == level.c_str() + level.size();
        if (!zlib && !dwa) throw UsageError(what + ": " + name + " takes no level");
        if (zlib && (!whole || value != std::floor(value) || value < 1 || value > 9))
            throw UsageError(what + ": expected a zlib level from 1 to 9 after " + name + ":");
        if (dwa && (!whole || !(value > 0) || !std::isfinite(value)))
            throw UsageError(what + ": expected a quality above 0 after " + name + ": (45 by default)");
        name += ":" + level;
    }
    if (LowerExtension(output) != ".exr")
        throw UsageError(what + ": OUTPUT " + output + " is not an OpenEXR (.exr) file, the only format it applies to");
    return name;
}

int ParseDepth(const std::string& text)
{
    if (text == "8") return IMDP_Int8;
    if (text == "16") return IMDP_Int16;
    if (text == "half") return IMDP_Float16;
    if (text == "float") return IMDP_Float32;
    throw UsageError("--depth " + text + ": expected 8, 16, half or float");
}
