// The tool's real plug-in module: loading it, refusing what is not one, and
// saving its settings to a flow file and loading them back.
#include "host/Flow.h"
#include "host/PluginLoader.h"
#include "support/DocHarness.h"
#include "support/Refusal.h"

#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

TEST(PluginLoader, ModuleRegistersItsToolWhileLoaded)
{
    const std::size_t before = ClassRegistry->Count();
    {
        auto module = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
        EXPECT_EQ(module->ToolIDs(), std::vector<std::string>{"tevrinworks.Lumivane2"});
        const Registry* reg = ClassRegistry->Find(FuID("tevrinworks.Lumivane2"));
        EXPECT_TRUE(reg && reg->Name() == "Lumivane 2");
    }
    EXPECT_EQ(ClassRegistry->Count(), before);
    EXPECT_EQ(ClassRegistry->Find(FuID("tevrinworks.Lumivane2")), nullptr);
}

// A folder of its own for each test.
struct PluginFolder : ::testing::Test {
    fs::path dir = fs::temp_directory_path() / ("lumivane_plugins_" + std::to_string(::getpid()));
    void SetUp() override { fs::create_directories(dir); }
    void TearDown() override { fs::remove_all(dir); }
};

TEST_F(PluginFolder, SkipsAndReportsWhatIsNotAToolPluginOrNotToBeTrusted)
{
    const auto copy = [&](const char* from, const char* name, fs::perms mode) {
        fs::copy_file(from, dir / name, fs::copy_options::overwrite_existing);
        fs::permissions(dir / name, mode);
    };
    const fs::perms ownerOnly = fs::perms::owner_all | fs::perms::group_read | fs::perms::others_read;
    fs::permissions(dir, ownerOnly | fs::perms::group_exec | fs::perms::others_exec);
    copy(LUMIVANE_PLUGIN_FILE, "Lumivane2.plugin", ownerOnly);
    copy(LUMIVANE_PLUGIN_FILE, "Lumivane2copy.plugin", ownerOnly);  // the same class ID again
    copy(LUMIVANE_EMPTY_MODULE, "empty.plugin", ownerOnly);
    copy(LUMIVANE_EMPTY_MODULE, "shared.plugin", ownerOnly | fs::perms::group_write);
    std::ofstream(dir / "text.plugin") << "not a module";
    std::ofstream(dir / "readme.txt") << "ignored";
    PluginSet set;
    const std::vector<std::string> problems = set.LoadFolder(dir.string());
    ASSERT_EQ(problems.size(), 4u);
    const std::vector<std::string> expected = {
        "Lumivane2copy.plugin registers a tool class that \"tevrinworks.Lumivane2\" of " + (dir / "Lumivane2.plugin").string() +
            " registered already: the first is used, this one unloaded",
        "empty.plugin loaded, not a tool plug-in: it registered no tools",
        "refused plug-in " + (dir / "shared.plugin").string() + ": its group or others may write to it (mode 0764",
        "cannot load plug-in " + (dir / "text.plugin").string() + ": "};
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_NE(problems[i].find(expected[i]), std::string::npos) << problems[i];
    EXPECT_EQ(set.Modules().size(), 1u);
    const auto entries = ClassRegistry->Entries();
    EXPECT_EQ(std::count_if(entries.begin(), entries.end(),
                            [](Registry* r) { return r->ID().str() == "tevrinworks.Lumivane2"; }),
              1);  // the copy's registration went with it
    EXPECT_THROW(PluginSet().LoadFolder((dir / "missing").string()), std::runtime_error);
    fs::permissions(dir, fs::perms::others_write, fs::perm_options::add);
    EXPECT_EQ(Refusal<std::runtime_error>([&] { PluginSet().LoadFolder(dir.string()); })
                  .rfind("refused plug-in folder " + dir.string() + ": its group or others may write to it", 0),
              0u);
}

