#include "app/KernelCommand.h"

#include "app/ExitCodes.h"
#include "app/ImageFiles.h"
#include "kernel/KernelPreview.h"
#include "tool/Lumivane2.h"

#include <cstdio>
#include <memory>
#include <optional>

int RunKernel(const KernelOptions& opt)
{
    if (opt.width < 1 || opt.height < 1)
        throw UsageError("--width and --height must be at least 1 (got " + std::to_string(opt.width) + "x" +
                         std::to_string(opt.height) + ")");
    std::optional<int> depth;
    if (!opt.depth.empty()) depth = ParseDepth(opt.depth);

    // A tool outside any document: made, notified of its initial values and
    // edited exactly as a host would, but never rendered.
    auto tool = std::make_unique<Lumivane2>(nullptr, ScriptVal{}, TagList{});
    tool->ReportInitialValues();
    ApplySettings(*tool, opt.settings, opt.frame);

    Ref<Image> blank(new Image(opt.width, opt.height));
    tool->FindInput("input")->SetSource(blank.get(), opt.frame);
    Ref<Image> preview;
    {
        Request req(opt.frame);
        try {
            tool->ReadRenderState(&req);
            preview = Ref<Image>(MakeKernelPreview(*tool, tool->blurSizeX, tool->blurSizeY));
        } catch (const std::exception& e) {
            throw RenderError(std::string("cannot make the kernels: ") + e.what());
        }
    }
    tool->FindInput("input")->SetSource(nullptr, opt.frame);
    WriteImageFile(opt.output, *preview, DefaultSpec(*preview), depth);
    std::printf("wrote %s: %dx%d; kernel sizes in pixels: red %gx%g, green %gx%g, blue %gx%g\n", opt.output.c_str(),
                preview->Width, preview->Height, tool->blurSizeX[0], tool->blurSizeY[0], tool->blurSizeX[1],
                tool->blurSizeY[1], tool->blurSizeX[2], tool->blurSizeY[2]);
    return ExitStatus(Exit::Success);
}
