#pragma once
// A document with one tool in it, made through the registry, and ways to set its
// controls and images as a user would. The tool's class must be registered: by a
// loaded plug-in module, or by a test that links the tool (ToolHarness.h).
#include "host/FusionDoc.h"
#include "host/Image.h"
#include "host/Tags.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

constexpr const char* kToolClass = "tevrinworks.Lumivane2";

struct DocHarness {
    FusionDoc doc;
    Operator* op;

    explicit DocHarness(const char* classId = kToolClass) : op(doc.AddTool(FuID(classId))) {}

    Input* In(const std::string& id) const
    {
        Input* in = op->FindInput(id);
        EXPECT_NE(in, nullptr) << id;
        return in;
    }
    void Set(const std::string& id, double v, TimeStamp t = 0.0) const
    {
        Ref<Number> n(new Number(v));
        In(id)->SetSource(n.get(), t);
    }
    double Get(const std::string& id, TimeStamp t = 0.0) const
    {
        Ref<Parameter> p(In(id)->GetSource(t));
        return static_cast<Number&>(*p).Value();
    }
    void Connect(const std::string& id, Image* img) const { In(id)->SetSource(img, 0.0); }

    std::vector<std::string> Lines(int subId) const
    {
        std::vector<std::string> out;
        for (const ConsoleLine& l : doc.Console())
            if (l.SubID == subId) out.push_back(l.Text);
        return out;
    }
    Ref<Image> Render(TimeStamp t = 0.0)
    {
        Ref<Parameter> p = doc.Render(op, t);
        return Ref<Image>(static_cast<Image*>(p.release()));
    }
};

// A new image whose every component is f(x, y, component), components in the
// order red, green, blue, alpha, then the extra channels.
inline Image* MakeImage(int w, int h, const std::function<float(int, int, int)>& f,
                        std::vector<std::string> extra = {})
{
    auto* img = new Image(w, h, IMDP_Float32, std::move(extra));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            float* p = img->Pixel(x, y);
            for (int c = 0; c < img->PixelStride(); ++c) p[c < 4 ? kRecordPosition[c] : c] = f(x, y, c);
        }
    return img;
}

// Component c (red 0, green 1, blue 2, alpha 3, extras from 4) of pixel (x, y).
inline float Sample(const Image& img, int x, int y, int c)
{
    return img.Pixel(x, y)[c < 4 ? kRecordPosition[c] : c];
}

// The smallest power of two strictly greater than n (n > 0): the default transform side.
inline int PowerOfTwoAbove(int n) { return 1 << (32 - __builtin_clz(static_cast<unsigned>(n))); }

// Red, green, blue and alpha of `got` against want(x, y, component) within float
// rounding (1e-5 absolute plus 1e-5 relative); a failure names the worst sample.
inline void ExpectCloseTo(const Image& got, const std::function<double(int, int, int)>& want)
{
    double worst = 0;
    int wx = 0, wy = 0, wc = 0;
    for (int y = 0; y < got.Height; ++y)
        for (int x = 0; x < got.Width; ++x)
            for (int c = 0; c < 4; ++c) {
                const double w = want(x, y, c);
                const double err = std::abs(Sample(got, x, y, c) - w) / (1e-5 + 1e-5 * std::abs(w));
                if (err > worst) worst = err, wx = x, wy = y, wc = c;
            }
    EXPECT_LE(worst, 1.0) << "worst at (" << wx << ", " << wy << ") component " << wc << ": got "
                          << Sample(got, wx, wy, wc) << ", want " << want(wx, wy, wc);
}
