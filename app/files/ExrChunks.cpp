#include "app/files/ExrChunks.h"

#include "app/files/ExrHeader.h"
#include "app/files/ExrZip.h"
#include "host/WorkerPool.h"
#include "util/CheckedFile.h"

#include <half.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <vector>

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "a chunk's values are copied as they lie in memory");

namespace {

// Lines coded by one job of the worker pool: ZIPS and uncompressed chunks hold
// one line each, and a job per line would cost more in handing out than in coding.
constexpr int kLinesPerJob = 16;

// Where each channel of a line lies in a pixel record, in the file's order.
struct Lines {
    struct Channel {
        int record;
        int bytes;  // 2 for half, 4 for float
    };
    std::vector<Channel> channels;
    int width = 0;
    std::size_t bytes = 0;  // of one line
    bool alpha = false;
};

Lines LinesOf(exr_const_context_t file, int width, const RecordOfChannel& recordOf)
{
    const exr_attr_chlist_t* list = nullptr;
    CheckExr(exr_get_channels(file, 0, &list));
    Lines lines;
    lines.width = width;
    for (int c = 0; c < list->num_channels; ++c) {
        const exr_attr_chlist_entry_t& e = list->entries[c];
        if ((e.pixel_type != EXR_PIXEL_HALF && e.pixel_type != EXR_PIXEL_FLOAT) || e.x_sampling != 1 ||
            e.y_sampling != 1)
            throw std::runtime_error(std::string("channel ") + e.name.str +
                                     " is not a half or float channel of every pixel");
        const int bytes = e.pixel_type == EXR_PIXEL_HALF ? 2 : 4;
        const int record = recordOf(e.name.str);
        lines.channels.push_back({record, bytes});
        lines.bytes += static_cast<std::size_t>(bytes) * width;
        lines.alpha = lines.alpha || record == kRecordPosition[3];
    }
    return lines;
}

void LinesToRecords(const unsigned char* raw, int rows, int firstRow, const Lines& lines, Image& image)
{
    const int stride = image.PixelStride();
    for (int r = 0; r < rows; ++r) {
        float* row = image.Pixel(0, firstRow + r);
        const unsigned char* src = raw + r * lines.bytes;
        for (const Lines::Channel& c : lines.channels) {
            float* dst = row + c.record;
            if (c.record < 0) {
            } else if (c.bytes == 4) {
                for (int x = 0; x < lines.width; ++x) std::memcpy(dst + x * stride, src + 4 * x, 4);
            } else {
                for (int x = 0; x < lines.width; ++x) {
                    std::uint16_t bits;
                    std::memcpy(&bits, src + 2 * x, 2);
                    half h;
                    h.setBits(bits);
                    dst[x * stride] = h;
                }
            }
            src += static_cast<std::size_t>(c.bytes) * lines.width;
        }
        if (!lines.alpha)
            for (int x = 0; x < lines.width; ++x) row[x * stride + kRecordPosition[3]] = 1.0f;
    }
}

void RecordsToLines(const Image& image, int firstRow, int rows, const Lines& lines, unsigned char* raw)
{
    const int stride = image.PixelStride();
    for (int r = 0; r < rows; ++r) {
        const float* row = image.Pixel(0, firstRow + r);
        unsigned char* dst = raw + r * lines.bytes;
        for (const Lines::Channel& c : lines.channels) {
            const float* src = row + c.record;
            const std::size_t bytes = static_cast<std::size_t>(c.bytes) * lines.width;
            if (c.record < 0) {
                std::memset(dst, 0, bytes);
            } else if (c.bytes == 4) {
                for (int x = 0; x < lines.width; ++x) std::memcpy(dst + 4 * x, src + x * stride, 4);
            } else {
                for (int x = 0; x < lines.width; ++x) {
                    const std::uint16_t bits = half(src[x * stride]).bits();
                    std::memcpy(dst + 2 * x, &bits, 2);
                }
            }
            dst += bytes;
        }
    }
}

// The chunks of a part: their count, the lines each holds and the first line.
struct Chunks {
    int count = 0;
    int lines = 1;
    int perJob = 1;
    exr_attr_box2i_t window{};
    exr_compression_t compression = EXR_COMPRESSION_NONE;

