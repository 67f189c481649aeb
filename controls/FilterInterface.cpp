#include "controls/FilterInterface.h"

#include "controls/ControlValue.h"
#include "host/Operator.h"
#include "host/Tags.h"
#include "kernel/KernelShapes.h"

void filter_interface::CreateKernelStyleControls(Operator* op, double defaultStyle)
{
    blurStyleInput = op->AddInput("Blur Style", "BlurStyle",
                                  {{LINKID_DataType, CLSID_DataType_Number},
                                   {INPID_InputControl, MultiButtonControlID},
                                   {MBTNC_AddButton, "Disk"}, {MBTNC_AddButton, "Polygon"},
                                   {MBTNC_AddButton, "Gaussian"}, {MBTNC_AddButton, "Airy Disk"},
                                   {MBTNC_AddButton, "Laplacian"}, {MBTNC_StretchToFit, 1},
                                   {INP_Default, defaultStyle}, {INP_DoNotifyChanged, 1}, {TAG_DONE}});
    badBokehInput = op->AddInput("Bad Bokeh", "BadBokeh",
                                 {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, SliderControlID},
                                  {INP_MinAllowed, 0.0}, {INP_MaxScale, 1.0}, {INP_Default, 0.0}, {TAG_DONE}});
    sideCountInput = op->AddInput("Polygon Side Count", "PolygonSideCount",
                                  {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, SliderControlID},
                                   {INP_MinAllowed, 3.0}, {INP_MaxAllowed, kMaximumPolygonSides},
                                   {INP_MaxScale, 12.0}, {INP_Default, 6.0},
                                   {INP_Integer, 1}, {TAG_DONE}});
    kernelAngleInput = op->AddInput("Kernel Angle", "KernelAngle",
                                    {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, SliderControlID},
                                     {INP_MinAllowed, 0.0}, {INP_MaxScale, 90.0}, {INP_Default, 0.0}, {TAG_DONE}});
}

void filter_interface::UpdateKernelStyleVisibility(double styleValue)
{
    kernelStyle = ClampedWhole(styleValue);
    const bool polygon = shapeControlsEnabled && kernelStyle == 1;
    badBokehInput->SetAttrs({{IC_Visible, shapeControlsEnabled && (kernelStyle == 0 || kernelStyle == 1) ? 1 : 0},
                             {TAG_DONE}});
    kernelAngleInput->SetAttrs({{IC_Visible, polygon ? 1 : 0}, {TAG_DONE}});
    sideCountInput->SetAttrs({{IC_Visible, polygon ? 1 : 0}, {TAG_DONE}});
}
