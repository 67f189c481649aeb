#include "app/view/ViewProxy.h"

#include "host/Operator.h"
#include "host/Tags.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* kUnitControl = "BlurSizeUnit";
constexpr double kAbsoluteEntry = 1.0;  // "Relative" is entry 0
constexpr const char* kSizeControls[] = {"BlurSizeX",      "BlurSizeY",     "GreenBlurSizeX",
                                         "GreenBlurSizeY", "BlueBlurSizeX", "BlueBlurSizeY"};

double NumberAt(Input& in, TimeStamp time)
{
    Ref<Parameter> p(in.GetSource(time));
    const auto* n = dynamic_cast<const Number*>(p.get());
    return n ? n->Value() : in.Decl().Default;
}

int Shrunk(int size, int factor) { return std::max(1, static_cast<int>(std::lround(double(size) / factor))); }

}  // namespace

bool IsProxyFactor(int factor) { return factor == 1 || factor == 2 || factor == 4; }

Ref<Image> ProxyOf(const Image& frame, int factor)
{
    return Ref<Image>(frame.ResizeOfImage({{RSZ_Width, Shrunk(frame.Width, factor)},
                                           {RSZ_Height, Shrunk(frame.Height, factor)},
                                           {RSZ_Filter, RSZ_FILTER_AREA}}));
}

ProxySizes::ProxySizes(Operator& tool, TimeStamp time, int factor) : m_time(time)
{
    Input* unit = tool.FindInput(kUnitControl);
    // Multi-button values are truncated toward zero, as the tool reads them.
    if (factor == 1 || !unit || std::trunc(NumberAt(*unit, time)) != kAbsoluteEntry) return;
    for (const char* id : kSizeControls) {
        Input* in = tool.FindInput(id);
        if (!in || !in->Decl().IsNumber()) continue;
        Saved saved{in, {}, in->Keys()};
        if (in->IsAnimated()) {
            std::map<double, double> scaled = saved.keys;
            for (auto& key : scaled) key.second /= factor;
            in->SetKeys(scaled);
        } else {
            saved.constant = Ref<Parameter>(in->GetSource(time));
            Ref<Number> value(new Number(NumberAt(*in, time) / factor));
            in->SetSource(value.get(), time);
        }
        m_saved.push_back(std::move(saved));
    }
}

ProxySizes::~ProxySizes()
{
    for (Saved& saved : m_saved) {
        if (!saved.keys.empty()) saved.input->SetKeys(saved.keys);
        else saved.input->SetSource(saved.constant.get(), m_time);
    }
}
