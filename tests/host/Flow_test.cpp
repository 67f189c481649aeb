// Saving a tool's settings to a flow file and loading them back.
#include "host/Flow.h"
#include "host/PluginLoader.h"
#include "support/DocHarness.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

struct FlowFile : ::testing::Test {
    std::unique_ptr<PluginModule> plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
    fs::path dir = fs::temp_directory_path() / ("lumivane_flow_" + std::to_string(::getpid()));
    void SetUp() override { fs::create_directories(dir); }
    void TearDown() override { fs::remove_all(dir); }
    std::string Write(const std::string& name, const std::string& text)
    {
        std::ofstream((dir / name).string()) << text;
        return (dir / name).string();
    }
};

TEST_F(FlowFile, EveryControlKeysAndInfoPageSurviveTheRoundTrip)
{
    DocHarness a;
    a.Set("LockXY", 1);
    a.Set("LockXY", 0);
    a.Set("PerChannel", 0);
    double v = 0.5;
    for (const auto& in : a.op->Inputs())
        if (in->Decl().IsNumber() && in->Decl().Control == SliderControlID) a.Set(in->ID().str(), v += 1.0);
    a.Set("BlurStyle", 4);
    a.Set("Edges", 1);
    a.Set("Operation", 1);
    a.In("GreenBlurSizeX")->SetKeys({{1, 2.0}, {9, 8.5}});
    a.In("CompanyName")->SetSource(Ref<Text>(new Text("Someone Else")).get(), 0);
    a.In("input")->SetConnection("plate.####.exr");
    const std::string path = (dir / "saved.flow").string();
    SaveFlow(a.doc, path, {{"frames", "1-9"}});
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);  // no temporary left

    FusionDoc doc;
    EXPECT_EQ(LoadFlow(doc, path), (nlohmann::ordered_json{{"frames", "1-9"}}));
    ASSERT_EQ(doc.Tools().size(), 1u);
    Operator* b = doc.Tools()[0].get();
    EXPECT_EQ(b->Name(), a.op->Name());
    for (const auto& in : a.op->Inputs()) {
        Input* other = b->FindInput(in->ID().str());
        SCOPED_TRACE(in->ID().str());
        EXPECT_EQ(other->IsVisible(), in->IsVisible());
        EXPECT_EQ(other->GetLabel(), in->GetLabel());
        EXPECT_EQ(other->Keys(), in->Keys());
        EXPECT_EQ(other->Connection(), in->Connection());
        if (in->Decl().IsImage()) continue;
        Ref<Parameter> x(in->GetSource(5)), y(other->GetSource(5));
        if (in->Decl().IsText()) {
            EXPECT_EQ(static_cast<Text&>(*x).Value(), static_cast<Text&>(*y).Value());
        } else {
            EXPECT_EQ(static_cast<Number&>(*x).Value(), static_cast<Number&>(*y).Value());
        }
    }
}

TEST_F(FlowFile, BadFlowsNameTheFileThePlaceAndWhatWasExpected)
{
    const std::string head = R"({"format": "lumivane-flow", "version": 1, "tools": [)";
    const std::string tool = R"({"class": "tevrinworks.Lumivane2", "inputs": )";
    struct Case {
        const char* name;
        std::string text;
        std::string message;
    };
    const Case cases[] = {
        {"malformed", "{\"format\": ", "not a valid flow file: [json.exception.parse_error.101]"},
        {"number past a double", "888888e888888888888", "not a valid flow file: [json.exception.out_of_range.406]"},
        {"not a flow", R"({"tools": []})", ": format: expected \"lumivane-flow\""},
        {"unknown tool", head + R"({"class": "nobody.Tool"}]})",
         ": tools[0].class: no tool class \"nobody.Tool\" is loaded (loaded: "},
        {"unknown control", head + tool + R"({"Size": 3}}]})",
         ": tools[0].inputs.Size: the tool has no control \"Size\" (controls: Operation, WienerParam, BlurSizeUnit"},
        {"wrong kind", head + tool + R"({"BlurSizeX": "big"}}]})",
         ": tools[0].inputs.BlurSizeX: expected a number or {\"keys\": [[time, value], ...]}, got string"},
        {"bad key", head + tool + R"({"BlurSizeX": {"keys": [[1]]}}}]})",
         ": tools[0].inputs.BlurSizeX.keys[0]: expected [time, value]"},
        {"text for a number", head + tool + R"({"CompanyName": 3}}]})",
         ": tools[0].inputs.CompanyName: expected a text, got number"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = Write(std::string(c.name) + ".flow", c.text);
        FusionDoc doc;
        try {
            LoadFlow(doc, path);
            ADD_FAILURE() << "loaded";
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(std::string(e.what()).rfind(path, 0), 0u) << e.what();
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
    }
    FusionDoc doc;
    EXPECT_THROW(SaveFlow(doc, (dir / "no" / "such" / "folder.flow").string()), std::runtime_error);
}

}  // namespace
