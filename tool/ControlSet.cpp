// The tool's pages, controls and connections, and what a control change does.
#include "host/Tags.h"
#include "tool/Lumivane2.h"

namespace {

constexpr double kSizeSliderTop = 10.0;
constexpr double kDefaultStyle = 0.0;

}  // namespace

void Lumivane2::CreateControls()
{
    AddControlPage("Controls", 0);
    operationInput = AddInput("Operation", "Operation",
                              {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, MultiButtonControlID},
                               {MBTNC_AddButton, "Convolve"}, {MBTNC_AddButton, "Deconvolve"},
                               {MBTNC_StretchToFit, 1}, {INP_Default, 0.0}, {INP_DoNotifyChanged, 1}, {TAG_DONE}});
    wienerInput = AddInput("Wiener Param", "WienerParam",
                           {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, SliderControlID},
                            {INP_MinAllowed, 0.0}, {INP_MaxScale, 0.1}, {INP_Default, 0.01}, {TAG_DONE}});
    CreateBlurSizeControls(this, kSizeSliderTop, true);
    edgesInput = AddInput("Edges", "Edges",
                          {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, MultiButtonControlID},
                           {MBTNC_AddButton, "Duplicate"}, {MBTNC_AddButton, "Wrap"}, {MBTNC_AddButton, "Black"},
                           {MBTNC_StretchToFit, 1}, {INP_Default, 0.0}, {INP_DoNotifyChanged, 1}, {TAG_DONE}});
    CreateKernelStyleControls(this, kDefaultStyle);
    CreateInfoPage(this);

    imageInput = AddInput("Input image", "input", {{LINKID_DataType, CLSID_DataType_Image}, {LINK_Main, 1}, {TAG_DONE}});
    kernelInput = AddInput("Convolution kernel", "kernel",
                           {{LINKID_DataType, CLSID_DataType_Image}, {LINK_Main, 2}, {INP_Priority, -1},
                            {INP_Required, 0}, {TAG_DONE}});
    m_outImageput = AddOutput("Output image", "m_outImageput",
                              {{LINKID_DataType, CLSID_DataType_Image}, {LINK_Main, 1}, {TAG_DONE}});
}

void Lumivane2::NotifyChanged(Input* in, Parameter* param, TimeStamp time, const TagList* /*tags*/)
{
    if (!param) return;
    if (in == operationInput) {
        const double v = *static_cast<Number*>(param);
        convolve = v < 0.5;
        wienerInput->SetAttrs({{IC_Visible, v >= 0.5 ? 1 : 0}, {TAG_DONE}});
        return;
    }
    if (in && in == blurStyleInput) UpdateKernelStyleVisibility(*static_cast<Number*>(param));
    UpdateBlurSizeControls(in, param, time);
}
