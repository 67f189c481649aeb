#include "app/view/ViewSession.h"

#include "app/session/Describe.h"
#include "app/files/ExitCodes.h"
#include "app/files/ImageFiles.h"
#include "app/session/DrawKernels.h"
#include "app/session/ToolNames.h"
#include "app/files/SequencePlan.h"
#include "app/view/ViewDisplay.h"
#include "app/view/ViewProxy.h"
#include "host/Flow.h"
#include "host/Image.h"
#include "util/Text.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

using json = nlohmann::ordered_json;

namespace {

// NAME.flow beside the input, the frame field dropped from NAME.
std::string FlowBesideInput(const std::string& input)
{
    const std::filesystem::path p(input);
    const std::string stem = std::regex_replace(p.stem().string(), std::regex("[._]?(#+|%0?[0-9]*d)$"), "");
    return (p.parent_path() / (stem + ".flow")).string();
}

double MsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

void Encode(EncodedImage& out, const Image& image, double exposure, bool magnitude, const DisplayLook& look = {},
            const ColourProcessor* toDisplay = nullptr)
{
    const auto start = std::chrono::steady_clock::now();
    out.bytes = DisplayPicture(image, exposure, magnitude,
                               out.mime == "image/jpeg" ? DisplayFormat::Jpeg : DisplayFormat::Png, look, toDisplay);
    out.encodeMs = MsSince(start);
}

std::string ReadWhole(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    if (!in) throw FileError(path + ": cannot read it back");
    return s.str();
}

// The value at `time` as the tool reads it.
double NumberAt(const Input& in, TimeStamp time)
{
    Parameter* p = const_cast<Input&>(in).GetSource(time);
    const auto* n = dynamic_cast<const Number*>(p);
    const double v = n ? n->Value() : 0.0;
    if (p) p->Recycle();
    return v;
}

std::string TextAt(const Input& in, TimeStamp time)
{
    Parameter* p = const_cast<Input&>(in).GetSource(time);
    const auto* t = dynamic_cast<const Text*>(p);
    std::string v = t ? t->Value() : in.Decl().DefaultText;
    if (p) p->Recycle();
    return v;
}

std::size_t CacheBytes(double megabytes)
{
    if (!(megabytes >= 0 && megabytes <= 1 << 30))
        throw UsageError("--cache: expected megabytes from 0 to 1073741824, got " + FormatNumber(megabytes));
    return static_cast<std::size_t>(megabytes * (1 << 20));
}

}  // namespace

