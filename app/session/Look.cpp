#include "app/session/Look.h"

#include "app/files/FramePattern.h"
#include "app/files/ImageFiles.h"
#include "app/files/SequencePlan.h"
#include "app/session/Plugins.h"
#include "host/Flow.h"

namespace {

using json = nlohmann::ordered_json;

std::string FromProgram(const json& program, const char* key)
{
    if (!program.is_object() || !program.contains(key)) return {};
    const json& v = program[key];
    return v.is_string() ? v.get<std::string>() : v.dump();
}

}  // namespace

LoadedLook LoadLook(PluginHost& host, const LookOptions& look)
{
    json program;
    Operator* tool = MakeTool(host, look.flow, program);
    const ToolInputs inputs = InputsOf(*tool);
    const FlowNames& given = look.names;
    FlowNames names;
    names.input = !given.input.empty() ? given.input : inputs.source.Connection();
    names.kernel = !given.kernel.empty() ? given.kernel : inputs.kernel.Connection();
    names.output = !given.output.empty() ? given.output : PathFromFlow(look.flow, FromProgram(program, kFlowOutput));
    names.frames = !given.frames.empty() ? given.frames : FromProgram(program, kFlowFrames);
    names.depth = !given.depth.empty() ? given.depth : FromProgram(program, kFlowDepth);
    names.compression = !given.compression.empty() ? given.compression : FromProgram(program, kFlowCompression);
    return {*tool, inputs, names};
}

void SaveLook(PluginHost& host, const LookOptions& look, const std::string& path)
{
    const LoadedLook loaded = LoadLook(host, look);
    const FlowNames& names = loaded.names;
    if (!names.compression.empty() && !names.output.empty()) ParseCompression(names.compression, names.output);
    // A flow may hold controls alone; its frames are found when it is rendered.
    FrameList frames;
    if (!names.frames.empty()) frames = *FramesToRender(names.frames, FramePattern(""));
    ApplySettings(loaded.tool, look.settings, frames.First());
    SaveRenderFlow(host.Doc(), names, loaded.inputs.source, loaded.inputs.kernel, path);
}
