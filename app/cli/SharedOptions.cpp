#include "app/cli/SharedOptions.h"

#include "app/files/Plate.h"
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

CLI::Option* AddFramesOption(CLI::App& command, std::string& frames, const std::string& help)
{
    const CLI::Validator notEmpty(
        [](const std::string& text) {
            return text.empty() ? std::string("an empty frame list; name frames such as 1-24, 1-24x2 or 1,3,7-9")
                                : std::string();
        },
        "LIST");
    return command.add_option("--frames", frames, help)->type_name("LIST")->check(notEmpty);
}

void AddPlateOptions(CLI::App& command, PlateOptions& options)
{
    const std::string group = "Colour and layers";
    auto* in = command.add_option("--colorspace-in", options.colourIn,
                                  "Colour space of the input (default: what the file says, else sRGB for "
                                  "integer data and linear for float)")
                   ->type_name("NAME")
                   ->group(group);
    auto* out = command.add_option("--colorspace-out", options.colourOut,
                                   "Colour space to write (default: the input's for the same kind of data, "
                                   "else linear for float and sRGB for integer files)")
                    ->type_name("NAME")
                    ->group(group);
    command.add_flag("--raw", options.raw, "Filter the values as stored, with no colour conversion")
        ->excludes(in)
        ->excludes(out)
        ->group(group);
    command.add_option("--layers", options.layers,
                       "Layers to filter besides RGBA: all (every colour layer) or names separated by commas")
        ->type_name("all|NAME,...")
        ->group(group);
}
