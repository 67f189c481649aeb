#include "app/session/RenderPlate.h"

#include "app/files/ExitCodes.h"
#include "app/files/Interrupt.h"
#include "app/session/Plugins.h"
#include "app/session/ToolNames.h"
#include "host/EngineSettings.h"
#include "host/Flow.h"

#include <algorithm>
#include <fstream>
#include <unistd.h>

using json = nlohmann::ordered_json;

ToolInputs InputsOf(Operator& tool)
{
    Input* source = tool.FindInput(kSourceInput);
    Input* kernel = tool.FindInput(kKernelInput);
    if (!source || !kernel)
        throw FileError(std::string("the tool has no \"") + kSourceInput + "\" and \"" + kKernelInput + "\" inputs");
    return {*source, *kernel};
}

Operator* ToolFromFlow(FusionDoc& doc, const std::string& flow, json* program)
{
    try {
        json loaded = LoadFlow(doc, flow);
        if (program) *program = std::move(loaded);
    } catch (const ValueRefused& e) {
        // The same value given with --set would be a usage error.
        throw UsageError(e.what());
    } catch (const std::runtime_error& e) {
        throw FileError(e.what());
    }
    for (const auto& t : doc.Tools())
        if (t->Reg()) return t.get();
    throw FileError(flow + ": the flow holds no tool");
}

Operator* MakeTool(PluginHost& host, const std::string& flow, json& program)
{
    const std::string toolClass = host.ToolClass();
    if (flow.empty()) return host.Doc().AddTool(FuID(toolClass));
    return ToolFromFlow(host.Doc(), flow, &program);
}

void SaveRenderFlow(const FusionDoc& doc, const FlowNames& job, Input& source, Input& kernel,
                    const std::string& path)
{
    source.SetConnection(job.input);
    kernel.SetConnection(job.kernel);
    json keep = json::object();
    if (!job.output.empty()) keep[kFlowOutput] = PathForFlow(path, job.output);
    if (!job.frames.empty()) keep[kFlowFrames] = job.frames;
    if (!job.depth.empty()) keep[kFlowDepth] = job.depth;
    if (!job.compression.empty()) keep[kFlowCompression] = job.compression;
    try {
        SaveFlow(doc, path, keep);
    } catch (const std::runtime_error& e) {
        throw FileError(e.what());
    }
}

namespace {

std::uint64_t ResidentBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::uint64_t pages = 0, resident = 0;
    statm >> pages >> resident;
    return resident * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::uint64_t ImageBytes(const Image& i)
{
    return static_cast<std::uint64_t>(i.Width) * static_cast<std::uint64_t>(i.Height) *
           static_cast<std::uint64_t>(i.PixelStride()) * sizeof(float);
}

// Tells the tool what the program holds while layer `layer` of a plate
// (`sources`, with their pixels or as the shapes of a plate not read yet)
// renders, beside that layer (which the tool counts): the program itself (its
// code, libraries, plug-in and what reading files left behind, measured once,
// at the first frame, without the plate's pixels), the other layers, the
// results of the layers before, and for writing the file an interleaved float
// copy, the writer's conversion and its encoding buffers, counted as five more
// copies of the plate.
void CountHostMemory(const std::vector<Ref<Image>>& sources, std::size_t layer)
{
    std::uint64_t plateBytes = 0, held = 0, before = 0;
    for (std::size_t k = 0; k < sources.size(); ++k) {
        plateBytes += ImageBytes(*sources[k]);
        if (sources[k]->HasPixels()) held += ImageBytes(*sources[k]);
        if (k < layer) before += ImageBytes(*sources[k]);
    }
    static const std::uint64_t program = std::max(ResidentBytes(), held) - held;
    SetHostFrameMemory(program + plateBytes - ImageBytes(*sources[layer]) + before + 5 * plateBytes);
}

}  // namespace

void PlanPlate(FusionDoc& doc, Operator* tool, Input& source, const std::vector<Ref<Image>>& shapes, TimeStamp time,
               const FrameConsole& console)
{
    for (std::size_t k = 0; k < shapes.size(); ++k) {
        CountHostMemory(shapes, k);
        source.SetSource(shapes[k].get(), time);
        doc.PreCalc(tool, time);
        source.SetSource(nullptr, time);
        if (console.HasFailure()) throw RenderError(console.Why());
    }
}

PlateResults RenderPlate(FusionDoc& doc, Operator* tool, Input& source, const Plate& plate, TimeStamp time,
                         const FrameConsole& console, const std::atomic<bool>* cancel)
{
    return RenderSources(doc, tool, source, plate.Sources(), time, console, cancel);
}

PlateResults RenderSources(FusionDoc& doc, Operator* tool, Input& source, const std::vector<Ref<Image>>& sources,
                           TimeStamp time, const FrameConsole& console, const std::atomic<bool>* cancel)
{
    PlateResults r;
    for (std::size_t k = 0; k < sources.size(); ++k) {
        CountHostMemory(sources, k);
        source.SetSource(sources[k].get(), time);
        {
            const InterruptsWait looked;  // right below
            r.results.push_back(doc.Render(tool, time, cancel));
        }
        // the frame is dropped, not written
        if (InterruptRequested() || (cancel && cancel->load(std::memory_order_relaxed))) return {};
        if (!r.results.back()) throw RenderError(console.Why());
        r.images.push_back(dynamic_cast<const Image*>(r.results.back().get()));
        if (!r.images.back()) throw RenderError("the tool's output is not an image");
    }
    return r;
}