    int Jobs() const { return (count + perJob - 1) / perJob; }
    int FirstY(int chunk) const { return window.min.y + chunk * lines; }
    int Rows(int chunk) const { return std::min(lines, window.max.y - FirstY(chunk) + 1); }
};

Chunks ChunksOf(exr_const_context_t file, const Image& image)
{
    Chunks chunks;
    CheckExr(exr_get_data_window(file, 0, &chunks.window));
    CheckExr(exr_get_compression(file, 0, &chunks.compression));
    CheckExr(exr_get_scanlines_per_chunk(file, 0, &chunks.lines));
    CheckExr(exr_get_chunk_count(file, 0, &chunks.count));
    const std::int64_t width = std::int64_t{chunks.window.max.x} - chunks.window.min.x + 1;
    const std::int64_t height = std::int64_t{chunks.window.max.y} - chunks.window.min.y + 1;
    if (width != image.Width || height != image.Height || chunks.lines < 1 ||
        chunks.count != (image.Height + chunks.lines - 1) / chunks.lines)
        throw std::runtime_error("the data window does not match the image");
    chunks.perJob = std::max(1, kLinesPerJob / chunks.lines);
    return chunks;
}

// A ZIP coder and chunk buffers for one job at a time, kept for the jobs of
// one file and let go with it.
struct Workspace {
    explicit Workspace(int level) : zip(level) {}
    ZipCoder zip;
    std::vector<unsigned char> packed, raw;
};

class Workspaces {
public:
    explicit Workspaces(int level) : m_level(level) {}
    // Runs job(0) .. job(count - 1) on the host's pool, each with a workspace of its own.
    void Run(int count, const std::function<void(int, Workspace&)>& job)
    {
        WorkerPool::Shared().Run(count, [&](int k) {
            std::unique_ptr<Workspace> w = Take();
            job(k, *w);
            Give(std::move(w));
        });
    }

private:
    std::unique_ptr<Workspace> Take()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_free.empty()) return std::make_unique<Workspace>(m_level);
        std::unique_ptr<Workspace> w = std::move(m_free.back());
        m_free.pop_back();
        return w;
    }
    void Give(std::unique_ptr<Workspace> w)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_free.push_back(std::move(w));
    }
    int m_level;
    std::mutex m_mutex;
    std::vector<std::unique_ptr<Workspace>> m_free;
};

}  // namespace

// ---------------------------------------------------------------- reading

struct ExrChunkReader::File {
    ExrContext context;
    std::string path;
};

std::unique_ptr<ExrChunkReader> ExrChunkReader::Open(const std::string& path)
{
    exr_context_initializer_t init = ExrInitializer();
    // A chunk the offset table does not find is an error, not a search through the file.
    init.flags = EXR_CONTEXT_FLAG_DISABLE_CHUNK_RECONSTRUCTION;
    exr_context_t c = nullptr;
    const exr_result_t started = exr_start_read(&c, path.c_str(), &init);
    auto file = std::make_unique<File>(File{ExrContext(c), path});
    CheckExr(started);
    int parts = 0;
    exr_storage_t storage = EXR_STORAGE_LAST_TYPE;
    exr_compression_t compression = EXR_COMPRESSION_LAST_TYPE;
    CheckExr(exr_get_count(c, &parts));
    CheckExr(exr_get_storage(c, 0, &storage));
    CheckExr(exr_get_compression(c, 0, &compression));
    if (parts != 1 || storage != EXR_STORAGE_SCANLINE ||
        (compression != EXR_COMPRESSION_NONE && compression != EXR_COMPRESSION_ZIP &&
         compression != EXR_COMPRESSION_ZIPS))
        return nullptr;
    return std::unique_ptr<ExrChunkReader>(new ExrChunkReader(std::move(file)));
}

ExrChunkReader::ExrChunkReader(std::unique_ptr<File> file) : m_file(std::move(file)) {}
ExrChunkReader::~ExrChunkReader() = default;

Imf::Header ExrChunkReader::Header() const { return ImfHeaderOf(m_file->context.get()); }

void ExrChunkReader::Decode(Image& image, const RecordOfChannel& recordOf) const
{
    exr_const_context_t file = m_file->context.get();
    try {
        const Chunks chunks = ChunksOf(file, image);
        const Lines lines = LinesOf(file, image.Width, recordOf);
        const auto decode = [&](int chunk, Workspace& work) {
            const int y = chunks.FirstY(chunk), rows = chunks.Rows(chunk);
            exr_chunk_info_t info;
            CheckExr(exr_read_scanline_chunk_info(file, 0, y, &info));
            const std::size_t size = rows * lines.bytes;
            if (info.start_y != y || info.height != rows || info.unpacked_size != size)
                throw std::runtime_error("the chunk of line " + std::to_string(y) + " does not hold its lines");
            // A chunk that packing did not make smaller is stored raw, so none is larger.
            if (info.packed_size > size || (chunks.compression == EXR_COMPRESSION_NONE && info.packed_size != size))
                throw std::runtime_error("the chunk of line " + std::to_string(y) + " has " +
                                         std::to_string(info.packed_size) + " bytes for lines of " +
                                         std::to_string(size));
            std::vector<unsigned char>& packed = work.packed;
            packed.resize(info.packed_size);
            CheckExr(exr_read_chunk(file, 0, &info, packed.data()));
            const unsigned char* raw = packed.data();
            if (info.packed_size < size) {
                std::vector<unsigned char>& unpacked = work.raw;
                unpacked.resize(size);
                work.zip.Unpack(packed.data(), packed.size(), unpacked.data(), size);
                raw = unpacked.data();
            }
            LinesToRecords(raw, rows, y - chunks.window.min.y, lines, image);
        };
        // Reading only unpacks: the level is never used.
        Workspaces(kDefaultZipLevel).Run(chunks.Jobs(), [&](int job, Workspace& work) {
            const int end = std::min(chunks.count, (job + 1) * chunks.perJob);
            for (int k = job * chunks.perJob; k < end; ++k) decode(k, work);
        });
    } catch (const std::runtime_error& e) {
        // OpenEXR's own words for a file whose pixels cannot be read.
        throw std::runtime_error("Error reading pixel data from image file \"" + m_file->path + "\". " + e.what());
    }
}

