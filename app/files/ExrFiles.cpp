#include "app/files/ExrFiles.h"

#include "app/files/DeclaredPixels.h"
#include "app/files/ExitCodes.h"
#include "app/files/ExrChunks.h"
#include "app/files/ExrZip.h"
#include "app/files/ReadMemory.h"
#include "host/EngineSettings.h"
#include "util/CheckedFile.h"

#include <ImfBoxAttribute.h>
#include <ImfChannelList.h>
#include <ImfDoubleAttribute.h>
#include <ImfFloatAttribute.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfIO.h>
#include <ImfInputFile.h>
#include <ImfIntAttribute.h>
#include <ImfOutputFile.h>
#include <ImfStandardAttributes.h>
#include <ImfStringAttribute.h>
#include <ImfTestFile.h>
#include <ImfThreading.h>
#include <ImfVecAttribute.h>
#include <half.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <sstream>
#include <vector>

namespace {

// What OpenImageIO calls the colour of an OpenEXR file that names none.
constexpr const char* kExrColour = "Linear";
constexpr const char* kColourAttribute = "oiio:ColorSpace";

// The whole header as read, for writing like the file.
struct ExrMetadata : FileMetadata {
    explicit ExrMetadata(const Imf::Header& h) : header(h) {}
    std::vector<std::pair<std::string, std::string>> Attributes() const override;
    Imf::Header header;
};

// An attribute's value as text: strings, numbers, vectors and boxes as they
// read; other kinds by their type name in angle brackets.
std::string AttributeText(const Imf::Attribute& a)
{
    const auto number = [](double v) {
        std::ostringstream s;
        s << v;
        return s.str();
    };
    if (const auto* t = dynamic_cast<const Imf::StringAttribute*>(&a)) return t->value();
    if (const auto* t = dynamic_cast<const Imf::IntAttribute*>(&a)) return std::to_string(t->value());
    if (const auto* t = dynamic_cast<const Imf::FloatAttribute*>(&a)) return number(t->value());
    if (const auto* t = dynamic_cast<const Imf::DoubleAttribute*>(&a)) return number(t->value());
    if (const auto* t = dynamic_cast<const Imf::V2fAttribute*>(&a))
        return number(t->value().x) + " " + number(t->value().y);
    if (const auto* t = dynamic_cast<const Imf::V2iAttribute*>(&a))
        return std::to_string(t->value().x) + " " + std::to_string(t->value().y);
    if (const auto* t = dynamic_cast<const Imf::Box2iAttribute*>(&a)) {
        const Imath::Box2i& b = t->value();
        return std::to_string(b.min.x) + " " + std::to_string(b.min.y) + " " + std::to_string(b.max.x) + " " +
               std::to_string(b.max.y);
    }
    return std::string("<") + a.typeName() + ">";
}

std::vector<std::pair<std::string, std::string>> ExrMetadata::Attributes() const
{
    std::vector<std::pair<std::string, std::string>> found;
    for (auto it = header.begin(); it != header.end(); ++it) found.emplace_back(it.name(), AttributeText(it.attribute()));
    return found;
}

// Where each channel taken here lives in a host pixel record (blue, green,
// red, alpha, then the extra channels): Z is the only extra one.
const std::map<std::string, int> kRecord = {{"R", 2}, {"G", 1}, {"B", 0}, {"A", 3}, {"Y", 2}, {"Z", 4}};

int Threads()
{
    static std::once_flag once;
    const int threads = static_cast<int>(EngineThreads());
    // OpenEXR's own pool decodes and compresses blocks of lines in parallel.
    std::call_once(once, [threads] { Imf::setGlobalThreadCount(threads); });
    return threads;
}

bool TakenChannels(const Imf::ChannelList& channels)
{
    std::set<std::string> names;
    for (auto c = channels.begin(); c != channels.end(); ++c) {
        const Imf::Channel& ch = c.channel();
        if (!kRecord.count(c.name()) || ch.xSampling != 1 || ch.ySampling != 1 ||
            (ch.type != Imf::HALF && ch.type != Imf::FLOAT))
            return false;
        names.insert(c.name());
    }
    const bool rgb = names.count("R") && names.count("G") && names.count("B");
    return rgb != (names.count("Y") == 1);
}

int DepthOf(const Imf::ChannelList& channels)
{
    for (auto c = channels.begin(); c != channels.end(); ++c)
        if (c.channel().type != Imf::HALF) return IMDP_Float32;
    return IMDP_Float16;
}

FileLayout LayoutOf(const Imf::Header& header, const std::string& path)
{
    const Imath::Box2i& data = header.dataWindow();
    const Imath::Box2i& full = header.displayWindow();
    FileLayout layout;
    layout.x = data.min.x;
    layout.y = data.min.y;
    layout.width = data.max.x - data.min.x + 1;
    layout.height = data.max.y - data.min.y + 1;
    layout.fullX = full.min.x;
    layout.fullY = full.min.y;
    layout.fullWidth = full.max.x - full.min.x + 1;
    layout.fullHeight = full.max.y - full.min.y + 1;
    layout.floating = true;
    const auto* colour = header.findTypedAttribute<Imf::StringAttribute>(kColourAttribute);
    layout.colourSpace = colour ? colour->value() : kExrColour;
    layout.path = path;
    return layout;
}

// Where channel `name` lives in `image`'s pixel records, or -1 when it has none.
int RecordOf(const Image& image, const char* name)
{
    if (const auto known = kRecord.find(name); known != kRecord.end() && known->second < 4) return known->second;
    const auto& extras = image.ExtraChannels();
    for (std::size_t k = 0; k < extras.size(); ++k)
        if (extras[k] == name) return 4 + static_cast<int>(k);
    return -1;
}

// `image`'s records as OpenEXR float slices for the channels in `channels`
// that it has, the record's (0, 0) at the data window's corner `origin`.
Imf::FrameBuffer SlicesOf(const Image& image, const Imf::ChannelList& channels, Imath::V2i origin)
{
    const std::ptrdiff_t xStride = static_cast<std::ptrdiff_t>(sizeof(float)) * image.PixelStride();
    const std::ptrdiff_t yStride = xStride * image.Width;
    char* const corner = reinterpret_cast<char*>(const_cast<float*>(image.Pixel(0, 0)));
    Imf::FrameBuffer slices;
    for (auto c = channels.begin(); c != channels.end(); ++c) {
        const int record = RecordOf(image, c.name());
        if (record < 0) continue;  // not in the image: OpenEXR writes zeros
        const std::ptrdiff_t offset = record * static_cast<std::ptrdiff_t>(sizeof(float)) - origin.x * xStride -
                                      origin.y * yStride;
        char* base = corner + offset;
        slices.insert(c.name(), Imf::Slice(Imf::FLOAT, base, xStride, yStride, 1, 1,
                                           std::strcmp(c.name(), "A") == 0 ? 1.0 : 0.0));
    }
    return slices;
}

// OpenEXR's output through a CheckedFile.
class ExrStream : public Imf::OStream {
public:
    ExrStream(CheckedFile& file, const std::string& path) : Imf::OStream(path.c_str()), m_file(file) {}
    void write(const char c[], int n) override { m_file.Write(c, static_cast<std::size_t>(n)); }
    uint64_t tellp() override { return m_file.Tell(); }
    void seekp(uint64_t pos) override { m_file.Seek(pos); }

private:
    CheckedFile& m_file;
};

// Writes the image in bands of rows. OpenEXR writes each channel from a buffer
// of the channel's own type: float channels come straight from the image's
// records; half channels are rounded (to nearest even, as OpenEXR and
// OpenImageIO round) into a band buffer first. A band spans many blocks of
// lines, so OpenEXR's pool compresses them in parallel.
void WriteBands(Imf::OutputFile& out, const Image& image, const Imf::ChannelList& channels, Imath::V2i origin)
{
    constexpr int kBand = 256;
    Imf::ChannelList floats;
    std::vector<std::pair<const char*, int>> halves;  // name, record
    for (auto c = channels.begin(); c != channels.end(); ++c) {
        if (c.channel().type == Imf::FLOAT) floats.insert(c.name(), c.channel());
        else if (const int record = RecordOf(image, c.name()); record >= 0) halves.emplace_back(c.name(), record);
    }
    const std::size_t bandValues = static_cast<std::size_t>(image.Width) * kBand;
    std::vector<half> buffer(halves.size() * bandValues);
    // OpenEXR takes the lines in the file's order: bottom up for a decreasing one.
    const bool upwards = out.header().lineOrder() == Imf::DECREASING_Y;
    const int bands = (image.Height + kBand - 1) / kBand;
    for (int band = 0; band < bands; ++band) {
        const int top = (upwards ? bands - 1 - band : band) * kBand;
        const int rows = std::min(kBand, image.Height - top);
        Imf::FrameBuffer slices = SlicesOf(image, floats, origin);
        for (std::size_t k = 0; k < halves.size(); ++k) {
            half* values = buffer.data() + k * bandValues;
            const auto& [name, record] = halves[k];
            for (int y = 0; y < rows; ++y) {
                const float* p = image.Pixel(0, top + y) + record;
                half* row = values + static_cast<std::size_t>(y) * image.Width;
                for (int x = 0; x < image.Width; ++x, p += image.PixelStride()) row[x] = half(*p);
            }
            // Row `origin.y + top` of the file is the band's first.
            char* base = reinterpret_cast<char*>(values) -
                         (static_cast<std::ptrdiff_t>(origin.x) + static_cast<std::ptrdiff_t>(origin.y + top) * image.Width) *
                             static_cast<std::ptrdiff_t>(sizeof(half));
            slices.insert(name, Imf::Slice(Imf::HALF, base, sizeof(half), sizeof(half) * image.Width));
        }
        out.setFrameBuffer(slices);
        out.writePixels(rows);
    }
}

const std::map<std::string, Imf::Compression> kCompressions = {
    {"none", Imf::NO_COMPRESSION}, {"rle", Imf::RLE_COMPRESSION},   {"zips", Imf::ZIPS_COMPRESSION},
    {"zip", Imf::ZIP_COMPRESSION}, {"piz", Imf::PIZ_COMPRESSION},   {"pxr24", Imf::PXR24_COMPRESSION},
    {"b44", Imf::B44_COMPRESSION}, {"b44a", Imf::B44A_COMPRESSION}, {"dwaa", Imf::DWAA_COMPRESSION},
    {"dwab", Imf::DWAB_COMPRESSION}};

// Sets the compression `text` names in `header`; a zlib level it names goes to
// `zipLevel`. False for a name that is not a compression.
bool Compression(const std::string& text, Imf::Header& header, std::optional<int>& zipLevel)
{
    const auto colon = text.find(':');
    const auto it = kCompressions.find(text.substr(0, colon));
    if (it == kCompressions.end()) return false;
    header.compression() = it->second;
    if (colon != std::string::npos) {
        const double level = std::strtod(text.c_str() + colon + 1, nullptr);
        if (it->second == Imf::DWAA_COMPRESSION || it->second == Imf::DWAB_COMPRESSION)
            header.dwaCompressionLevel() = static_cast<float>(level);
        else
            zipLevel = static_cast<int>(level);
    }
    return true;
}

// Throws a file ProgramError when the file is too short for the pixels its
// header declares (DeclaredPixels.h), before they are allocated.
void CheckExrLength(const std::string& path, const Imf::Header& header, const FileLayout& layout)
{
    std::string compression = "unknown";
    for (const auto& [name, value] : kCompressions)
        if (value == header.compression()) compression = name;
    int channels = 0, bytes = 0;
    for (auto c = header.channels().begin(); c != header.channels().end(); ++c, ++channels)
        bytes += c.channel().type == Imf::HALF ? 2 : 4;
    const DeclaredPixels pixels{static_cast<std::uint64_t>(layout.width), static_cast<std::uint64_t>(layout.height),
                                static_cast<std::uint64_t>(channels), 8.0 * bytes / std::max(channels, 1)};
    CheckFileHolds(path, LeastExrBytes(pixels, compression, 0, 0), ExrNeeds(pixels, compression));
}

FileHeader HeaderOf(const Imf::Header& header, const std::string& path)
{
    FileHeader file;
    file.layout = LayoutOf(header, path);
    for (auto c = header.channels().begin(); c != header.channels().end(); ++c) ++file.channels;
    if (header.channels().findChannel("Z")) file.extras = {"Z"};
    file.depth = DepthOf(header.channels());
    const double aspect = header.pixelAspectRatio();
    file.pixelAspect = aspect > 0.0 && std::isfinite(aspect) ? aspect : 1.0;
    CheckExrLength(path, header, file.layout);
    return file;
}

// Whether `path` is a file taken here.
bool Taken(const std::string& path)
{
    bool tiled = false, deep = false, multiPart = false;
    return Imf::isOpenExrFile(path.c_str(), tiled, deep, multiPart) && !tiled && !deep && !multiPart;
}

}  // namespace

