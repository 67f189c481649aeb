#pragma once
// The kernel style controls and the render-time kernel parameters that the
// kernel generators read. The render driver fills the parameters from the
// controls at the start of every render; the generators only read them.
#include "kernel/KernelParams.h"

class Input;
class Operator;
class Parameter;

class filter_interface : public KernelParams {
public:
    Input* blurStyleInput = nullptr;
    Input* badBokehInput = nullptr;
    Input* kernelAngleInput = nullptr;
    Input* sideCountInput = nullptr;

    bool shapeControlsEnabled = true;

    void CreateKernelStyleControls(Operator* op, double defaultStyle);
    // Shows BadBokeh for Disk and Polygon, KernelAngle and PolygonSideCount for
    // Polygon only, after a BlurStyle change.
    void UpdateKernelStyleVisibility(double styleValue);
};
