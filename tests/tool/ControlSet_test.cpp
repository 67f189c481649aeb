// The tool's controls as the host holds them, and what changing them does.
#include "support/ToolHarness.h"

#include <optional>

namespace {

struct ControlRow {
    const char* id;
    const char* label;
    const FuID* kind;
    std::vector<std::string> entries;
    std::optional<double> lowest, top;
    double dflt;
    bool notify, integer, visible;
    const char* page;
};

const std::vector<ControlRow>& ExpectedControls()
{
    const FuID* mb = &MultiButtonControlID;
    const FuID* sl = &SliderControlID;
    const FuID* cb = &CheckboxControlID;
    static const std::vector<ControlRow> rows = {
        {"Operation", "Operation", mb, {"Convolve", "Deconvolve"}, {}, {}, 0, true, false, true, "Controls"},
        {"WienerParam", "Wiener Param", sl, {}, 0.0, 0.1, 0.01, false, false, true, "Controls"},
        {"BlurSizeUnit", "Blur Size Unit", mb, {"Relative", "Absolute"}, {}, {}, 0, false, false, true, "Controls"},
        {"PerChannel", "Lock Blur Size R/G/B", cb, {}, {}, {}, 1, true, false, true, "Controls"},
        {"LockXY", "Lock Blur Size X/Y", cb, {}, {}, {}, 1, true, false, true, "Controls"},
        {"BlurSizeX", "Blur Size", sl, {}, 0.0, 10.0, 0, false, false, true, "Controls"},
        {"BlurSizeY", "Blur Size Y", sl, {}, 0.0, 10.0, 0, false, false, false, "Controls"},
        {"GreenBlurSizeX", "Green Blur Size X", sl, {}, 0.0, 10.0, 0, false, false, false, "Controls"},
        {"GreenBlurSizeY", "Green Blur Size Y", sl, {}, 0.0, 10.0, 0, false, false, false, "Controls"},
        {"BlueBlurSizeX", "Blue Blur Size X", sl, {}, 0.0, 10.0, 0, false, false, false, "Controls"},
        {"BlueBlurSizeY", "Blue Blur Size Y", sl, {}, 0.0, 10.0, 0, false, false, false, "Controls"},
        {"ScaleBlurAspect", "Scale Blur using Pixel Aspect Ratio", cb, {}, {}, {}, 0, false, false, true, "Controls"},
        {"Edges", "Edges", mb, {"Duplicate", "Wrap", "Black"}, {}, {}, 0, true, false, true, "Controls"},
        {"BlurStyle", "Blur Style", mb, {"Disk", "Polygon", "Gaussian", "Airy Disk", "Laplacian"}, {}, {}, 0,
         true, false, true, "Controls"},
        {"BadBokeh", "Bad Bokeh", sl, {}, 0.0, 1.0, 0, false, false, true, "Controls"},
        {"PolygonSideCount", "Polygon Side Count", sl, {}, 3.0, 12.0, 6, false, true, true, "Controls"},
        {"KernelAngle", "Kernel Angle", sl, {}, 0.0, 90.0, 0, false, false, true, "Controls"},
    };
    return rows;
}

TEST(ControlSet, EveryControlAsDeclaredInCreationOrder)
{
    ToolHarness h;
    const auto& inputs = h.tool->Inputs();
    const auto& rows = ExpectedControls();
    ASSERT_EQ(inputs.size(), rows.size() + 4 + 2);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const InputDeclaration& d = inputs[i]->Decl();
        const ControlRow& r = rows[i];
        SCOPED_TRACE(r.id);
        EXPECT_EQ(d.ID.str(), r.id);
        EXPECT_EQ(d.Label, r.label);
        EXPECT_EQ(d.DataType, CLSID_DataType_Number);
        EXPECT_EQ(d.Control, *r.kind);
        EXPECT_EQ(d.Entries, r.entries);
        EXPECT_EQ(d.MinAllowed, r.lowest);
        EXPECT_EQ(d.SliderTop, r.top);
        EXPECT_DOUBLE_EQ(d.Default, r.dflt);
        EXPECT_EQ(d.Notify, r.notify);
        EXPECT_EQ(d.Integer, r.integer);
        EXPECT_EQ(d.Visible, r.visible);
        EXPECT_EQ(d.Page, r.page);
        EXPECT_EQ(d.Tags.GetLong(MBTNC_StretchToFit, 0), *r.kind == MultiButtonControlID ? 1 : 0);
        EXPECT_EQ(d.InitialNotify, std::string(r.id) == "PerChannel");
    }
}

