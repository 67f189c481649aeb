// The tool's registry entry, its controls as the host holds them, and what
// changing them does.
#include "host/ScriptInfo.h"
#include "support/ToolHarness.h"

#include <cmath>
#include <iomanip>
#include <sstream>

namespace {

TEST(Registration, TheEntryMakesToolsOfItsClass)
{
    const Registry* reg = Lumivane2Registry();
    ASSERT_EQ(ClassRegistry->Find(FuID("tevrinworks.Lumivane2")), reg);
    EXPECT_TRUE(reg->Initialised());
    // A host lists it among its tools, and hands it to the threaded base's workers.
    EXPECT_EQ(reg->Tags().GetLong(REGI_ClassType, 0), CT_Tool);
    EXPECT_EQ(reg->Tags().GetPtr(REGP_BaseClassID), static_cast<const void*>(&ThreadedOperator::ClassID));
    auto* info = static_cast<ScriptInfoT<Lumivane2>*>(const_cast<void*>(reg->Tags().GetPtr(REGP_ScriptInfo)));
    EXPECT_EQ(info->ID, "tevrinworks.Lumivane2");
    EXPECT_NE(dynamic_cast<Lumivane2*>(FusionDoc().AddTool(FuID("tevrinworks.Lumivane2"))), nullptr);
}

// An input's declaration in one line: id, label, data type unless a number,
// control kind, page unless Controls (images have none), entries, lowest and
// slider top, default, connection, then flags.
std::string Describe(const InputDeclaration& d)
{
    std::ostringstream s;
    s << std::setprecision(15) << d.ID.str() << " \"" << d.Label << "\"";
    for (const std::string& part : {d.IsNumber() ? "" : d.DataType.str(), d.Control.str(),
                                    d.Page == "Controls" || d.IsImage() ? "" : "on " + d.Page})
        if (!part.empty()) s << " " << part;
    for (std::size_t i = 0; i < d.Entries.size(); ++i)
        s << (i ? ", " : " [") << d.Entries[i] << (i + 1 < d.Entries.size() ? "" : "]");
    if (d.MinAllowed || d.SliderTop) s << " " << d.MinAllowed.value_or(NAN) << ".." << d.SliderTop.value_or(NAN);
    if (d.IsNumber()) s << " =" << d.Default;
    if (d.IsText()) s << " =\"" << d.DefaultText << "\"";
    if (d.IsImage()) s << " link " << d.LinkNumber << (d.Required ? " required" : "");
    s << (d.Notify ? " notify" : "") << (d.InitialNotify ? " initial" : "") << (d.Integer ? " integer" : "")
      << (d.Visible ? "" : " hidden") << (d.Tags.GetLong(MBTNC_StretchToFit, 0) ? " stretch" : "")
      << (d.Tags.GetLong(TEC_ReadOnly, 0) ? " read-only" : "");
    return s.str();
}

TEST(ControlSet, EveryInputAsDeclaredInCreationOrderThenTheOutput)
{
    const std::vector<std::string> rows = {
        R"(Operation "Operation" MultiButtonControl [Convolve, Deconvolve] =0 notify stretch)",
        R"(WienerParam "Wiener Param" SliderControl 0..0.1 =0.01)",
        R"(BlurSizeUnit "Blur Size Unit" MultiButtonControl [Relative, Absolute] =0 stretch)",
        R"(PerChannel "Lock Blur Size R/G/B" CheckboxControl =1 notify initial)",
        R"(LockXY "Lock Blur Size X/Y" CheckboxControl =1 notify)",
        R"(BlurSizeX "Blur Size" SliderControl 0..10 =0)",
        R"(BlurSizeY "Blur Size Y" SliderControl 0..10 =0 hidden)",
        R"(GreenBlurSizeX "Green Blur Size X" SliderControl 0..10 =0 hidden)",
        R"(GreenBlurSizeY "Green Blur Size Y" SliderControl 0..10 =0 hidden)",
        R"(BlueBlurSizeX "Blue Blur Size X" SliderControl 0..10 =0 hidden)",
        R"(BlueBlurSizeY "Blue Blur Size Y" SliderControl 0..10 =0 hidden)",
        R"(ScaleBlurAspect "Scale Blur using Pixel Aspect Ratio" CheckboxControl =0)",
        R"(Edges "Edges" MultiButtonControl [Duplicate, Wrap, Black] =0 notify stretch)",
        R"(BlurStyle "Blur Style" MultiButtonControl [Disk, Polygon, Gaussian, Airy Disk, Laplacian] =0 notify stretch)",
        R"(BadBokeh "Bad Bokeh" SliderControl 0..1 =0)",
        R"(PolygonSideCount "Polygon Side Count" SliderControl 3..12 =6 integer)",
        R"(KernelAngle "Kernel Angle" SliderControl 0..90 =0)",
        R"(CompanyName "Company name" Text TextEditControl on Info ="Tevrin Software" read-only)",
        R"(PackageName "Package name" Text TextEditControl on Info ="Nimbrel" read-only)",
        R"(PluginName "Plugin name" Text TextEditControl on Info ="Lumivane 2" read-only)",
        R"(DocUrl "Documentation URL" Text TextEditControl on Info ="https://lumivane.example.org/docs/lumivane2" read-only)",
        R"(input "Input image" Image link 1 required)",
        R"(kernel "Convolution kernel" Image link 2)",
    };
    ToolHarness h;
    const auto& inputs = h.tool->Inputs();
    ASSERT_EQ(inputs.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(Describe(inputs[i]->Decl()), rows[i]);
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
    // Edges changes no visibility.
    std::vector<bool> before;
    for (const auto& in : h.tool->Inputs()) before.push_back(in->IsVisible());
    h.Set("Edges", 2);
    for (std::size_t i = 0; i < before.size(); ++i) EXPECT_EQ(h.tool->Inputs()[i]->IsVisible(), before[i]) << i;
    h.tool->shapeControlsEnabled = false;
    h.Set("BlurStyle", 1);
    EXPECT_FALSE(h.In("BadBokeh")->IsVisible() || h.In("KernelAngle")->IsVisible());
}

}  // namespace
