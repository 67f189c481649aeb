// The tool's controls as the host holds them, and what changing them does.
#include "support/ToolHarness.h"

#include <sstream>

namespace {

// Labels are checked with the size controls, ranges through `lumivane describe`.
TEST(ControlSet, InputsInCreationOrderWithTheirDefaultsThenTheOutput)
{
    ToolHarness h;
    std::ostringstream got;
    for (const auto& in : h.tool->Inputs()) {
        got << in->ID().str();
        if (in->Decl().IsNumber()) got << "=" << in->Decl().Default;
        got << (in->Decl().Visible ? " " : "(hidden) ");
    }
    EXPECT_EQ(got.str(), "Operation=0 WienerParam=0.01 BlurSizeUnit=0 PerChannel=1 LockXY=1 BlurSizeX=0 "
                         "BlurSizeY=0(hidden) GreenBlurSizeX=0(hidden) GreenBlurSizeY=0(hidden) BlueBlurSizeX=0(hidden) "
                         "BlueBlurSizeY=0(hidden) ScaleBlurAspect=0 Edges=0 BlurStyle=0 BadBokeh=0 PolygonSideCount=6 "
                         "KernelAngle=0 CompanyName PackageName PluginName DocUrl input kernel ");
    EXPECT_EQ(h.tool->Pages(), (std::vector<std::string>{"Controls", "Info"}));
    ASSERT_EQ(h.tool->Outputs().size(), 1u);
    EXPECT_EQ(h.tool->Outputs()[0]->ID().str(), "m_outImageput");
}

TEST(ControlSet, ChoicesShowTheControlsTheyUse)
{
    ToolHarness h;
    for (double v : {1.0, 0.0, 0.5, 0.49}) {
        h.Set("Operation", v);
        EXPECT_EQ(h.tool->convolve, v < 0.5) << v;
        EXPECT_EQ(h.In("WienerParam")->IsVisible(), v >= 0.5) << v;
    }
    // Bad Bokeh, Kernel Angle and Polygon Side Count shown for each style.
    for (const auto& [style, want] : {std::pair{2.0, "000"}, {0.0, "100"}, {1.0, "111"}, {3.0, "000"}, {4.0, "000"},
                                      {1.9, "111"}}) {
        h.Set("BlurStyle", style);
        std::string shown;
        for (const char* id : {"BadBokeh", "KernelAngle", "PolygonSideCount"})
            shown += h.In(id)->IsVisible() ? '1' : '0';
        EXPECT_EQ(shown, want) << style;
    }
    h.tool->shapeControlsEnabled = false;
    h.Set("BlurStyle", 1);
    EXPECT_FALSE(h.In("BadBokeh")->IsVisible() || h.In("KernelAngle")->IsVisible());
}

}  // namespace
