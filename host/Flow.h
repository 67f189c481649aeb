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
#include <nlohmann/json.hpp>

#include <string>

class FusionDoc;

// Writes to a temporary file beside `path` and renames it, so a failed save
// never leaves a half-written flow. Throws std::runtime_error naming the file.
void SaveFlow(const FusionDoc& doc, const std::string& path, const nlohmann::ordered_json& program = {});

// Adds the flow's tools to `doc`. Each tool is created as a user would create
// it, then its saved values are applied in the order of the file, each with
// the change notification a user's edit would send. Values are taken as the
// host holds them (a flow can be saved with any value a script set), so only
// their kind is checked. Throws std::runtime_error naming the file, the place
// in it and what was expected. Returns "program".
nlohmann::ordered_json LoadFlow(FusionDoc& doc, const std::string& path);
