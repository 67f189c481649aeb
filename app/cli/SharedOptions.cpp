#include "app/cli/SharedOptions.h"

#include "app/session/Look.h"

#include <CLI/CLI.hpp>

CLI::Option* AddKernelOption(CLI::App& command, std::string& kernel)
{
    return command.add_option("--kernel", kernel, "Kernel image (a still or a frame pattern) instead of a shape")
        ->type_name("KERNEL");
}

CLI::Option* AddFlowOption(CLI::App& command, std::string& flow, const std::string& help)
{
    return command.add_option("--flow", flow, help)->type_name("FILE");
}

CLI::Option* AddDepthOption(CLI::App& command, std::string& depth, const std::string& otherwise)
{
    return command.add_option("--depth", depth, "Output data depth (default: " + otherwise + ")")
        ->check(CLI::IsMember({"8", "16", "half", "float"}));
}

void AddOutputFormatOptions(CLI::App& command, FlowNames& names)
{
    AddDepthOption(command, names.depth, "the input's");
    command
        .add_option("--compression", names.compression,
                    "OpenEXR output compression: none, rle, zips, zip, piz, pxr24, b44, b44a, dwaa or dwab, "
                    "zip/zips/dwaa/dwab with an optional :LEVEL (default: the input's)")
        ->type_name("NAME[:LEVEL]");
}

void AddLookOptions(CLI::App& command, LookOptions& look, const std::string& framesHelp, const std::string& flowHelp)
{
    AddKernelOption(command, look.names.kernel);
    AddFramesOption(command, look.names.frames, framesHelp);
    AddOutputFormatOptions(command, look.names);
    AddFlowOption(command, look.flow, flowHelp);
}
