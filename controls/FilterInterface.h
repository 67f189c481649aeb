#pragma once
// The kernel style controls and the render-time kernel parameters that the
// kernel generators read. The render driver fills the parameters from the
// controls at the start of every render; the generators only read them.
#include <cstdint>

class Image;
class Input;
class Operator;
class Parameter;

class filter_interface {
public:
    Image* modelImage = nullptr;  // new kernel images are made like this image
    std::int32_t kernelStyle = 0;  // 0 Disk, 1 Polygon, 2 Gaussian, 3 Airy Disk, 4 Laplacian
    std::int32_t sideCount = 6;
    double angle = 0.0;  // radians
    double badBokeh = 0.0;

    Input* blurStyleInput = nullptr;
    Input* badBokehInput = nullptr;
    Input* kernelAngleInput = nullptr;
    Input* sideCountInput = nullptr;

    bool shapeControlsEnabled = true;
    bool shrinkDisk = false;  // scales the disk radius by 0.6; the tool never sets it

    void CreateKernelStyleControls(Operator* op, double defaultStyle);
    // Shows BadBokeh for Disk and Polygon, KernelAngle and PolygonSideCount for
    // Polygon only, after a BlurStyle change.
    void UpdateKernelStyleVisibility(double styleValue);
};
