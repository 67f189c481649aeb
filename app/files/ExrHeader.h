#pragma once
// A single-part header carried between OpenEXR's two libraries: its C++
// library, whose Imf::Header the program keeps as a file's metadata, and its
// core library, which reads and writes the chunks (ExrChunks.h). Each side
// writes the header's bytes and the other reads them back, so every attribute,
// of every type, crosses unchanged. A file's header is read by the core
// library, which checks each attribute against the file; the C++ library then
// reads only the bytes the core library wrote, never a size the file claims
// (which it would allocate before reading: a few hundred bytes claiming a 2 GB
// attribute would cost 2 GB).
#include <ImfHeader.h>
#include <openexr.h>

#include <memory>
#include <string>
#include <type_traits>

struct FinishExr {
    void operator()(exr_context_t c) const { exr_finish(&c); }
};
using ExrContext = std::unique_ptr<std::remove_pointer_t<exr_context_t>, FinishExr>;

// OpenEXR's core library's error words, remembered on the thread of the call
// that failed; CheckExr throws them as a std::runtime_error.
exr_context_initializer_t ExrInitializer();
void CheckExr(exr_result_t result);

// `file`'s first part's header. Throws std::runtime_error with OpenEXR's words.
Imf::Header ImfHeaderOf(exr_const_context_t file);

// A read context of the core library holding `header`, named `name` in its
// messages; `bytes` keeps the header's bytes for as long as the context lives.
ExrContext CoreHeaderOf(const Imf::Header& header, const std::string& name, std::string& bytes);
