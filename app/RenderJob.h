#pragma once
// `lumivane render`: one image, or a sequence frame by frame, through the tool.
#include "app/Plate.h"
#include "app/Settings.h"
#include "app/ToolConsole.h"
#include "host/FusionDoc.h"

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

struct RenderOptions {
    std::string input;   // file name or frame pattern; may come from --flow
    std::string output;  // file name or frame pattern; may come from --flow
    std::string kernel;  // optional kernel image: a still or a pattern
    std::string frames;  // a frame list (FramePattern.h); empty: INPUT's frames on disk
    std::string depth;   // "8", "16", "half", "float"; empty: the input's
    std::string compression;  // an OpenEXR compression (ImageFiles.h); empty: the input's
    std::string flow;
    std::string saveFlow;
    std::string plugins;
    std::vector<Setting> settings;  // in command-line order
    PlateOptions plate;
    bool keepGoing = false;
    bool verbose = false;
    bool quiet = false;
    bool mkdir = false;     // make missing output folders
    bool skipExisting = false;  // leave frames whose output file exists
    bool dryRun = false;    // the first frame's figures, no render, no file
    bool saveOnly = false;  // write saveFlow and stop (`lumivane flow save`)
};

// Renders every frame and returns the exit status (ExitCodes.h): 0 only when
// every frame was written. Failures before the first frame (usage, flow,
// plug-ins) are thrown as ProgramErrors.
int RunRender(const RenderOptions& options);

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
// layer, through the same tool. Empty when an interrupt came in between; a
// render ProgramError with the tool's reason when it set no output.
struct PlateResults {
    std::vector<Ref<Parameter>> results;
    std::vector<const Image*> images;
};
PlateResults RenderPlate(FusionDoc& doc, Operator* tool, Input& source, const Plate& plate, TimeStamp time,
                         const FrameConsole& console);
