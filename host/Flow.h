#pragma once
// Flow files: the tools of a document with their control values (constants or
// keyframes, by control ID) and what feeds their image inputs, as JSON.
//
//   {"format": "lumivane-flow", "version": 1,
//    "tools": [{"name": "Lumivane2_1", "class": "tevrinworks.Lumivane2",
//               "inputs": {"BlurSizeX": 2.5, "BlurSizeY": {"keys": [[0, 1.0], [24, 4.0]]},
//                          "CompanyName": "Tevrin Software"},
//               "connections": {"input": "plate.####.exr"}}],
//    "program": {...}}
//
// "program" holds whatever the program that saved the flow keeps with it.
//
// File names in a flow are relative to the flow's own folder, so that a shot
// folder holding its flow and its images can be moved or used from anywhere.
// In memory (Input::Connection) they are names the program can open as they
// are: relative to its working folder, or absolute.
#include <nlohmann/json.hpp>

#include <string>

class FusionDoc;
class Operator;

// A file name read from the flow `flowPath` as the program opens it: an
// absolute name as it is, a relative one taken from the flow's folder.
std::string PathFromFlow(const std::string& flowPath, const std::string& name);
// A file name as the flow `flowPath` keeps it: relative to the flow's folder
// when the file is in that folder, below it, or below the folder above it (a
// shot folder with flows/ and plates/), else absolute. Frame fields pass
// through unchanged; no file needs to exist.
std::string PathForFlow(const std::string& flowPath, const std::string& name);

// The flow of `doc`'s tools, as a flow file `flowPath` would hold it: image
// connections written with PathForFlow, or as they are when `flowPath` is
// empty (a flow kept in memory). "program" is added unless it is null.
nlohmann::ordered_json FlowOf(const FusionDoc& doc, const std::string& flowPath = {},
                              const nlohmann::ordered_json& program = {});

// Saves FlowOf(doc, path, program). Writes to a temporary file beside `path` and renames it, so a failed save
// never leaves a half-written flow. Throws std::runtime_error naming the file.
void SaveFlow(const FusionDoc& doc, const std::string& path, const nlohmann::ordered_json& program = {});

// Adds the flow's tools to `doc`, their connections read with PathFromFlow. Each tool is created as a user would create
// it, then its saved values are applied in the order of the file, each with
// the change notification a user's edit would send. Constants and keys go
// through the same rule as the command line (InputDeclaration::RefuseTyped and
// RefuseNumber: entry names, lowest and highest values, whole numbers,
// read-only controls, which may only hold their own value); a refused value
// throws ValueRefused. Anything else malformed, an unknown tool class, control
// or field among them, throws std::runtime_error ("program" is the saving
// program's own and is not checked here). Both
// name the file, the place in it and what was expected. Returns "program".
nlohmann::ordered_json LoadFlow(FusionDoc& doc, const std::string& path);
// LoadFlow of a flow already read: `origin` is the file it was read from, which
// errors name and relative connections are taken from; when empty, errors
// name "flow" and connections are kept as they are.
nlohmann::ordered_json LoadFlowValue(FusionDoc& doc, const nlohmann::ordered_json& flow, const std::string& origin);

// A new tool in `into` of `tool`'s class, with its controls' constants and
// keys and its image connections, applied as loading its flow would apply
// them. It is named `name`, or takes a name of its own when `name` is empty.
// The copy shares nothing with `tool`: changing one leaves the other alone.
Operator* CopyTool(FusionDoc& into, const Operator& tool, const std::string& name = {});
