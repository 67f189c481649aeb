// The OpenImageIO side of image files, built as the module lumivane-oiio.so
// (ImageCodec.h says why): reading and writing every format OpenImageIO
// knows, colour configurations, and the live page's pictures.
#include "app/files/ImageCodec.h"

#include "app/files/ExitCodes.h"
#include "app/files/ImageFiles.h"
#include "app/files/PfmFile.h"
#include "app/files/ReadMemory.h"
#include "app/files/WholeRead.h"
#include "host/EngineSettings.h"
#include "util/CheckedFile.h"
#include "util/Text.h"

#include <OpenImageIO/color.h>
#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <OpenImageIO/strutil.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

namespace {

constexpr const char* kAspectAttribute = "PixelAspectRatio";
constexpr const char* kBitsAttribute = "oiio:BitsPerSample";
constexpr const char* kColourSpaceAttribute = "oiio:ColorSpace";
constexpr const char* kCompressionAttribute = "compression";
// Set by a reader asked to keep unassociated alpha as stored, and telling a
// writer that the data is unassociated.
constexpr const char* kUnassociatedAttribute = "oiio:UnassociatedAlpha";

enum class Role { Red, Green, Blue, Alpha, Grey, Extra };

// What each channel of a file is to the host image.
struct ChannelRoles {
    std::vector<Role> role;       // per file channel
    std::vector<int> extraIndex;  // per file channel: its place among the extras, or -1
    std::vector<std::string> extras;
};

std::string Upper(std::string s)
{
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

ChannelRoles RolesOf(const ImageSpec& layout)
{
    const int n = layout.nchannels;
    std::vector<std::string> names(n);
    for (int i = 0; i < n; ++i) names[i] = i < static_cast<int>(layout.channelnames.size()) ? layout.channelnames[i] : "";
    const auto named = [&](const char* want) {
        for (int i = 0; i < n; ++i)
            if (Upper(names[i]) == want) return i;
        return -1;
    };

    ChannelRoles r;
    r.role.assign(n, Role::Extra);
    int alpha = layout.alpha_channel >= 0 && layout.alpha_channel < n ? layout.alpha_channel : named("A");
    if (alpha >= 0) r.role[alpha] = Role::Alpha;

    const int red = named("R"), green = named("G"), blue = named("B");
    std::vector<int> others;
    for (int i = 0; i < n; ++i)
        if (i != alpha) others.push_back(i);
    if (red >= 0 && green >= 0 && blue >= 0 && red != alpha && green != alpha && blue != alpha) {
        r.role[red] = Role::Red;
        r.role[green] = Role::Green;
        r.role[blue] = Role::Blue;
    } else if (const int y = named("Y"); y >= 0 && y != alpha) {
        r.role[y] = Role::Grey;
    } else if (others.size() >= 3) {
        r.role[others[0]] = Role::Red;
        r.role[others[1]] = Role::Green;
        r.role[others[2]] = Role::Blue;
    } else if (!others.empty()) {
        r.role[others[0]] = Role::Grey;
    }

    r.extraIndex.assign(n, -1);
    for (int i = 0; i < n; ++i)
        if (r.role[i] == Role::Extra) {
            r.extraIndex[i] = static_cast<int>(r.extras.size());
            r.extras.push_back(names[i].empty() ? "channel" + std::to_string(i) : names[i]);
        }
    return r;
}

int DepthOf(TypeDesc format)
{
    if (format == TypeDesc::UINT8 || format == TypeDesc::INT8) return IMDP_Int8;
    if (format.basetype == TypeDesc::HALF) return IMDP_Float16;
    if (!format.is_floating_point()) return IMDP_Int16;
    return IMDP_Float32;
}

TypeDesc FormatOf(int depth)
{
    switch (depth) {
    case IMDP_Int8: return TypeDesc::UINT8;
    case IMDP_Int16: return TypeDesc::UINT16;
    case IMDP_Float16: return TypeDesc::HALF;
    default: return TypeDesc::FLOAT;
    }
}

// The extra channel of `image` that holds the file's extra channel k.
int ImageExtraFor(const Image& image, const ChannelRoles& roles, int k)
{
    const auto& have = image.ExtraChannels();
    if (have.size() == roles.extras.size()) return k;
    const auto it = std::find(have.begin(), have.end(), roles.extras[k]);
    return it == have.end() ? -1 : static_cast<int>(it - have.begin());
}

// Narrows `layout` to the channels a file format can hold: without alpha when it
// has none, without extra channels when it holds a fixed set, and always red,
// green and blue when it holds nothing else (grey is then spread to all three).
// Returns the names of the channels left out.
std::vector<std::string> KeepChannels(ImageSpec& layout, bool alpha, bool extras, bool colourOnly)
{
    std::vector<std::string> dropped;
    const ChannelRoles roles = RolesOf(layout);
    std::vector<std::string> names;
    std::vector<TypeDesc> formats;
    int alphaIndex = -1, zIndex = -1;
    for (int c = 0; c < layout.nchannels; ++c) {
        const Role role = roles.role[c];
        if ((role == Role::Alpha && !alpha) || (role == Role::Extra && !extras)) {
            dropped.push_back(layout.channelnames[c]);
            continue;
        }
        const TypeDesc format = layout.channelformat(c);
        if (role == Role::Grey && colourOnly) {
            for (const char* n : {"R", "G", "B"}) {
                names.emplace_back(n);
                formats.push_back(format);
            }
            continue;
        }
        if (role == Role::Alpha) alphaIndex = static_cast<int>(names.size());
        if (c == layout.z_channel) zIndex = static_cast<int>(names.size());
        names.push_back(layout.channelnames[c]);
        formats.push_back(format);
    }
    const bool perChannel = !layout.channelformats.empty();
    layout.nchannels = static_cast<int>(names.size());
    layout.channelnames = names;
    layout.channelformats = perChannel ? formats : std::vector<TypeDesc>{};
    layout.alpha_channel = alphaIndex;
    layout.z_channel = zIndex;
    return dropped;
}

// The image's pixels in the channels `layout` describes.
std::vector<float> Interleaved(const Image& image, const ImageSpec& layout)
{
    const ChannelRoles roles = RolesOf(layout);
    const int n = layout.nchannels;
    std::vector<int> extraFor(n, -1);
    for (int c = 0; c < n; ++c)
        if (roles.role[c] == Role::Extra) extraFor[c] = ImageExtraFor(image, roles, roles.extraIndex[c]);
    std::vector<float> pixels(static_cast<std::size_t>(image.Width) * image.Height * n);
    float* dst = pixels.data();
    for (int y = 0; y < image.Height; ++y)
        for (int x = 0; x < image.Width; ++x, dst += n) {
            const float* p = image.Pixel(x, y);
            for (int c = 0; c < n; ++c) switch (roles.role[c]) {
                case Role::Red: case Role::Grey: dst[c] = p[2]; break;
                case Role::Green: dst[c] = p[1]; break;
                case Role::Blue: dst[c] = p[0]; break;
                case Role::Alpha: dst[c] = p[3]; break;
                case Role::Extra: dst[c] = extraFor[c] >= 0 ? p[4 + extraFor[c]] : 0.0f; break;
                }
        }
    return pixels;
}

void Unpremultiply(std::vector<float>& pixels, const ImageSpec& layout)
{
    const ChannelRoles roles = RolesOf(layout);
    const int n = layout.nchannels;
    for (std::size_t i = 0; i < pixels.size(); i += n) {
        const float a = pixels[i + layout.alpha_channel];
        if (a <= 0.0f || a == 1.0f) continue;
        for (int c = 0; c < n; ++c)
            if (roles.role[c] != Role::Alpha && roles.role[c] != Role::Extra) pixels[i + c] /= a;
    }
}


// A writer's file through a CheckedFile: the writer never sees a write fail
// (libjpeg would end the process over one), and the file is checked once closed.
class CheckedOutput : public OIIO::Filesystem::IOProxy {
public:
    CheckedOutput(CheckedFile& file, const std::string& path) : IOProxy(path, Write), m_file(file) {}
    const char* proxytype() const override { return "checked"; }
    int64_t tell() override { return static_cast<int64_t>(m_file.Tell()); }
    bool seek(int64_t offset) override
    {
        m_file.Seek(static_cast<std::uint64_t>(offset));
        return offset >= 0;
    }
    size_t write(const void* data, size_t size) override
    {
        m_file.Write(data, size);
        return size;
    }
    size_t pwrite(const void* data, size_t size, int64_t offset) override
    {
        m_file.WriteAt(data, size, static_cast<std::uint64_t>(offset));
        return size;
    }
    size_t read(void* data, size_t size) override
    {
        const size_t n = m_file.ReadAt(data, size, m_file.Tell());
        m_file.Seek(m_file.Tell() + n);
        return n;
    }
    size_t pread(void* data, size_t size, int64_t offset) override
    {
        return m_file.ReadAt(data, size, static_cast<std::uint64_t>(offset));
    }
    size_t size() const override { return static_cast<size_t>(m_file.Size()); }

private:
    CheckedFile& m_file;
};

// The whole description OpenImageIO read, kept for writing like the file.
struct OiioMetadata : FileMetadata {
    explicit OiioMetadata(ImageSpec s) : layout(std::move(s)) {}
    std::vector<std::pair<std::string, std::string>> Attributes() const override
    {
        std::vector<std::pair<std::string, std::string>> found;
        for (const OIIO::ParamValue& p : layout.extra_attribs)
            found.emplace_back(p.name().string(), p.get_string());
        return found;
    }
    ImageSpec layout;
};

FileLayout LayoutOf(const ImageSpec& layout, const std::string& path)
{
    FileLayout file;
    file.x = layout.x;
    file.y = layout.y;
    file.width = layout.width;
    file.height = layout.height;
    file.fullX = layout.full_x;
    file.fullY = layout.full_y;
    file.fullWidth = layout.full_width;
    file.fullHeight = layout.full_height;
    file.floating = layout.format.is_floating_point();
    file.colourSpace = layout.get_string_attribute(kColourSpaceAttribute);
    file.path = path;
    return file;
}

// A description for an image that was not read from a file: R, G, B, A and
// the extra channels, at the image's depth.
ImageSpec DefaultSpec(const Image& image)
{
    ImageSpec layout(image.Width, image.Height, 4 + static_cast<int>(image.ExtraChannels().size()), FormatOf(image.Depth));
    layout.channelnames = {"R", "G", "B", "A"};
    for (const std::string& name : image.ExtraChannels()) layout.channelnames.push_back(name);
    layout.alpha_channel = 3;
    return layout;
}

// What `like` describes, as OpenImageIO's description: the one it read, the
// header of the file it came from when another reader read it, or a new one.
ImageSpec SpecOf(const FileLayout& like, const Image& image)
{
    ImageSpec layout;
    if (const auto* mine = dynamic_cast<const OiioMetadata*>(like.metadata.get())) {
        layout = mine->layout;
    } else if (!like.path.empty()) {
        auto in = OIIO::ImageInput::open(like.path);
        if (!in) throw FileError("cannot read " + like.path + ": " + OIIO::geterror());
        layout = in->spec();
    } else {
        layout = DefaultSpec(image);
    }
    if (like.width > 0) {
        layout.x = like.x;
        layout.y = like.y;
        layout.width = like.width;
        layout.height = like.height;
        layout.full_x = like.fullX;
        layout.full_y = like.fullY;
        layout.full_width = like.fullWidth;
        layout.full_height = like.fullHeight;
    }
    if (!like.colourSpace.empty()) layout.attribute(kColourSpaceAttribute, like.colourSpace);
    return layout;
}

// A sane pixel aspect from the file's; 1 when it has none.
double AspectOf(const ImageSpec& layout)
{
    const double aspect = layout.get_float_attribute(kAspectAttribute, 1.0f);
    return aspect > 0.0 && std::isfinite(aspect) ? aspect : 1.0;
}

// The file opened for reading, once it is known to hold an image this program
// renders and to be long enough for the pixels it declares.
std::unique_ptr<OIIO::ImageInput> OpenForReading(const std::string& path)
{
    // Formats that store colour unassociated from alpha (PNG, some TIFFs) are
    // read as stored and premultiplied here in float: OpenImageIO's own
    // conversion works at the file's precision and would round 8-bit colour.
    ImageSpec config;
    config.attribute(kUnassociatedAttribute, 1);
    auto in = OIIO::ImageInput::open(path, &config);
    if (!in) throw FileError("cannot read " + path + ": " + OIIO::geterror());
    const ImageSpec& layout = in->spec();
    if (layout.deep) throw FileError("cannot read " + path + ": it holds deep data, which this program does not render");
    if (layout.depth > 1) throw FileError("cannot read " + path + ": it is a volume, which this program does not render");
    CheckFileLength(path, *in);
    return in;
}

FileHeader ReadHeader(const std::string& path)
{
    const auto in = OpenForReading(path);
    const ImageSpec& layout = in->spec();
    FileHeader header;
    header.layout = LayoutOf(layout, path);
    header.channels = layout.nchannels;
    header.extras = RolesOf(layout).extras;
    header.depth = DepthOf(layout.format);
    header.pixelAspect = AspectOf(layout);
    return header;
}

ImageFile ReadFile(const std::string& path)
{
    auto in = OpenForReading(path);
    ImageSpec layout = in->spec();
    // Debian 12's PNM reader calls every file Rec709, float maps too, which
    // hold linear light by convention.
    if (std::string(in->format_name()) == "pnm" && layout.format.is_floating_point())
        layout.erase_attribute(kColourSpaceAttribute);

    const ChannelRoles roles = RolesOf(layout);
    const int n = layout.nchannels;
    // The decoded float buffer and the host image it is copied into.
    CheckReadMemory(path, layout.width, layout.height, n, n + 4.0 + static_cast<double>(roles.extras.size()));
    std::vector<float> pixels(static_cast<std::size_t>(layout.width) * layout.height * n);
    CheckWholeRead(path, *in, in->read_image(0, 0, 0, n, TypeDesc::FLOAT, pixels.data()));
    in->close();

    ImageFile file;
    file.image = Ref<Image>(new Image(layout.width, layout.height, DepthOf(layout.format), roles.extras));
    Image& img = *file.image;
    img.XScale = AspectOf(layout);
    img.YScale = 1.0;

    const bool premultiply = layout.get_int_attribute(kUnassociatedAttribute, 0) != 0;
    layout.erase_attribute(kUnassociatedAttribute);
    const float* src = pixels.data();
    for (int y = 0; y < layout.height; ++y)
        for (int x = 0; x < layout.width; ++x, src += n) {
            float* p = img.Pixel(x, y);  // blue, green, red, alpha, extras
            p[3] = 1.0f;
            for (int c = 0; c < n; ++c) switch (roles.role[c]) {
                case Role::Red: p[2] = src[c]; break;
                case Role::Green: p[1] = src[c]; break;
                case Role::Blue: p[0] = src[c]; break;
                case Role::Alpha: p[3] = src[c]; break;
                case Role::Grey: p[0] = p[1] = p[2] = src[c]; break;
                case Role::Extra: p[4 + roles.extraIndex[c]] = src[c]; break;
                }
            if (premultiply)
                for (int c = 0; c < 3; ++c) p[c] *= p[3];
        }
    file.layout = LayoutOf(layout, path);
    file.layout.metadata = std::make_shared<OiioMetadata>(std::move(layout));
    return file;
}

ImageCodec::Written WriteFile(const std::string& path, const std::string& temp, const Image& image,
                              const FileLayout& likeFile, std::optional<int> depth, const std::string& compression)
{
    const ImageSpec like = SpecOf(likeFile, image);
    ImageSpec layout = like;
    if (!compression.empty()) layout.attribute(kCompressionAttribute, compression);
    if (layout.full_width <= 0 || like.width != image.Width || like.height != image.Height) {
        layout.full_x = layout.x;
        layout.full_y = layout.y;
        layout.full_width = image.Width;
        layout.full_height = image.Height;
    }
    layout.width = image.Width;
    layout.height = image.Height;
    const int outDepth = depth.value_or(image.Depth);
    if (outDepth != DepthOf(like.format) || depth) {
        layout.set_format(FormatOf(outDepth));
        layout.channelformats.clear();
        layout.erase_attribute(kBitsAttribute);
    }
    const double aspect = image.XScale / image.YScale;
    if (aspect != 1.0 || like.find_attribute(kAspectAttribute))
        layout.attribute(kAspectAttribute, static_cast<float>(aspect));

    const bool pfm = IsPfmPath(path);
    std::unique_ptr<OIIO::ImageOutput> out;
    std::vector<std::string> dropped;
    if (pfm) {
        dropped = KeepChannels(layout, false, false, false);
    } else {
        out = OIIO::ImageOutput::create(path);
        if (!out) throw FileError("cannot write " + path + ": " + OIIO::geterror());
        const std::string format = out->format_name();
        dropped = KeepChannels(layout, out->supports("alpha"), out->supports("nchannels"), format == "hdr");
        if (!out->supports("tiles")) layout.tile_width = layout.tile_height = layout.tile_depth = 0;
        if (!out->supports("channelformats")) layout.channelformats.clear();
        // PNG holds 8 or 16 bits; float data keeps the most of itself in 16.
        if (format == "png" && layout.format.is_floating_point()) layout.set_format(TypeDesc::UINT16);
    }
    std::vector<float> pixels = Interleaved(image, layout);
    // PNG stores colour unassociated; divide by alpha here, in float, rather
    // than let the writer do it at the file's precision.
    layout.erase_attribute(kUnassociatedAttribute);
    if (out && std::string(out->format_name()) == "png" && layout.alpha_channel >= 0) {
        Unpremultiply(pixels, layout);
        layout.attribute(kUnassociatedAttribute, 1);
    }

    ImageCodec::Written result;
    const std::string formatName = pfm ? "pfm" : out->format_name();
    if (!dropped.empty())
        result.warnings.push_back(path + ": " + formatName + " cannot hold " + std::to_string(dropped.size()) +
                                  " of the channels, left out: " + OIIO::Strutil::join(dropped, ", "));
    if (pfm) {
        result.failure = WritePfm(temp, layout.width, layout.height, layout.nchannels, pixels.data());
        if (depth && *depth != IMDP_Float32)
            result.warnings.push_back(path + ": pfm cannot hold --depth " + std::string(DepthName(*depth)) +
                                      " data, written as float");
        return result;
    }
    // Nearly every writer takes its file through a proxy. The others write it
    // themselves: TIFF, whose writer cannot read its own directories back
    // through a proxy (it loses them when it adds an EXIF one), but sees a
    // failed write; and the few that take none. AtomicFile's checks at the
    // rename are what is left for them.
    std::optional<CheckedFile> file;
    std::optional<CheckedOutput> proxy;
    if (out->supports("ioproxy") && formatName != "tiff") {
        file.emplace(temp);
        proxy.emplace(*file, temp);
        out->set_ioproxy(&*proxy);
    }
    if (!out->open(temp, layout)) {
        result.failure = out->geterror();
        return result;
    }
    const TypeDesc written = out->spec().format;
    if (depth && written != FormatOf(*depth))
        result.warnings.push_back(path + ": " + formatName + " cannot hold --depth " + DepthName(*depth) +
                                  " data, written as " + written.c_str());
    if (!out->write_image(TypeDesc::FLOAT, pixels.data()) || !out->close()) result.failure = out->geterror();
    else if (file) result.failure = file->Close();
    return result;
}

class OiioColourProcessor : public ColourProcessor {
public:
    explicit OiioColourProcessor(OIIO::ColorProcessorHandle p) : m_p(std::move(p)) {}
    void Apply(float* rgb, int pixels) const override
    {
        constexpr OIIO::stride_t kFloat = sizeof(float);
        m_p->apply(rgb, pixels, 1, 3, kFloat, 3 * kFloat, 3 * kFloat * pixels);
    }
    bool Crosstalk() const override { return m_p->hasChannelCrosstalk(); }

private:
    OIIO::ColorProcessorHandle m_p;
};

class OiioColourConfig : public ColourConfig {
public:
    std::string Error() const override { return m_config.geterror(); }
    std::string SpaceOfRole(const std::string& role) const override
    {
        const char* name = m_config.getColorSpaceNameByRole(role);
        return name ? name : "";
    }
    std::unique_ptr<ColourProcessor> Processor(const std::string& from, const std::string& to) const override
    {
        return Wrap(m_config.createColorProcessor(from, to));
    }
    std::vector<std::string> Spaces() const override { return m_config.getColorSpaceNames(); }
    std::string Name() const override { return m_config.configname(); }
    Displays DisplaysAndViews() const override
    {
        Displays displays;
        for (const std::string& display : m_config.getDisplayNames())
            displays.emplace_back(display, m_config.getViewNames(display));
        return displays;
    }
    std::unique_ptr<ColourProcessor> DisplayProcessor(const std::string& display, const std::string& view,
                                                      const std::string& from) const override
    {
        return Wrap(m_config.createDisplayTransform(display, view, from));
    }

private:
    // Null, its error taken so it is not reported with a later one, when there is no such transform.
    std::unique_ptr<ColourProcessor> Wrap(OIIO::ColorProcessorHandle p) const
    {
        if (!p) {
            m_config.geterror();
            return nullptr;
        }
        return std::make_unique<OiioColourProcessor>(std::move(p));
    }

    mutable OIIO::ColorConfig m_config;
};

class OiioCodec : public ImageCodec {
public:
    ImageFile Read(const std::string& path) const override { return ReadFile(path); }
    Written Write(const std::string& path, const std::string& temp, const Image& image, const FileLayout& like,
                  std::optional<int> depth, const std::string& compression) const override
    {
        return WriteFile(path, temp, image, like, depth, compression);
    }
    std::string FormatOf(const std::string& path) const override
    {
        const std::unique_ptr<OIIO::ImageOutput> out = OIIO::ImageOutput::create(path);
        return out ? out->format_name() : "";
    }
    FileHeader Header(const std::string& path) const override { return ReadHeader(path); }
    std::string Encode(const unsigned char* rgb, int width, int height, bool png, int level, int quality) const override
    {
        std::vector<unsigned char> bytes;
        OIIO::Filesystem::IOVecOutput proxy(bytes);
        auto out = OIIO::ImageOutput::create(png ? "png" : "jpg", &proxy);
        ImageSpec layout(width, height, 3, TypeDesc::UINT8);
        if (png) layout.attribute("png:compressionLevel", level);
        else {
            layout.attribute("CompressionQuality", quality);
            layout.attribute("jpeg:subsampling", "4:4:4");
        }
        if (!out || !out->open(png ? "view.png" : "view.jpg", layout) || !out->write_image(TypeDesc::UINT8, rgb) ||
            !out->close())
            throw FileError(std::string("cannot encode the picture as ") + (png ? "PNG: " : "JPEG: ") +
                            (out ? out->geterror() : OIIO::geterror()));
        return std::string(bytes.begin(), bytes.end());
    }
    std::unique_ptr<ColourConfig> Colours() const override { return std::make_unique<OiioColourConfig>(); }
};

}  // namespace

extern "C" __attribute__((visibility("default"))) ImageCodec* LumivaneImageCodec()
{
    static OiioCodec codec;
    return &codec;
}
