#pragma once
// The state behind `lumivane view`: one tool in its own document, the plate
// it previews and the last render, driven by the page's requests. Not
// thread-safe: the server holds one lock around every call, which also
// serialises the renders.
//
// Renders are lazy: a change only bumps the settings version, and the next
// request for the output renders once at that version, so changes that
// arrive while a render runs merge into one next render. A change also
// cancels the render in flight (Cancel, before the server's lock): that render
// ends early and throws Superseded, and nothing of it is kept or shown.
#include "app/files/Plate.h"
#include "app/session/Plugins.h"
#include "app/session/RenderPlate.h"
#include "app/session/Settings.h"
#include "app/session/ToolConsole.h"
#include "host/RenderCancel.h"
#include "app/view/ViewDisplay.h"
#include "app/view/ViewFrameCache.h"
#include "app/view/ViewHistory.h"

#include <nlohmann/json.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>
#include <string>
#include <vector>

struct ViewOptions {
    std::string input;
    std::string kernel;
    std::string flow;
    std::string frames;
    std::string saveFlow;  // empty: NAME.flow beside the input
    std::string plugins;
    std::vector<Setting> settings;  // in command-line order
    PlateOptions plate;
    int port = 0;  // 0: a free one
    int proxy = 1;  // the page's first proxy factor: 1, 2 or 4
    double cacheMegabytes = 1024;  // rendered frames kept for playback (ViewFrameCache.h)
};

struct EncodedImage {
    std::string bytes;
    std::string mime;
    double renderMs = 0.0;  // of the render behind it; 0 when none was needed
    double encodeMs = 0.0;  // of making the bytes
    int proxy = 1;          // the factor it was shrunk by
    long version = 0;       // the settings it shows
};

// A render abandoned for a newer change, or not begun because one was waiting.
struct Superseded : std::runtime_error {
    Superseded() : std::runtime_error("superseded by a newer change; ask again") {}
};

class ViewSession {
public:
    // Loads the plug-ins, the flow and the first frame's settings; throws
    // ProgramErrors as `render` does for the same command line.
    explicit ViewSession(const ViewOptions& options);
    ~ViewSession();

    // The describe table of the tool with each control's value at the current
    // frame, plus the frames and the settings version.
    nlohmann::ordered_json ToolDocument() const;
    // Applies the setting at the current frame by the host's rule: a key there
    // on an animated control, else its value (usage ProgramError on a bad one).
    void Set(Setting setting);
    void SetFrame(int frame);
    // A keyframe verb on a number control at the current frame: "set" keys its
    // value there (a static control becomes animated), "delete" removes the
    // key there, "remove" leaves it static at its value there. A usage
    // ProgramError naming the control when the host refuses.
    void Key(const std::string& id, const std::string& action);
    // Back to the tool's state before the last change of Set or Key, and
    // forward again; a usage ProgramError when there is nothing that way.
    void Undo();
    void Redo();
    // Keeps the current full-resolution output as the picture `which=snapshot`
    // shows, rendering it first when needed; the tool document's "snapshot"
    // then says the frame and version it was taken at.
    void Snapshot();
    // {"frames", "bytes", "budget"} of the rendered frames kept.
    nlohmann::ordered_json Cache() const;
    // which: input, output or kernel; format: png or jpeg (sRGB display of
    // the linear values, `exposure` stops) or exr (as `render` writes it;
    // output at full resolution only). `proxy` shrinks the input and output (ViewProxy.h).
    // `look` picks a channel, a layer (a layer other than RGBA is shown at
    // full resolution), gamma and a display of the colour configuration.
    EncodedImage Picture(const std::string& which, const std::string& format, double exposure, int proxy = 1,
                         const DisplayLook& look = {});
    // The full-resolution linear values of input or output (rendered first if
    // the settings changed) of `layer` in a region of at most kPixelsAtOnce
    // pixels, given in the file's own pixel coordinates (ViewProbe.cpp).
    static constexpr long kPixelsAtOnce = 64 * 64;
    nlohmann::ordered_json Pixels(const std::string& which, const std::string& layer, long x, long y, long width,
                                  long height);
    // The current frame's windows, its layers and the displays it can be shown on.
    nlohmann::ordered_json PlateDocument();
    nlohmann::ordered_json Console() const;
    // Saves to the path fixed at start; returns it.
    std::string SaveFlow();
    const std::string& FlowPath() const { return m_flowPath; }
    // Thread-safe: a change holds a RenderCancel::Change on it from before it
    // waits for the server's lock.
    RenderCancel& Cancel() { return m_cancel; }

private:
    const Plate& CurrentPlate();
    // The plate's source holding `layer` ("" or RGBA: the frame); a usage
    // ProgramError naming the layers there are when it has no such layer.
    std::size_t LayerIndex(const std::string& layer);
    // The full-resolution image of input or output at that source.
    const Image& FullImage(const std::string& which, std::size_t layer);
    // Whether a render ran: false when the output was current or kept.
    bool RenderIfStale();
    // The tool's controls, keys and connections as its flow holds them: what
    // undo returns to and what kept frames are found by.
    std::string State() const;
    // Runs `edit` as one step of the history (one even when it fails part-way).
    void Change(const std::function<void()>& edit);
    // The tool made afresh from `state`, as loading its flow would make it.
    void Restore(const std::string& state);
    // The first source of the frame rendered at 1/factor size; cached per version.
    const Image& ProxyOutput(int factor, double& renderMs);
    // Around each render of the tool: Superseded when a change is waiting
    // before it or came during it, the console then left as it was.
    void BeginRender();
    void EndRender();

    ViewOptions m_options;
    std::unique_ptr<PluginHost> m_host;
    FrameConsole m_frameConsole;
    std::vector<std::string> m_consoleLines;
    std::vector<std::string> m_linesBefore;  // the console before the render in flight
    RenderCancel m_cancel;
    bool m_recordConsole = true;
    Operator* m_tool = nullptr;
    Input* m_source = nullptr;
    Input* m_kernelInput = nullptr;
    FlowNames m_names;
    std::optional<FramePattern> m_inPattern, m_kernelPattern;
    FrameList m_frames;
    bool m_sequence = false;
    int m_frame = 0;
    std::unique_ptr<PlateSource> m_plates;
    ColourSpaces m_colour;  // for the displays the page can show on
    std::string m_flowPath;
    std::string m_scratch;  // a private folder for the EXR

    long m_version = 1;
    long m_renderedVersion = 0;
    PlateResults m_rendered;
    double m_renderMs = 0.0;
    std::string m_failure;  // of the render at m_renderedVersion
    std::string m_lastFailure;  // of the last render, full or proxy
    long m_proxyVersion = 0;
    long m_consoleVersion = 0;  // the settings the console lines came from
    int m_consoleProxy = 1;     // and the shrink factor of that render
    int m_proxyFactor = 0;
    Ref<Parameter> m_proxyResult;
    Ref<Image> m_proxySource;
    std::pair<int, int> m_proxySourceKey;  // frame, factor
    long m_kernelVersion = 0;
    Ref<Image> m_kernelDrawing;
    ViewHistory m_history;
    ViewFrameCache m_cache;
    PlateResults m_snapshot;
    nlohmann::ordered_json m_snapshotStamp;  // {"frame", "version"} it was taken at
};
