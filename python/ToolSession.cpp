#include "python/ToolSession.h"

#include "app/session/Describe.h"
#include "app/files/ExitCodes.h"
#include "app/session/DrawKernels.h"
#include "app/session/Plugins.h"
#include "app/session/RenderPlate.h"
#include "app/session/ToolNames.h"
#include "host/Flow.h"
#include "util/Text.h"

#include <cmath>

namespace {

// How the tool's refusal of a frame for its memory begins (after the tool's
// name); the limit is checked before anything is allocated.
constexpr const char* kMemoryRefusal = "the frame needs about ";

// Leaves the tool's image inputs unconnected when a call ends, however it
// ends: the images given are not kept past the call.
struct Connected {
    ToolInputs inputs;
    TimeStamp time;
    Connected(ToolInputs in, Image* source, Image* kernel, TimeStamp t) : inputs(in), time(t)
    {
        inputs.source.SetSource(source, time);
        inputs.kernel.SetSource(kernel, time);
    }
    ~Connected()
    {
        inputs.source.SetSource(nullptr, time);
        inputs.kernel.SetSource(nullptr, time);
    }
};

std::mutex g_pluginsMutex;
std::weak_ptr<PluginHost> g_plugins;

std::shared_ptr<PluginHost> SharedPlugins(const std::string& folder, std::vector<std::string>& warnings)
{
    std::lock_guard<std::mutex> lock(g_pluginsMutex);
    if (std::shared_ptr<PluginHost> held = g_plugins.lock()) return held;
    auto host = std::make_shared<PluginHost>(PluginFolders("", folder),
                                             [&](const std::string& w) { warnings.push_back(w); });
    g_plugins = host;
    return host;
}

}  // namespace

ToolSession::ToolSession(const std::string& pluginFolder, const std::string& flow)
    : m_plugins(SharedPlugins(pluginFolder, m_warnings)), m_doc(std::make_unique<FusionDoc>())
{
    m_doc->SetConsoleListener([this](const ConsoleLine& line) { m_console.Add(line); });
    m_tool = flow.empty() ? m_doc->AddTool(FuID(m_plugins->ToolClass())) : ToolFromFlow(*m_doc, flow);
}

ToolSession::~ToolSession() { m_doc.reset(); }

void ToolSession::Set(const std::vector<Setting>& settings, TimeStamp time)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    ApplySettings(*m_tool, settings, time);
}

void ToolSession::CheckFrame(double frame)
{
    if (!std::isfinite(frame)) throw UsageError("frame: " + FormatNumber(frame) + " is not a finite number");
}

std::variant<double, std::string> ToolSession::Value(const std::string& id, std::optional<double> frame)
{
    if (frame) CheckFrame(*frame);
    std::lock_guard<std::mutex> lock(m_mutex);
    Input& in = FindControl(*m_tool, id, id);
    if (in.Decl().IsImage()) throw UsageError("\"" + id + "\" is an image input; it has no value to read");
    if (!frame && in.IsAnimated()) {
        std::vector<std::string> frames;
        for (const auto& key : in.Keys()) frames.push_back(FormatNumber(key.first));
        throw UsageError("\"" + id + "\" is animated (keys at " + Join(frames) +
                         "); give the frame to read it at, e.g. get(\"" + id + "\", frame=" + frames.front() + ")");
    }
    const Ref<Parameter> value(in.GetSource(frame.value_or(0.0)));
    if (const auto* text = dynamic_cast<const Text*>(value.get())) return text->Value();
    return static_cast<const Number&>(*value).Value();
}

std::vector<std::pair<double, double>> ToolSession::Keys(const std::string& id)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto& keys = FindControl(*m_tool, id, id).Keys();
    return {keys.begin(), keys.end()};
}

void ToolSession::Key(const std::string& id, KeyVerb verb, double frame)
{
    CheckFrame(frame);
    std::lock_guard<std::mutex> lock(m_mutex);
    Input& in = FindControl(*m_tool, id, id);
    try {
        switch (verb) {
        case KeyVerb::Animate: in.Animate(frame); break;
        case KeyVerb::DeleteKey: in.DeleteKey(frame); break;
        case KeyVerb::RemoveAnimation: in.RemoveAnimation(frame); break;
        }
    } catch (const ValueRefused& e) {
        throw UsageError(e.what());
    }
}

void ToolSession::Plan(Image& shape, Image* kernel, TimeStamp time)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_console.Clear();
    {
        const Connected connected(InputsOf(*m_tool), &shape, kernel, time);
        m_doc->PreCalc(m_tool, time);
    }
    const std::string why = m_console.Why();
    if (m_console.HasFailure() && why.find(kMemoryRefusal) != std::string::npos) throw FrameMemoryError(why);
}

Ref<Image> ToolSession::Render(Image& source, Image* kernel, TimeStamp time)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_console.Clear();
    Ref<Parameter> result;
    {
        const Connected connected(InputsOf(*m_tool), &source, kernel, time);
        result = m_doc->Render(m_tool, time);
    }
    if (!result) Refused();
    auto* image = dynamic_cast<Image*>(result.get());
    if (!image) throw RenderError("the tool's output is not an image");
    result.release();
    return Ref<Image>(image);
}

void ToolSession::Refused() const
{
    const std::string why = m_console.Why();
    if (why.find(kMemoryRefusal) != std::string::npos) throw FrameMemoryError(why);
    throw RenderError(why);
}

std::vector<Ref<Image>> ToolSession::RenderSources(const std::vector<Ref<Image>>& sources, Image* kernel,
                                                   TimeStamp time)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_console.Clear();
    PlateResults rendered;
    try {
        const Connected connected(InputsOf(*m_tool), nullptr, kernel, time);
        rendered = ::RenderSources(*m_doc, m_tool, connected.inputs.source, sources, time, m_console);
    } catch (const ProgramError&) {
        if (m_console.HasFailure()) Refused();
        throw;
    }
    std::vector<Ref<Image>> results;
    for (Ref<Parameter>& result : rendered.results)
        results.emplace_back(static_cast<Image*>(result.release()));  // RenderSources checked each is an image
    return results;
}

Ref<Image> ToolSession::KernelDrawing(int width, int height, TimeStamp time)
{
    if (width < 1 || height < 1)
        throw UsageError("the frame's width and height must be at least 1 (got " + std::to_string(width) + "x" +
                         std::to_string(height) + ")");
    std::lock_guard<std::mutex> lock(m_mutex);
    FusionDoc doc;
    FrameConsole console;
    doc.SetConsoleListener([&](const ConsoleLine& line) { console.Add(line); });
    Operator* tool = CopyTool(doc, *m_tool, m_tool->Name());
    Ref<Image> drawing = DrawKernels(doc, *tool, console, width, height, time);
    if (!drawing) throw RenderError("drawing the kernels was interrupted");
    return drawing;
}

nlohmann::ordered_json ToolSession::Describe()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const std::string classId = m_tool->Reg()->ID().str();
    return DescribeTool(*m_tool->Reg(), *m_tool, m_plugins->ModuleOf(classId));
}

void ToolSession::Save(const std::string& path)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    try {
        SaveFlow(*m_doc, path);
    } catch (const std::runtime_error& e) {
        throw FileError(e.what());
    }
}