ViewSession::ViewSession(const ViewOptions& options) : m_options(options), m_cache(CacheBytes(options.cacheMegabytes))
{
    m_host = std::make_unique<PluginHost>(PluginFolders(options.plugins), [](const std::string& w) {
        std::fprintf(stderr, "lumivane: warning: %s\n", w.c_str());
    });
    m_host->Doc().SetConsoleListener([this](const ConsoleLine& line) {
        m_frameConsole.Add(line);
        if (m_recordConsole) m_consoleLines.push_back(line.Text.substr(0, line.Text.find_last_not_of('\n') + 1));
    });
    json program;
    m_tool = MakeTool(*m_host, options.flow, program);
    const ToolInputs inputs = InputsOf(*m_tool);
    m_source = &inputs.source;
    m_kernelInput = &inputs.kernel;

    m_names.input = !options.input.empty() ? options.input : m_source->Connection();
    m_names.kernel = !options.kernel.empty() ? options.kernel : m_kernelInput->Connection();
    m_names.frames = !options.frames.empty() ? options.frames
                     : program.contains("frames") && program["frames"].is_string() ? program["frames"].get<std::string>()
                                                                                    : "";
    if (m_names.input.empty()) throw UsageError("no INPUT image given");
    m_inPattern = PatternOf("INPUT", m_names.input);
    if (!m_names.kernel.empty()) m_kernelPattern = PatternOf("--kernel", m_names.kernel);
    const std::optional<FrameList> frames = FramesToRender(m_names.frames, *m_inPattern);
    m_sequence = frames.has_value();
    if (m_sequence) m_frames = *frames;
    else if (m_inPattern->HasFrameField())
        throw UsageError(m_inPattern->Text() + " names a sequence: say which frames with --frames FIRST-LAST");
    m_frame = m_frames.First();
    ApplySettings(*m_tool, options.settings, m_frame);

    m_flowPath = !options.saveFlow.empty() ? options.saveFlow : FlowBesideInput(m_names.input);
    std::vector<NamedFiles> read = {{"INPUT", *m_inPattern}};
    if (m_kernelPattern) read.push_back({"--kernel", *m_kernelPattern});
    RefuseWritingWhatIsRead({{"--save-flow", PatternOf("--save-flow", m_flowPath)}}, read, m_frames.Frames());
    // `render --flow` alone then renders the look beside the flow, under a
    // name of its own: NAME.exr, or NAME.lumivane.exr when NAME.exr is read.
    const std::filesystem::path flowPath(m_flowPath), inputPath(m_names.input);
    const std::string name = (flowPath.parent_path() / flowPath.stem()).string();
    const std::string tail = (m_sequence ? ".####" : "") + inputPath.extension().string();
    m_names.output = name + tail;
    if (!WritesWhatIsRead({{"OUTPUT", PatternOf("OUTPUT", m_names.output)}}, read, m_frames.Frames()).empty())
        m_names.output = name + ".lumivane" + tail;
    m_plates = std::make_unique<PlateSource>(m_options.plate);  // the session's own copy: the caller's may go
    CurrentPlate();  // a missing or unreadable input fails now, not in the page

    m_scratch = (std::filesystem::temp_directory_path() / "lumivane-view-XXXXXX").string();
    if (!::mkdtemp(m_scratch.data())) throw FileError("cannot make a scratch folder in " + m_scratch);
}

ViewSession::~ViewSession()
{
    m_source->SetSource(nullptr, 0.0);
    m_kernelInput->SetSource(nullptr, 0.0);
    std::error_code ec;
    std::filesystem::remove_all(m_scratch, ec);
}

const Plate& ViewSession::CurrentPlate() { return m_plates->At(*m_inPattern, m_frame); }

json ViewSession::ToolDocument() const
{
    json doc = DescribeTool(*m_tool->Reg(), *m_tool, m_host->ModuleOf(m_tool->Reg()->ID().str()));
    for (json& page : doc["pages"])
        for (json& c : page["controls"]) {
            const Input* in = m_tool->FindInput(c["id"].get<std::string>());
            if (in->Decl().IsNumber()) {
                c["value"] = NumberAt(*in, m_frame);
                c["animated"] = in->IsAnimated();
                json keys = json::array();
                for (const auto& [frame, value] : in->Keys()) keys.push_back({frame, value});
                c["keys"] = keys;
            } else if (in->Decl().IsText()) {
                c["value"] = TextAt(*in, m_frame);
            }
        }
    doc["frames"] = m_frames.Frames();
    doc["sequence"] = m_sequence;
    doc["frame"] = m_frame;
    doc["version"] = m_version;
    doc["flow"] = m_flowPath;
    doc["proxy"] = m_options.proxy;
    doc["undo"] = m_history.UndoSteps();
    doc["redo"] = m_history.RedoSteps();
    doc["snapshot"] = m_snapshotStamp;
    return doc;
}

void ViewSession::Set(Setting setting)
{
    setting.apply = Setting::Apply::AtTime;
    Change([&] { ApplySettings(*m_tool, {setting}, m_frame); });
}

void ViewSession::SetFrame(int frame)
{
    const auto& all = m_frames.Frames();
    if (std::find(all.begin(), all.end(), frame) == all.end())
        throw UsageError("frame " + std::to_string(frame) + " is not among the frames viewed (" +
                         std::to_string(all.front()) + " to " + std::to_string(all.back()) + ")");
    m_frame = frame;
    ++m_version;
}

