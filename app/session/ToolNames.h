#pragma once
// The names the program drives the tool by: its image inputs, and what the
// program keeps beside the controls in a flow's "program" object.

class Input;
class Operator;

constexpr const char* kSourceInput = "input";
constexpr const char* kKernelInput = "kernel";

constexpr const char* kFlowOutput = "output";
constexpr const char* kFlowFrames = "frames";
constexpr const char* kFlowDepth = "depth";
constexpr const char* kFlowCompression = "compression";

// The tool's source and kernel inputs; a file ProgramError naming both when
// the tool lacks either.
struct ToolInputs {
    Input& source;
    Input& kernel;
};
ToolInputs InputsOf(Operator& tool);