namespace {

// What a user sees of every control of `tool`: shown or not, its label, keys,
// connection, and its value at frame 5.
using ControlState = std::tuple<std::string, bool, std::string, std::map<double, double>, std::string, std::string>;
std::vector<ControlState> Controls(const Operator& tool)
{
    std::vector<ControlState> out;
    for (const auto& in : tool.Inputs()) {
        std::string value;
        if (!in->Decl().IsImage()) {
            Ref<Parameter> x(in->GetSource(5));
            // dumped as JSON, so numbers compare to their last bit
            value = in->Decl().IsText() ? nlohmann::json(static_cast<Text&>(*x).Value()).dump()
                                        : nlohmann::json(static_cast<Number&>(*x).Value()).dump();
        }
        out.emplace_back(in->ID().str(), in->IsVisible(), in->GetLabel(), in->Keys(), in->Connection(), value);
    }
    return out;
}

// Every size control shown, each slider at a value of its own, choices away
// from their defaults, a keyed control and a connected input.
void SetEveryControl(const DocHarness& a, const fs::path& dir)
{
    for (const auto& [id, value] : {std::pair{"LockXY", 1}, {"LockXY", 0}, {"PerChannel", 0}, {"BlurStyle", 4},
                                    {"Edges", 1}, {"Operation", 1}})
        a.Set(id, value);
    double v = 0.5;
    for (const auto& in : a.op->Inputs())
        if (in->Decl().IsNumber() && in->Decl().Control == SliderControlID)
            a.Set(in->ID().str(), in->Decl().Integer ? std::floor(v += 1.0) : (v += 1.0));
    a.In("GreenBlurSizeX")->SetKeys({{1.5, 2.0}, {9, 8.5}});  // a key between frames reads back where it was
    a.In("input")->SetConnection((dir / "plate.####.exr").string());
}

}  // namespace

TEST_F(PluginFolder, EveryControlKeysAndInfoPageSurviveTheFlowRoundTrip)
{
    const auto plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
    DocHarness a;
    SetEveryControl(a, dir);
    const std::string path = (dir / "saved.flow").string();
    SaveFlow(a.doc, path, {{"frames", "1-9"}});
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);  // no temporary left

    FusionDoc doc;
    EXPECT_EQ(LoadFlow(doc, path), (nlohmann::ordered_json{{"frames", "1-9"}}));
    ASSERT_EQ(doc.Tools().size(), 1u);
    EXPECT_EQ(doc.Tools()[0]->Name(), a.op->Name());
    EXPECT_EQ(Controls(*doc.Tools()[0]), Controls(*a.op));
}

TEST_F(PluginFolder, ACopyKeepsEveryControlAndChangingItLeavesTheOriginalAlone)
{
    const auto plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
    DocHarness a;
    SetEveryControl(a, dir);
    const std::vector<ControlState> before = Controls(*a.op);

    Operator* copy = CopyTool(a.doc, *a.op);
    ASSERT_EQ(a.doc.Tools().size(), 2u);
    EXPECT_NE(copy->Name(), a.op->Name());  // beside the tool, under a name of its own
    EXPECT_EQ(Controls(*copy), before);
    FusionDoc other;
    EXPECT_EQ(Controls(*CopyTool(other, *a.op, a.op->Name())), before);
    EXPECT_EQ(other.Tools()[0]->Name(), a.op->Name());

    Ref<Number> n(new Number(3.0));
    for (const char* id : {"Edges", "BlurSizeX"}) copy->FindInput(id)->SetSource(n.get(), 0.0);
    copy->FindInput("GreenBlurSizeX")->Animate(5);
    copy->FindInput("GreenBlurSizeX")->SetKeys({{2, 1.0}});
    copy->FindInput("input")->SetConnection("elsewhere.exr");
    EXPECT_NE(Controls(*copy), before);
    EXPECT_EQ(Controls(*a.op), before);
    a.doc.RemoveTool(copy);
    EXPECT_EQ(Controls(*a.op), before);
}

