#pragma once
// The blur size controls: per colour and per axis, with an R/G/B lock and an
// X/Y lock, a unit (percent of the width of the image's frame, or pixels) and
// an optional correction for the pixel aspect. At render time they become the
// blur size record: sizes in pixels, each at least 1.
#include "host/Request.h"

class Image;
class Input;
class Operator;
class Parameter;

class blur_size_interface {
public:
    Input* unitInput = nullptr;
    Input* perChannelInput = nullptr;  // the R/G/B lock; null without per-channel controls
    Input* lockXYInput = nullptr;
    Input* sizeXInputs[3] = {};  // red, green, blue
    Input* sizeYInputs[3] = {};
    Input* aspectInput = nullptr;

    // The R/G/B lock as the last change notification reported it. It is never
    // read from the control at render time, which is why that control asks the
    // host for a notification of its initial value.
    bool channelsLocked = false;
    bool xyLocked = false;
    double blurSizeX[3] = {};  // pixels, red, green, blue
    double blurSizeY[3] = {};
    bool relativeUnit = false;
    bool scaleByAspect = false;

    void CreateBlurSizeControls(Operator* op, double sliderMax, bool perChannel);
    // Keeps labels and visibility in step with the locks, and gives the
    // controls a lock shows again the values of the ones it hid.
    void UpdateBlurSizeControls(Input* changed, Parameter* value, TimeStamp time);
    void ReadBlurSizes(Request* req, Image* image);

private:
    void ApplyLockLabels();
};
