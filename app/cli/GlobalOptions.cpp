#include "app/cli/GlobalOptions.h"

#include "app/files/ExitCodes.h"
#include "host/EngineSettings.h"
#include "util/AtomicFile.h"
#include "util/FftwWisdom.h"

#include <CLI/CLI.hpp>

namespace {

// `text` read by `parse`, a usage error naming `flag` when it is malformed.
template <class Parse>
auto FlagValue(const char* flag, const std::string& text, Parse parse)
{
    try {
        return parse(text);
    } catch (const std::invalid_argument& e) {
        throw ProgramError(Exit::Usage, std::string(flag) + ": " + e.what());
    }
}

}  // namespace

void AddGlobalOptions(CLI::App& app, GlobalOptions& g)
{
    const std::string group = "Plug-ins and engine";
    app.add_option("--plugins", g.plugins, "Load plug-in modules from this folder (default: LUMIVANE_PLUGIN_PATH, else "
                                           "lib/lumivane/plugins beside an installed program, else the build's)")
        ->type_name("DIR")
        ->group(group);
    app.add_option("--threads", g.threads, "Worker threads for the tool, 1 to 256 (default: LUMIVANE_THREADS, "
                                           "else one per core)")
        ->type_name("N")
        ->group(group);
    app.add_option("--fft-planning", g.planning,
                   "FFT planning effort: estimate or measure (default: LUMIVANE_FFT_PLANNING, else estimate)")
        ->type_name("EFFORT")
        ->group(group);
    app.add_option("--fft-wisdom", g.wisdom, "FFTW wisdom file, read and updated (default: LUMIVANE_FFT_WISDOM)")
        ->type_name("FILE")
        ->group(group);
    app.add_option("--max-memory", g.maxMemory,
                   "Refuse frames that would need more memory than this, e.g. 4G or 512M; a number without "
                   "K, M, G or T counts bytes (default: LUMIVANE_MAX_MEMORY, else the memory available, at most "
                   "75% of the machine's)")
        ->type_name("SIZE")
        ->group(group);
    app.add_flag("--fast-sizes", g.fastSizes,
                 "Transform sides with no prime factor above 7 instead of powers of two: the same image, "
                 "usually sooner and in less memory (default: LUMIVANE_TRANSFORM_SIZES, else power-of-two)")
        ->group(group);
}

void ApplyEngineSettings(const GlobalOptions& g)
{
    try {
        CheckEngineEnvironment();
    } catch (const std::invalid_argument& e) {
        throw ProgramError(Exit::Usage, e.what());
    }
    if (!g.threads.empty()) SetEngineThreads(FlagValue("--threads", g.threads, ParseThreads));
    if (!g.planning.empty()) SetEngineFftPlanning(FlagValue("--fft-planning", g.planning, ParseFftPlanning));
    if (!g.wisdom.empty()) SetEngineFftWisdom(g.wisdom);
    if (!g.maxMemory.empty()) SetMemoryLimit(FlagValue("--max-memory", g.maxMemory, ParseMemorySize));
    if (g.fastSizes) SetEngineTransformSizes(TransformSizes::Smooth);
    // Refused before anything starts: a render would only find out once its plans are measured.
    if (const std::string wisdom = EngineFftWisdom(); !wisdom.empty())
        if (const std::string why = AtomicFile::CannotWrite(wisdom, NotFftwWisdom); !why.empty())
            throw FileError("cannot use " + wisdom + " as the FFT wisdom file (--fft-wisdom, LUMIVANE_FFT_WISDOM): " +
                            why);
}