TEST_F(PluginFolder, BadFlowsNameTheFileThePlaceAndWhatWasExpected)
{
    const auto plugin = PluginModule::Load(LUMIVANE_PLUGIN_FILE);
    const std::string head = R"({"format": "lumivane-flow", "version": 1, "tools": [)";
    const std::string tool = R"({"class": "tevrinworks.Lumivane2", "inputs": )";
    const std::pair<std::string, std::string> cases[] = {  // text, what the message says
        {"{\"format\": ", "not a valid flow file: [json.exception.parse_error.101]"},
        {"888888e888888888888", "not a valid flow file: [json.exception.out_of_range.406]"},
        {R"({"tools": []})", ": format: expected \"lumivane-flow\""},
        {head + R"({"class": "nobody.Tool"}]})", ": tools[0].class: no tool class \"nobody.Tool\" is loaded (loaded: "},
        {head + tool + R"({"Size": 3}}]})",
         ": tools[0].inputs.Size: the tool has no control \"Size\" (controls: Operation, WienerParam, BlurSizeUnit"},
        {head + tool + R"({"BlurSizeX": true}}]})",
         ": tools[0].inputs.BlurSizeX: expected a number or {\"keys\": [[time, value], ...]}, got boolean"},
        // Values go through the rule --set follows, with its words.
        {head + tool + R"({"BlurSizeX": "big"}}]})", ": tools[0].inputs.BlurSizeX: BlurSizeX takes a number from 0"},
        {head + tool + R"({"BlurSizeX": -3}}]})", "BlurSizeX: -3 is less than the lowest value 0 (it takes a number"},
        {head + tool + R"({"BlurStyle": 7}}]})", "BlurStyle: 7 is not one of 0 \"Disk\""},
        {head + tool + R"({"PolygonSideCount": {"keys": [[0, 6], [9, 4.5]]}}}]})",
         ".PolygonSideCount.keys[1]: PolygonSideCount: 4.5 is not a whole number"},
        {head + tool + R"({"PerChannel": 2}}]})", "PerChannel: 2 is not 0 (off) or 1 (on)"},
        {head + tool + R"({"CompanyName": "Hacked"}}]})", ".inputs.CompanyName: \"CompanyName\" is read-only"},
        {head + tool + R"({"BlurSizeX": {"keys": [[1]]}}}]})", ": tools[0].inputs.BlurSizeX.keys[0]: expected [time, value]"},
        {head + tool + R"({"CompanyName": 3}}]})", ": tools[0].inputs.CompanyName: expected a text, got number"},
        // Fields the format does not have, at each level: refused, not dropped.
        {head + R"(], "tool": []})", ": tool: unknown field (expected \"format\", \"version\", \"tools\", \"program\")"},
        {head + tool + R"({}, "input": {"BlurSizeX": 3}}]})", ": tools[0].input: unknown field (expected \"name\""},
        {head + tool + R"({"BlurSizeX": {"keys": [[0, 1]], "ease": 1}}}]})", ": tools[0].inputs.BlurSizeX.ease: unknown field"},
    };
    const std::string path = (dir / "bad.flow").string();
    for (const auto& [text, message] : cases) {
        std::ofstream(path) << text;
        const std::string why = Refusal<std::runtime_error>([&] { FusionDoc doc; LoadFlow(doc, path); });
        EXPECT_EQ(why.rfind(path, 0), 0u) << why;
        EXPECT_NE(why.find(message), std::string::npos) << why;
    }
    std::ofstream(path) << head + tool + R"({"BlurStyle": "polygon", "PerChannel": "off"}}]})";
    FusionDoc named;
    LoadFlow(named, path);
    Ref<Parameter> style(named.Tools()[0]->FindInput("BlurStyle")->GetSource(0));
    EXPECT_EQ(static_cast<Number&>(*style).Value(), 1.0);
    FusionDoc doc;
    EXPECT_THROW(SaveFlow(doc, (dir / "no" / "such" / "folder.flow").string()), std::runtime_error);
}

}  // namespace
