#pragma once
// How the program drives the tool through the host: the tool made or loaded
// from a flow, the flow saved with the file names beside the controls, and one
// plate's render at a time.
#include "app/files/Plate.h"
#include "app/session/ToolConsole.h"
#include "host/FusionDoc.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

class FusionDoc;
class PluginHost;

// The tool the flow at `flow` holds, loaded into `doc` (`program`, when given,
// gets the flow's "program" object). Throws a usage ProgramError for a value a
// control does not take, as the same value with --set would, and a file
// ProgramError for anything else wrong with the flow.
Operator* ToolFromFlow(FusionDoc& doc, const std::string& flow, nlohmann::ordered_json* program = nullptr);

// The tool from the flow (`program` gets the flow's "program" object), or a new
// one of the loaded tool class with its defaults when `flow` is empty.
Operator* MakeTool(PluginHost& host, const std::string& flow, nlohmann::ordered_json& program);

// The file names a flow keeps beside the controls, as given.
struct FlowNames {
    std::string input, output, kernel, frames, depth, compression;
};
// Saves the document's tool with `names` connected and kept; a file ProgramError
// when it cannot be written.
void SaveRenderFlow(const FusionDoc& doc, const FlowNames& names, Input& source, Input& kernel,
                    const std::string& path);

// Has the tool plan the frame for each of a plate's images (PlateShapes,
// without pixels) with what the program holds beside it, as RenderPlate will
// render them: its figures go to the console, and a frame it refuses (past the
// memory limit, say) is a render ProgramError with the tool's reason.
void PlanPlate(FusionDoc& doc, Operator* tool, Input& source, const std::vector<Ref<Image>>& shapes, TimeStamp time,
               const FrameConsole& console);

// The tool's results for one plate at `time`: the frame, then each chosen
// layer, through the same tool. Empty when an interrupt came in between or
// `cancel` was raised (host/RenderCancel.h); a render ProgramError with the
// tool's reason when it set no output.
struct PlateResults {
    std::vector<Ref<Parameter>> results;
    std::vector<const Image*> images;
};
PlateResults RenderPlate(FusionDoc& doc, Operator* tool, Input& source, const Plate& plate, TimeStamp time,
                         const FrameConsole& console, const std::atomic<bool>* cancel = nullptr);
// The same for images in a plate's Sources() order that a host holds itself
// (the Python module's plates, rendered again).
PlateResults RenderSources(FusionDoc& doc, Operator* tool, Input& source, const std::vector<Ref<Image>>& sources,
                           TimeStamp time, const FrameConsole& console, const std::atomic<bool>* cancel = nullptr);