void ViewSession::Key(const std::string& id, const std::string& action)
{
    Input& in = FindControl(*m_tool, id, "\"id\"");
    Change([&] {
        try {
            if (action == "set") in.Animate(m_frame);
            else if (action == "delete") in.DeleteKey(m_frame);
            else if (action == "remove") in.RemoveAnimation(m_frame);
            else throw UsageError("\"action\": expected set, delete or remove, got \"" + action + "\"");
        } catch (const ValueRefused& e) {
            throw UsageError(e.what());
        }
    });
}

std::string ViewSession::State() const { return FlowOf(m_host->Doc()).dump(); }

void ViewSession::Change(const std::function<void()>& edit)
{
    std::string before = State();
    ++m_version;  // an edit that failed part-way may still have changed something
    try {
        edit();
    } catch (...) {
        m_history.Changed(std::move(before), State());
        throw;
    }
    m_history.Changed(std::move(before), State());
}

void ViewSession::Restore(const std::string& state)
{
    // The old tool gives its name up first, so the state loads under it.
    FusionDoc& doc = m_host->Doc();
    Operator* old = m_tool;
    const std::string name = old->Name();
    old->SetName({});
    try {
        LoadFlowValue(doc, json::parse(state), {});
    } catch (...) {
        while (doc.Tools().back().get() != old) doc.RemoveTool(doc.Tools().back().get());
        old->SetName(name);
        throw;
    }
    doc.RemoveTool(old);
    m_tool = doc.FindTool(name);
    const ToolInputs inputs = InputsOf(*m_tool);
    m_source = &inputs.source;
    m_kernelInput = &inputs.kernel;
    ++m_version;
}

void ViewSession::BeginRender()
{
    if (!m_cancel.Begin()) throw Superseded();
    m_linesBefore = std::move(m_consoleLines);
    m_consoleLines.clear();
    m_frameConsole.Clear();
}

void ViewSession::EndRender()
{
    if (!m_cancel.Raised()) return;
    m_consoleLines = std::move(m_linesBefore);
    throw Superseded();
}

void ViewSession::Undo()
{
    const std::optional<std::string> state = m_history.Undo(State());
    if (!state) throw UsageError("nothing to undo");
    Restore(*state);
}

void ViewSession::Redo()
{
    const std::optional<std::string> state = m_history.Redo(State());
    if (!state) throw UsageError("nothing to redo");
    Restore(*state);
}

void ViewSession::Snapshot()
{
    RenderIfStale();
    if (!m_failure.empty()) throw RenderError(m_failure);
    if (m_rendered.images.empty()) throw RenderError("interrupted");
    m_snapshot = m_rendered;
    m_snapshotStamp = json{{"frame", m_frame}, {"version", m_version}};
}

json ViewSession::Cache() const
{
    return json{{"frames", m_cache.Frames()}, {"bytes", m_cache.Bytes()}, {"budget", m_cache.Budget()}};
}

bool ViewSession::RenderIfStale()
{
    if (m_renderedVersion == m_version) return false;
    const std::string state = State();
    if (const CachedFrame* kept = m_cache.Find(m_frame, 1, state)) {
        m_rendered = kept->plate;
        m_failure.clear();
        m_lastFailure.clear();
        m_consoleLines = kept->console;
        m_frameConsole.Clear();
        m_renderMs = kept->renderMs;
        m_renderedVersion = m_version;
        m_consoleVersion = m_version;
        m_consoleProxy = 1;
        return false;
    }
    BeginRender();
    m_rendered = {};
    m_failure.clear();
    const auto start = std::chrono::steady_clock::now();
    try {
        const Plate& plate = CurrentPlate();
        if (m_kernelPattern) {
            const ImageFile kernel = ReadImageFile(m_kernelPattern->At(m_frame));
            m_kernelInput->SetSource(kernel.image.get(), m_frame);
        }
        m_rendered = RenderPlate(m_host->Doc(), m_tool, *m_source, plate, m_frame, m_frameConsole, m_cancel.Flag());
    } catch (const std::exception& e) {
        m_failure = e.what();
    }
    EndRender();
    m_renderMs = MsSince(start);
    m_renderedVersion = m_version;
    m_consoleVersion = m_version;
    m_consoleProxy = 1;
    m_lastFailure = m_failure;
    // An interrupted render holds no images, a failed one its reason: neither is kept.
    if (m_failure.empty() && !m_rendered.images.empty())
        m_cache.Keep(m_frame, 1, state, {m_rendered, m_consoleLines, m_renderMs});
    return true;
}

