// Feeds arbitrary bytes to the program as an OpenEXR file. Those the core
// library's chunk reader takes (uncompressed and ZIP scanlines, ExrChunks.h)
// are read whole into a host image; the rest, which OpenEXR's own decoders
// read, are left alone. Read or refused with a message; never a crash, a hang
// or a leak.
#include "app/files/ExitCodes.h"
#include "app/files/ExrChunks.h"
#include "app/files/ExrFiles.h"
#include "host/EngineSettings.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

// The reader takes a path: the input goes to a file of this process's own.
const std::string& Scratch()
{
    static const std::string path = [] {
        const char* dir = std::getenv("TMPDIR");
        std::string p = std::string(dir ? dir : "/tmp") + "/fuzz_exr." + std::to_string(::getpid()) + ".exr";
        std::atexit([] { std::remove(Scratch().c_str()); });
        return p;
    }();
    return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A header may claim any size: the limit refuses the large ones before
    // anything is allocated, as it does in the program.
    SetMemoryLimit(std::uint64_t{2} << 20);
    SetEngineThreads(2);
    const std::string& path = Scratch();
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                  static_cast<std::streamsize>(size));
    try {
        if (ExrChunkReader::Open(path)) ReadExrFile(path);
    } catch (const ProgramError&) {
    } catch (const std::runtime_error&) {
    }
    return 0;
}
