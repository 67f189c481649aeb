#pragma once
// The options several commands share, each declared once here with one help
// text, and composed by the commands that take them.
#include "app/files/SequencePlan.h"

#include <string>

namespace CLI {
class App;
class Option;
}
struct FlowNames;
struct LookOptions;
struct PlateOptions;

// --frames LIST. An empty list is a usage error: it would read as no list at
// all, every frame on disk.
CLI::Option* AddFramesOption(CLI::App& command, std::string& frames, const std::string& help);
// --colorspace-in, --colorspace-out, --raw and --layers.
void AddPlateOptions(CLI::App& command, PlateOptions& options);
// --kernel KERNEL: a kernel image, a still or a frame pattern.
CLI::Option* AddKernelOption(CLI::App& command, std::string& kernel);
// --flow FILE, described by `help`.
CLI::Option* AddFlowOption(CLI::App& command, std::string& flow, const std::string& help);
// --depth, one of 8, 16, half and float; `otherwise` names the depth written without it.
CLI::Option* AddDepthOption(CLI::App& command, std::string& depth, const std::string& otherwise);
// --depth and --compression of an output written like the input by default.
void AddOutputFormatOptions(CLI::App& command, FlowNames& names);
// A look's own options: --kernel, --frames, the output format and --flow
// (`framesHelp`, `flowHelp`). The control options (AddSettingOptions) come last, after
// the command's own.
void AddLookOptions(CLI::App& command, LookOptions& look, const std::string& framesHelp, const std::string& flowHelp);