const Image& ViewSession::ProxyOutput(int factor, double& renderMs)
{
    renderMs = 0.0;
    if (m_proxyVersion == m_version && m_proxyFactor == factor && m_proxyResult)
        return static_cast<const Image&>(*m_proxyResult);
    const std::string state = State();
    if (const CachedFrame* kept = m_cache.Find(m_frame, factor, state)) {
        m_proxyResult = kept->plate.results.front();
        m_consoleLines = kept->console;
        m_frameConsole.Clear();
        m_renderMs = kept->renderMs;
        m_consoleVersion = m_version;
        m_consoleProxy = factor;
        m_proxyVersion = m_version;
        m_proxyFactor = factor;
        return *kept->plate.images.front();
    }
    BeginRender();
    m_proxyResult = {};
    const auto start = std::chrono::steady_clock::now();
    if (!m_proxySource || m_proxySourceKey != std::make_pair(m_frame, factor)) {
        m_proxySource = ProxyOf(*CurrentPlate().Sources().front(), factor);  // once a frame and factor
        m_proxySourceKey = {m_frame, factor};
    }
    const Ref<Image>& small = m_proxySource;
    if (m_kernelPattern) {
        const ImageFile kernel = ReadImageFile(m_kernelPattern->At(m_frame));
        m_kernelInput->SetSource(kernel.image.get(), m_frame);
    }
    m_source->SetSource(small.get(), m_frame);
    {
        const ProxySizes sizes(*m_tool, m_frame, factor);
        m_proxyResult = m_host->Doc().Render(m_tool, m_frame, m_cancel.Flag());
    }
    EndRender();
    renderMs = MsSince(start);
    m_renderMs = renderMs;
    m_consoleVersion = m_version;
    m_consoleProxy = factor;
    if (!m_proxyResult) throw RenderError(m_frameConsole.Why());
    const auto* image = dynamic_cast<const Image*>(m_proxyResult.get());
    if (!image) throw RenderError("the tool's output is not an image");
    m_proxyVersion = m_version;
    m_proxyFactor = factor;
    m_cache.Keep(m_frame, factor, state, {{{m_proxyResult}, {image}}, m_consoleLines, renderMs});
    return *image;
}

