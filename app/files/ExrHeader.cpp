#include "app/files/ExrHeader.h"

#include <ImfIO.h>
#include <ImfStdIO.h>
#include <ImfVersion.h>
#include <ImfXdr.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace {

thread_local std::string tLastError;

void RememberError(exr_const_context_t, exr_result_t code, const char* message)
{
    tLastError = message ? message : exr_get_default_error_message(code);
}

int64_t ReadBytes(exr_const_context_t, void* bytes, void* buffer, uint64_t size, uint64_t offset,
                  exr_stream_error_func_ptr_t)
{
    const std::string& from = *static_cast<const std::string*>(bytes);
    if (offset >= from.size()) return 0;
    const std::size_t n = std::min<std::size_t>(size, from.size() - offset);
    std::memcpy(buffer, from.data() + offset, n);
    return static_cast<int64_t>(n);
}

int64_t SizeOfBytes(exr_const_context_t, void* bytes)
{
    return static_cast<int64_t>(static_cast<const std::string*>(bytes)->size());
}

int64_t WriteBytes(exr_const_context_t, void* bytes, const void* buffer, uint64_t size, uint64_t offset,
                   exr_stream_error_func_ptr_t)
{
    std::string& to = *static_cast<std::string*>(bytes);
    if (to.size() < offset + size) to.resize(offset + size);
    std::memcpy(&to[offset], buffer, size);
    return static_cast<int64_t>(size);
}

}  // namespace

exr_context_initializer_t ExrInitializer()
{
    exr_context_initializer_t init = EXR_DEFAULT_CONTEXT_INITIALIZER;
    init.error_handler_fn = RememberError;
    return init;
}

void CheckExr(exr_result_t result)
{
    if (result == EXR_ERR_SUCCESS) return;
    std::string why = tLastError.empty() ? exr_get_default_error_message(result) : tLastError;
    tLastError.clear();
    throw std::runtime_error(why);
}

Imf::Header ImfHeaderOf(exr_const_context_t file)
{
    std::string bytes;  // magic number, version, attributes
    exr_context_initializer_t init = ExrInitializer();
    init.user_data = &bytes;
    init.write_fn = WriteBytes;
    exr_context_t c = nullptr;
    const exr_result_t started = exr_start_write(&c, "header", EXR_WRITE_FILE_DIRECTLY, &init);
    ExrContext out(c);
    CheckExr(started);
    int part = 0;
    CheckExr(exr_add_part(c, "", EXR_STORAGE_SCANLINE, &part));
    CheckExr(exr_copy_unset_attributes(c, part, file, 0));
    CheckExr(exr_write_header(c));

    Imf::StdISStream in;
    in.str(bytes);
    int magic = 0, version = 0;
    Imf::Xdr::read<Imf::StreamIO>(in, magic);
    Imf::Xdr::read<Imf::StreamIO>(in, version);
    Imf::Header header;
    header.readFrom(in, version);
    return header;
}

ExrContext CoreHeaderOf(const Imf::Header& header, const std::string& name, std::string& bytes)
{
    Imf::StdOSStream out;
    Imf::Xdr::write<Imf::StreamIO>(out, Imf::MAGIC);
    Imf::Xdr::write<Imf::StreamIO>(out, Imf::EXR_VERSION | Imf::LONG_NAMES_FLAG);
    header.writeTo(out);
    bytes = out.str();
    exr_context_initializer_t init = ExrInitializer();
    init.user_data = &bytes;
    init.read_fn = ReadBytes;
    init.size_fn = SizeOfBytes;
    exr_context_t c = nullptr;
    const exr_result_t started = exr_start_read(&c, name.c_str(), &init);
    ExrContext context(c);
    CheckExr(started);
    return context;
}
