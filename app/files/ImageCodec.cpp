#include "app/files/ImageCodec.h"

#include "app/files/ExitCodes.h"
#include "host/EngineSettings.h"
#include "util/OwnFile.h"

#include <mutex>

#include <dlfcn.h>

#ifndef LUMIVANE_CODEC_MODULE_BUILT
#error "LUMIVANE_CODEC_MODULE_BUILT must name the module's file in the build tree"
#endif

namespace {

constexpr const char* kModuleName = "lumivane-oiio.so";

// Installed, the module sits beside the host library, wherever the install
// was moved; in the build tree it is where the build put it.
std::string ModulePath()
{
    return BesideOwnFile(reinterpret_cast<const void*>(&MemoryLimit), kModuleName, Beside::File, LUMIVANE_CODEC_MODULE_BUILT);
}

const ImageCodec* Open()
{
    const std::string path = ModulePath();
    // Kept open for the life of the process: images and colour processors it
    // made may outlive any one caller.
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) throw FileError("cannot open the image file module " + path + ": " + dlerror());
    const auto make = reinterpret_cast<MakeImageCodec>(dlsym(module, LUMIVANE_IMAGE_CODEC_SYMBOL));
    if (!make) throw FileError("cannot open the image file module " + path + ": it has no " LUMIVANE_IMAGE_CODEC_SYMBOL);
    return make();
}

}  // namespace

const ImageCodec& Codec()
{
    static std::mutex lock;
    static const ImageCodec* codec = nullptr;
    const std::lock_guard<std::mutex> hold(lock);
    if (!codec) codec = Open();
    return *codec;
}