TEST(ControlSet, InfoPageThenConnectionsAndOutput)
{
    ToolHarness h;
    EXPECT_EQ(h.tool->Pages(), (std::vector<std::string>{"Controls", "Info"}));
    const auto& inputs = h.tool->Inputs();
    const char* info[4][3] = {{"CompanyName", "Company name", "Tevrin Software"},
                              {"PackageName", "Package name", "Nimbrel"},
                              {"PluginName", "Plugin name", "Lumivane 2"},
                              {"DocUrl", "Documentation URL", nullptr}};
    for (int i = 0; i < 4; ++i) {
        const InputDeclaration& d = inputs[17 + i]->Decl();
        EXPECT_EQ(d.ID.str(), info[i][0]);
        EXPECT_EQ(d.Label, info[i][1]);
        EXPECT_EQ(d.Page, "Info");
        EXPECT_EQ(d.DataType, CLSID_DataType_Text);
        EXPECT_EQ(d.Control, TextEditControlID);
        EXPECT_EQ(d.Tags.GetLong(TEC_Lines, 0), 1);
        EXPECT_EQ(d.Tags.GetLong(TEC_ReadOnly, 0), 1);
        if (info[i][2]) {
            EXPECT_EQ(d.DefaultText, info[i][2]);
        }
    }
    EXPECT_EQ(inputs[20]->Decl().DefaultText, h.tool->Reg()->Tags().GetString(REGS_HelpURL));

    const InputDeclaration& in = inputs[21]->Decl();
    const InputDeclaration& kernel = inputs[22]->Decl();
    EXPECT_EQ(in.ID.str(), "input");
    EXPECT_EQ(in.Label, "Input image");
    EXPECT_EQ(in.LinkNumber, 1);
    EXPECT_TRUE(in.Required);
    EXPECT_EQ(kernel.ID.str(), "kernel");
    EXPECT_EQ(kernel.Label, "Convolution kernel");
    EXPECT_EQ(kernel.LinkNumber, 2);
    EXPECT_EQ(kernel.Tags.GetLong(INP_Priority, 0), -1);
    EXPECT_FALSE(kernel.Required);
    EXPECT_TRUE(in.IsImage() && kernel.IsImage());
    ASSERT_EQ(h.tool->Outputs().size(), 1u);
    EXPECT_EQ(h.tool->Outputs()[0]->ID().str(), "m_outImageput");
    EXPECT_EQ(h.tool->Outputs()[0]->Decl().Label, "Output image");
    EXPECT_EQ(h.tool->Outputs()[0]->Decl().LinkNumber, 1);
}

TEST(ControlSet, OperationShowsWienerOnlyForDeconvolve)
{
    ToolHarness h;
    for (double v : {1.0, 0.0, 0.5, 0.49}) {
        h.Set("Operation", v);
        EXPECT_EQ(h.tool->convolve, v < 0.5) << v;
        EXPECT_EQ(h.In("WienerParam")->IsVisible(), v >= 0.5) << v;
    }
}

TEST(ControlSet, BlurStyleShowsTheShapeControlsItUses)
{
    ToolHarness h;
    struct Row { double style; bool bokeh, angle, sides; };
    for (const Row& r : {Row{2, false, false, false}, Row{0, true, false, false}, Row{1, true, true, true},
                         Row{3, false, false, false}, Row{4, false, false, false}, Row{1.9, true, true, true}}) {
        h.Set("BlurStyle", r.style);
        EXPECT_EQ(h.In("BadBokeh")->IsVisible(), r.bokeh) << r.style;
        EXPECT_EQ(h.In("KernelAngle")->IsVisible(), r.angle) << r.style;
        EXPECT_EQ(h.In("PolygonSideCount")->IsVisible(), r.sides) << r.style;
    }
    h.tool->shapeControlsEnabled = false;
    h.Set("BlurStyle", 1);
    EXPECT_FALSE(h.In("BadBokeh")->IsVisible() || h.In("KernelAngle")->IsVisible());
}

TEST(ControlSet, EdgesChangesNoVisibility)
{
    ToolHarness h;
    std::vector<bool> before;
    for (const auto& in : h.tool->Inputs()) before.push_back(in->IsVisible());
    h.Set("Edges", 2);
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_EQ(h.tool->Inputs()[i]->IsVisible(), before[i]);
}

}  // namespace