std::optional<ImageFile> ReadExrFile(const std::string& path)
{
    if (!Taken(path)) return std::nullopt;
    try {
        // Uncompressed and ZIP lines come through the core library straight into
        // the records (ExrChunks.h); the other codecs through OpenEXR's own decoders.
        const std::unique_ptr<ExrChunkReader> chunks = ExrChunkReader::Open(path);
        std::unique_ptr<Imf::InputFile> in;
        if (!chunks) in = std::make_unique<Imf::InputFile>(path.c_str(), Threads());
        const Imf::Header header = chunks ? chunks->Header() : in->header();
        if (!TakenChannels(header.channels())) return std::nullopt;
        const FileHeader read = HeaderOf(header, path);
        ImageFile file;
        file.layout = read.layout;
        const FileLayout& layout = file.layout;
        // The host image alone: the pixels are decoded straight into it.
        CheckReadMemory(path, layout.width, layout.height, read.channels, 4.0 + read.extras.size());
        file.image = Ref<Image>(new Image(layout.width, layout.height, read.depth, read.extras));
        Image& image = *file.image;
        image.XScale = read.pixelAspect;
        image.YScale = 1.0;

        if (chunks) {
            chunks->Decode(image, [&image](const char* name) { return RecordOf(image, name); });
        } else {
            Imf::ChannelList wanted = header.channels();
            wanted.insert("A", Imf::Channel(Imf::FLOAT));  // alpha is 1 where the file has none
            in->setFrameBuffer(SlicesOf(image, wanted, {layout.x, layout.y}));
            in->readPixels(layout.y, layout.y + layout.height - 1);
        }
        if (header.channels().findChannel("Y"))
            for (int y = 0; y < image.Height; ++y)
                for (int x = 0; x < image.Width; ++x) {
                    float* p = image.Pixel(x, y);
                    p[0] = p[1] = p[2];
                }
        file.layout.metadata = std::make_shared<ExrMetadata>(header);
        return file;
    } catch (const ProgramError&) {
        throw;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& e) {
        throw FileError("cannot read " + path + ": " + e.what());
    }
}

