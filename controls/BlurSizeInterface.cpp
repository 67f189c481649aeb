#include "controls/BlurSizeInterface.h"

#include "controls/ControlValue.h"
#include "host/Image.h"
#include "host/Operator.h"
#include "host/Tags.h"

namespace {

constexpr const char* kSizeXIds[3] = {"BlurSizeX", "GreenBlurSizeX", "BlueBlurSizeX"};
constexpr const char* kSizeYIds[3] = {"BlurSizeY", "GreenBlurSizeY", "BlueBlurSizeY"};
constexpr const char* kSizeXLabels[3] = {"Blur Size", "Green Blur Size X", "Blue Blur Size X"};
constexpr const char* kSizeYLabels[3] = {"Blur Size Y", "Green Blur Size Y", "Blue Blur Size Y"};

void SetLabel(Input* in, const char* label) { in->SetAttrs({{LINKS_Name, label}, {TAG_DONE}}); }

void SetVisible(Input* in, bool shown) { in->SetAttrs({{IC_Visible, shown ? 1 : 0}, {TAG_DONE}}); }

// Gives `to` what `from` holds: its keys when it is animated, so the copy
// follows it over the whole shot, else its value at `time`.
void CopySource(Input* from, Input* to, TimeStamp time)
{
    if (from->IsAnimated()) {
        to->SetKeys(from->Keys());
        return;
    }
    if (Parameter* src = from->GetSource(time)) {
        to->SetSource(src, time, 0, nullptr);
        src->Recycle();
    }
}

Input* AddSize(Operator* op, const char* label, const char* id, double sliderMax, bool hidden)
{
    TagList tags{{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, SliderControlID},
                 {INP_MinAllowed, 0.0}, {INP_MaxScale, sliderMax}, {INP_Default, 0.0}};
    if (hidden) tags.Add({IC_Visible, 0});
    return op->AddInput(label, id, tags);
}

}  // namespace

void blur_size_interface::CreateBlurSizeControls(Operator* op, double sliderMax, bool perChannel)
{
    *this = blur_size_interface();

    unitInput = op->AddInput("Blur Size Unit", "BlurSizeUnit",
                             {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, MultiButtonControlID},
                              {MBTNC_AddButton, "Relative"}, {MBTNC_AddButton, "Absolute"},
                              {MBTNC_StretchToFit, 1}, {INP_Default, 0.0}, {TAG_DONE}});
    if (perChannel)
        perChannelInput = op->AddInput("Lock Blur Size R/G/B", "PerChannel",
                                       {{LINKID_DataType, CLSID_DataType_Number},
                                        {INPID_InputControl, CheckboxControlID}, {INP_Default, 1.0},
                                        {INP_DoNotifyChanged, 1}, {INP_InitialNotify, 1}, {TAG_DONE}});
    lockXYInput = op->AddInput("Lock Blur Size X/Y", "LockXY",
                               {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, CheckboxControlID},
                                {INP_Default, 1.0}, {INP_DoNotifyChanged, 1}, {TAG_DONE}});
    sizeXInputs[0] = AddSize(op, kSizeXLabels[0], kSizeXIds[0], sliderMax, false);
    sizeYInputs[0] = AddSize(op, kSizeYLabels[0], kSizeYIds[0], sliderMax, true);
    if (perChannel)
        for (int c = 1; c < 3; ++c) {
            sizeXInputs[c] = AddSize(op, kSizeXLabels[c], kSizeXIds[c], sliderMax, true);
            sizeYInputs[c] = AddSize(op, kSizeYLabels[c], kSizeYIds[c], sliderMax, true);
        }
    aspectInput = op->AddInput("Scale Blur using Pixel Aspect Ratio", "ScaleBlurAspect",
                               {{LINKID_DataType, CLSID_DataType_Number}, {INPID_InputControl, CheckboxControlID},
                                {INP_Default, 0.0}, {TAG_DONE}});
}

void blur_size_interface::UpdateBlurSizeControls(Input* changed, Parameter* value, TimeStamp time)
{
    if (!changed || !value) return;
    const bool on = ValueOf(value) > 0.5;
    if (changed == lockXYInput) {
        if (on != xyLocked) {
            if (xyLocked) {
                CopySource(sizeXInputs[0], sizeYInputs[0], time);
                if (perChannelInput && !channelsLocked)
                    for (int c = 1; c < 3; ++c) CopySource(sizeXInputs[c], sizeYInputs[c], time);
            }
            xyLocked = on;
        }
    } else if (perChannelInput && changed == perChannelInput) {
        if (on != channelsLocked) {
            if (channelsLocked) {
                for (int c = 1; c < 3; ++c) {
                    CopySource(sizeXInputs[0], sizeXInputs[c], time);
                    CopySource(sizeYInputs[0], sizeYInputs[c], time);
                }
            }
            channelsLocked = on;
        }
    } else {
        return;
    }
    ApplyLockLabels();
}

void blur_size_interface::ApplyLockLabels()
{
    const bool split = perChannelInput && !channelsLocked;
    SetLabel(sizeXInputs[0], split ? (xyLocked ? "Red Blur Size" : "Red Blur Size X")
                                   : (xyLocked ? "Blur Size" : "Blur Size X"));
    SetLabel(sizeYInputs[0], split ? "Red Blur Size Y" : "Blur Size Y");
    SetVisible(sizeYInputs[0], !xyLocked);
    if (!perChannelInput) return;
    SetLabel(sizeXInputs[1], xyLocked ? "Green Blur Size" : "Green Blur Size X");
    SetVisible(sizeXInputs[1], !channelsLocked);
    SetVisible(sizeYInputs[1], !channelsLocked && !xyLocked);
    SetLabel(sizeXInputs[2], xyLocked ? "Blue Blur Size" : "Blue Blur Size X");
    SetVisible(sizeXInputs[2], !channelsLocked);
    SetVisible(sizeYInputs[2], !channelsLocked && !xyLocked);
}

void blur_size_interface::ReadBlurSizes(Request* req, Image* image)
{
    xyLocked = ValueOf(lockXYInput, req) > 0.5;
    relativeUnit = ValueOf(unitInput, req) < 0.5;
    scaleByAspect = ValueOf(aspectInput, req) > 0.5;
    for (int c = 0; c < 3; ++c) {
        if (c > 0 && (!perChannelInput || channelsLocked)) {
            blurSizeX[c] = blurSizeX[0];
            blurSizeY[c] = blurSizeY[0];
            continue;
        }
        double x = ValueOf(sizeXInputs[c], req);
        double y = xyLocked ? x : ValueOf(sizeYInputs[c], req);
        if (relativeUnit) {
            // Both axes scale with the frame's width, so a relative size means
            // the same kernel whatever the image's shape, and whatever overscan
            // or bounding box its raster has.
            const double w = image->FrameWidth / 100.0;
            x = w * x;
            y = w * y;
        }
        if (scaleByAspect) {
            x = x / image->XScale;
            y = y / image->YScale;
        }
        if (x < 1.0) x = 1.0;
        if (y < 1.0) y = 1.0;
        blurSizeX[c] = x;
        blurSizeY[c] = y;
    }
}