// ---------------------------------------------------------------- writing

namespace {

// Every write goes through a CheckedFile, which keeps the first failure (a full
// disk, a file-size limit) for the end.
int64_t WriteChecked(exr_const_context_t, void* file, const void* buffer, uint64_t size, uint64_t offset,
                     exr_stream_error_func_ptr_t)
{
    static_cast<CheckedFile*>(file)->WriteAt(buffer, size, offset);
    return static_cast<int64_t>(size);
}

void WriteChunks(exr_context_t file, const Image& image, const Lines& lines, const Chunks& chunks, int zipLevel)
{
    const bool zip = chunks.compression != EXR_COMPRESSION_NONE;
    // A few jobs per thread at a time, then their chunks are written, top down.
    const int batch = 4 * static_cast<int>(WorkerPool::Shared().ThreadCount()) * chunks.perJob;
    std::vector<std::vector<unsigned char>> coded(static_cast<std::size_t>(std::min(batch, chunks.count)));
    Workspaces workspaces(zipLevel);
    for (int first = 0; first < chunks.count; first += batch) {
        const int n = std::min(batch, chunks.count - first);
        const auto code = [&](int k, Workspace& work) {
            const int chunk = first + k;
            const std::size_t size = chunks.Rows(chunk) * lines.bytes;
            std::vector<unsigned char>& out = coded[k];
            std::vector<unsigned char>& raw = zip ? work.raw : out;
            raw.resize(size);
            RecordsToLines(image, chunks.FirstY(chunk) - chunks.window.min.y, chunks.Rows(chunk), lines, raw.data());
            if (zip && !work.zip.Pack(raw.data(), size, out)) out.assign(raw.begin(), raw.end());
        };
        workspaces.Run((n + chunks.perJob - 1) / chunks.perJob, [&](int job, Workspace& work) {
            for (int k = job * chunks.perJob; k < std::min(n, (job + 1) * chunks.perJob); ++k) code(k, work);
        });
        for (int k = 0; k < n; ++k)
            CheckExr(exr_write_scanline_chunk(file, 0, chunks.FirstY(first + k), coded[k].data(), coded[k].size()));
    }
}

}  // namespace

bool WritesChunks(const Imf::Header& header)
{
    const Imf::Compression c = header.compression();
    return header.lineOrder() == Imf::INCREASING_Y &&
           (c == Imf::NO_COMPRESSION || c == Imf::ZIP_COMPRESSION || c == Imf::ZIPS_COMPRESSION);
}

std::string WriteExrChunks(const std::string& temp, const Imf::Header& header, const Image& image,
                           const RecordOfChannel& recordOf, int zipLevel)
{
    CheckedFile output(temp);
    try {
        std::string bytes;
        const ExrContext described = CoreHeaderOf(header, temp, bytes);
        exr_context_initializer_t init = ExrInitializer();
        init.user_data = &output;
        init.write_fn = WriteChecked;
        exr_context_t c = nullptr;
        const exr_result_t started = exr_start_write(&c, temp.c_str(), EXR_WRITE_FILE_DIRECTLY, &init);
        ExrContext file(c);
        CheckExr(started);
        int part = 0;
        CheckExr(exr_add_part(c, "", EXR_STORAGE_SCANLINE, &part));
        CheckExr(exr_copy_unset_attributes(c, part, described.get(), 0));
        CheckExr(exr_write_header(c));
        const Chunks chunks = ChunksOf(c, image);
        WriteChunks(c, image, LinesOf(c, image.Width, recordOf), chunks, zipLevel);
        // The offset table goes in last.
        exr_context_t done = file.release();
        CheckExr(exr_finish(&done));
    } catch (const std::runtime_error& e) {
        const std::string failed = output.Close();
        return failed.empty() ? e.what() : failed;
    }
    return output.Close();
}