std::optional<FileHeader> ReadExrHeader(const std::string& path)
{
    if (!Taken(path)) return std::nullopt;
    try {
        Imf::InputFile in(path.c_str(), 1);
        if (!TakenChannels(in.header().channels())) return std::nullopt;
        return HeaderOf(in.header(), path);
    } catch (const ProgramError&) {
        throw;
    } catch (const std::exception& e) {
        throw FileError("cannot read " + path + ": " + e.what());
    }
}

bool WritesExr(const FileLayout& like, int depth)
{
    const bool ours = like.metadata ? dynamic_cast<const ExrMetadata*>(like.metadata.get()) != nullptr : like.path.empty();
    return ours && (depth == IMDP_Float16 || depth == IMDP_Float32);
}

std::string WriteExrFile(const std::string& temp, const Image& image, const FileLayout& like, std::optional<int> depth,
                         const std::string& compression)
{
    const auto* read = dynamic_cast<const ExrMetadata*>(like.metadata.get());
    Imf::Header header = read ? read->header : Imf::Header();
    if (!read) header.compression() = Imf::ZIP_COMPRESSION;
    std::optional<int> zipLevel;
    if (!compression.empty() && !Compression(compression, header, zipLevel))
        return "unknown compression " + compression;

    // The data window is the image; the display window stays the file's when
    // the image still covers the data window it was read with.
    Imath::V2i origin(0, 0), fullOrigin(0, 0), fullSize(image.Width, image.Height);
    if (like.width > 0) {
        origin = fullOrigin = {like.x, like.y};
        if (like.fullWidth > 0 && like.width == image.Width && like.height == image.Height) {
            fullOrigin = {like.fullX, like.fullY};
            fullSize = {like.fullWidth, like.fullHeight};
        }
    }
    header.dataWindow() = Imath::Box2i(origin, origin + Imath::V2i(image.Width - 1, image.Height - 1));
    header.displayWindow() = Imath::Box2i(fullOrigin, fullOrigin + fullSize - Imath::V2i(1, 1));
    header.pixelAspectRatio() = static_cast<float>(image.XScale / image.YScale);

    const int outDepth = depth.value_or(image.Depth);
    const Imf::PixelType all = outDepth == IMDP_Float16 ? Imf::HALF : Imf::FLOAT;
    Imf::ChannelList channels;
    if (read) {
        const bool own = outDepth == DepthOf(read->header.channels()) && !depth;
        for (auto c = read->header.channels().begin(); c != read->header.channels().end(); ++c)
            channels.insert(c.name(), Imf::Channel(own ? c.channel().type : all));
    } else {
        for (const char* name : {"R", "G", "B", "A"}) channels.insert(name, Imf::Channel(all));
        for (const std::string& name : image.ExtraChannels()) channels.insert(name, Imf::Channel(all));
    }
    header.channels() = channels;
    // Uncompressed and ZIP lines go out through the core library, compressed
    // here (ExrChunks.h); the rest through OpenEXR's own writer.
    if (WritesChunks(header))
        return WriteExrChunks(temp, header, image, [&image](const char* name) { return RecordOf(image, name); },
                              zipLevel.value_or(kDefaultZipLevel));
    if (zipLevel) header.zipCompressionLevel() = *zipLevel;
    CheckedFile file(temp);
    try {
        ExrStream stream(file, temp);
        // The line offsets are written when `out` goes, where OpenEXR drops any
        // failure: `file` keeps it.
        Imf::OutputFile out(stream, header, Threads());
        WriteBands(out, image, channels, origin);
    } catch (const std::exception& e) {
        return e.what();
    }
    return file.Close();
}
