#pragma once
// One tool of the loaded plug-in, in a document of its own, as the Python
// module drives it: settings applied as the program's --set applies them,
// renders of host images, flows and kernel drawings. Nothing here knows about
// Python, so the module's bindings stay a thin layer of conversions.
//
// The plug-in modules are loaded once for the process and shared by every
// session (the class registry is global); each session keeps them loaded while
// it lives. Each session has its own document and console, so sessions render
// at the same time from different threads; one session renders one frame at a
// time (its calls are serialised).
#include "app/session/Settings.h"
#include "app/session/ToolConsole.h"
#include "host/FusionDoc.h"
#include "host/Image.h"

#include <nlohmann/json.hpp>

#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

class PluginHost;

// The frame would need more memory than the limit allows; the tool refused it
// before allocating. The message is the tool's console line.
class FrameMemoryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ToolSession {
public:
    // Loads the plug-ins (LUMIVANE_PLUGIN_PATH, else `pluginFolder`) unless
    // another session holds them, and makes the tool: a new one with its
    // defaults, or the one the flow at `flow` holds. Throws a ProgramError
    // (ExitCodes.h) naming the folder or the flow.
    ToolSession(const std::string& pluginFolder, const std::string& flow);
    ~ToolSession();
    ToolSession(const ToolSession&) = delete;
    ToolSession& operator=(const ToolSession&) = delete;

    // What loading the plug-ins warned about (modules skipped).
    const std::vector<std::string>& Warnings() const { return m_warnings; }

    // Applies the settings in order (ApplySettings); throws its usage ProgramError.
    void Set(const std::vector<Setting>& settings, TimeStamp time);
    // The value of control `id` at `frame`, a number or a text; without a
    // frame its static value, and a usage ProgramError asking for a frame when
    // it is animated.
    std::variant<double, std::string> Value(const std::string& id, std::optional<double> frame);
    // The keys of control `id` in frame order, (frame, value); none when static.
    std::vector<std::pair<double, double>> Keys(const std::string& id);
    // A keyframe verb of the host (Input::Animate, DeleteKey, RemoveAnimation)
    // on control `id` at `frame`; its refusal as a usage ProgramError.
    enum class KeyVerb { Animate, DeleteKey, RemoveAnimation };
    void Key(const std::string& id, KeyVerb verb, double frame);
    // A usage ProgramError naming `frame` unless it is a finite number.
    static void CheckFrame(double frame);
    // Has the tool plan a render of `shape` (an image without pixels, PlateShapes'
    // kind) with `kernel` at `time`, so a frame past the memory limit is refused
    // before its image is made: throws FrameMemoryError then. Other refusals
    // are left to Render, which gives them.
    void Plan(Image& shape, Image* kernel, TimeStamp time);
    // Renders `source` (and `kernel`, or none) at `time`. Throws
    // FrameMemoryError when the tool refused the frame for its memory, and a
    // render ProgramError with the tool's console line for any other failure.
    Ref<Image> Render(Image& source, Image* kernel, TimeStamp time);
    // Renders a plate's images (Plate::Sources() order: the frame, then each
    // chosen layer) with `kernel` at `time`, as `lumivane render` renders a
    // plate; the results in the same order. Throws as Render does.
    std::vector<Ref<Image>> RenderSources(const std::vector<Ref<Image>>& sources, Image* kernel, TimeStamp time);
    // The drawing `lumivane kernel` writes, from a copy of the tool, so the
    // tool's own Edges control is left as it is.
    Ref<Image> KernelDrawing(int width, int height, TimeStamp time);
    // The tool as `describe --json` lists it.
    nlohmann::ordered_json Describe();
    // Saves the tool's controls to a flow file; throws a file ProgramError.
    void Save(const std::string& path);

private:
    // The tool's refusal on the console as FrameMemoryError, or RenderError.
    [[noreturn]] void Refused() const;

    std::shared_ptr<PluginHost> m_plugins;
    std::vector<std::string> m_warnings;
    std::unique_ptr<FusionDoc> m_doc;  // before m_plugins goes: its tool's code is in a module
    FrameConsole m_console;
    Operator* m_tool = nullptr;
    std::mutex m_mutex;
};