EncodedImage ViewSession::Picture(const std::string& which, const std::string& format, double exposure, int proxy,
                                  const DisplayLook& look)
{
    if (format != "png" && format != "jpeg" && format != "exr")
        throw UsageError("format: expected png, jpeg or exr, got \"" + format + "\"");
    if (!IsProxyFactor(proxy)) throw UsageError("proxy: expected 1, 2 or 4, got " + std::to_string(proxy));
    if (proxy != 1 && format == "exr")
        throw UsageError("proxy: pictures shrunk for display are png or jpeg; exr is the full-resolution output");
    if (!std::isfinite(exposure) || std::fabs(exposure) > 64)
        throw UsageError("exposure: expected stops between -64 and 64");
    if (!(look.gamma >= 0.01 && look.gamma <= 100)) throw UsageError("gamma: expected a number from 0.01 to 100");
    const std::size_t layer = which == "kernel" ? 0 : LayerIndex(look.layer);
    if (layer) proxy = 1;  // proxies hold the frame's own RGBA
    const std::unique_ptr<ColourProcessor> toDisplay =
        look.display.empty() && look.view.empty() ? nullptr : m_colour.ToDisplay(look.display, look.view);
    EncodedImage out;
    out.version = m_version;
    out.mime = format == "png" ? "image/png" : format == "jpeg" ? "image/jpeg" : "image/x-exr";
    out.proxy = which == "kernel" ? 1 : proxy;
    if (which == "snapshot") {
        if (m_snapshot.images.empty()) throw UsageError("no snapshot is kept: POST /api/snapshot first");
        if (format == "exr") throw UsageError("the snapshot is shown as png or jpeg only");
        const Image& kept = *m_snapshot.images.front();
        Encode(out, proxy == 1 ? kept : *ProxyOf(kept, proxy), exposure, false);
        return out;
    }
    if (which == "input") {
        if (format == "exr") throw UsageError("the input is shown as png or jpeg only; its file is " + m_names.input);
        const Image& frame = FullImage(which, layer);
        Encode(out, proxy == 1 ? frame : *ProxyOf(frame, proxy), exposure, false, look, toDisplay.get());
        return out;
    }
    if (which == "kernel") {
        if (format == "exr") throw UsageError("the kernel is shown as png or jpeg only");
        if (m_kernelVersion != m_version || !m_kernelDrawing) {
            if (!m_cancel.Begin()) throw Superseded();
            // Drawing sets Edges, so it draws with a copy and leaves the tool
            // alone; the copy takes a name of its own beside the tool.
            Operator* copy = CopyTool(m_host->Doc(), *m_tool);
            const Image& frame = *CurrentPlate().Sources().front();
            m_frameConsole.Clear();
            m_recordConsole = false;  // the console shows the render's lines, not the drawing's
            try {
                m_kernelDrawing =
                    DrawKernels(m_host->Doc(), *copy, m_frameConsole, frame.Width, frame.Height, m_frame, m_cancel.Flag());
            } catch (...) {
                m_recordConsole = true;
                m_host->Doc().RemoveTool(copy);
                throw;
            }
            m_recordConsole = true;
            m_host->Doc().RemoveTool(copy);
            if (m_cancel.Raised()) throw Superseded();
            if (!m_kernelDrawing) throw RenderError("interrupted");
            m_kernelVersion = m_version;
        }
        Encode(out, *m_kernelDrawing, 0.0, true);
        return out;
    }
    if (which != "output") throw UsageError("which: expected input, output, kernel or snapshot, got \"" + which + "\"");
    if (proxy != 1) {
        try {
            const Image& shrunk = ProxyOutput(proxy, out.renderMs);
            m_lastFailure.clear();
            Encode(out, shrunk, exposure, false, look, toDisplay.get());
            return out;
        } catch (const ProgramError& e) {
            m_lastFailure = e.what();
            throw;
        }
    }
    const bool fresh = RenderIfStale();
    const Image& result = FullImage(which, layer);
    out.renderMs = fresh ? m_renderMs : 0.0;
    if (format != "exr") {
        Encode(out, result, exposure, false, look, toDisplay.get());
        return out;
    }
    // Written as `render` writes OUTPUT.exr, so the bytes are the same.
    const auto start = std::chrono::steady_clock::now();
    const std::string path = m_scratch + "/output.exr";
    CurrentPlate().Write(path, m_rendered.images, std::nullopt);
    out.bytes = ReadWhole(path);
    std::filesystem::remove(path);
    out.encodeMs = MsSince(start);
    return out;
}

json ViewSession::Console() const
{
    return json{{"lines", m_consoleLines}, {"failure", m_lastFailure}, {"renderMs", m_renderMs},
                {"version", m_consoleVersion}, {"proxy", m_consoleProxy}};
}

std::string ViewSession::SaveFlow()
{
    SaveRenderFlow(m_host->Doc(), m_names, *m_source, *m_kernelInput, m_flowPath);
    return m_flowPath;
}
