// `lumivane view`'s API through an HTTP client, against a server run in the
// test; pictures and refusals checked against the `lumivane` program itself.
#include "support/ProgramRunner.h"

#include "app/view/ViewServer.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <thread>
#include <tuple>

using json = nlohmann::json;

namespace {

class View : public ::testing::Test {
protected:
    void SetUp() override
    {
        WriteFile(TestPicture(37, 23, {"R", "G", "B", "A"}, true), m_dir / "in.exr", OIIO::TypeDesc::HALF);
        Start("in.exr");
    }
    // Serves `input` in the scratch folder, in place of what was served.
    void Start(const std::string& input, const std::string& saveFlow = "look.flow",
               const std::function<void(ViewOptions&)>& more = {})
    {
        if (m_server) {  // one tool host at a time: the plug-in registers once a process
            TearDown();
            m_server.reset();
        }
        ViewOptions options;
        options.input = m_dir / input;
        options.saveFlow = saveFlow.empty() ? "" : m_dir / saveFlow;
        options.plugins = LUMIVANE_PLUGIN_FOLDER_FOR_TESTS;
        options.plate.layers = "all";  // changes nothing for plates without layers
        if (more) more(options);
        m_server = std::make_unique<ViewServer>(options);
        m_thread = std::thread([this] { m_server->Serve(); });
        m_client = std::make_unique<httplib::Client>("127.0.0.1", m_server->Port());
        m_client->set_default_headers({{"X-Lumivane-Token", m_server->Token()}});
        // Until it listens: a stop that comes before would be missed.
        for (int i = 0; i < 500 && !m_client->Get("/api/tool"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    void TearDown() override
    {
        m_server->Stop();
        m_thread.join();
    }
    httplib::Result Post(const std::string& path, const std::string& body)
    {
        return m_client->Post(path.c_str(), body, "application/json");
    }
    json Tool() { return json::parse(m_client->Get("/api/tool")->body); }
    // The plate as frames 1001-1004 of seq.%d.exr.
    void StartSequence(double cacheMegabytes = 1024)
    {
        for (int f = 1001; f <= 1004; ++f)
            std::filesystem::copy_file(m_dir / "in.exr", m_dir / ("seq." + std::to_string(f) + ".exr"),
                                       std::filesystem::copy_options::overwrite_existing);
        Start("seq.%d.exr", "look.flow", [&](ViewOptions& o) { o.frames = "1001-1004", o.cacheMegabytes = cacheMegabytes; });
    }
    static json Control(const json& tool, const std::string& id)
    {
        for (const json& page : tool["pages"])
            for (const json& c : page["controls"])
                if (c["id"] == id) return c;
        return {};
    }
    // The output as EXR, written to `name` in the scratch folder and read back.
    OIIO::ImageBuf OutputExr(const std::string& name)
    {
        const auto r = m_client->Get("/api/image?which=output&format=exr");
        EXPECT_EQ(r->status, 200) << r->body;
        std::ofstream(m_dir / name, std::ios::binary) << r->body;
        return ReadFile(m_dir / name);
    }

    ScratchFolder m_dir;
    std::unique_ptr<ViewServer> m_server;
    std::thread m_thread;
    std::unique_ptr<httplib::Client> m_client;
};

TEST_F(View, ControlTableIsDescribesAndFollowsNotifications)
{
    const RunResult described = RunLumivane(m_dir, {"describe", "--json"});
    ASSERT_EQ(described.status, 0) << described.err;
    json expected = json::parse(described.out)["tools"][0];
    json got = Tool();
    for (json& page : got["pages"])
        for (json& c : page["controls"]) {
            for (const char* live : {"value", "animated", "keys"}) c.erase(live);
        }
    for (const char* key : {"id", "name", "pages", "inputs"}) EXPECT_EQ(got[key], expected[key]) << key;

    // The tool's own notifications show and hide controls.
    EXPECT_FALSE(Control(Tool(), "GreenBlurSizeX")["visible"]);
    json after = json::parse(Post("/api/set", R"({"id": "PerChannel", "value": false})")->body);
    EXPECT_TRUE(Control(after, "GreenBlurSizeX")["visible"]);
    EXPECT_TRUE(Control(after, "BlueBlurSizeX")["visible"]);
    after = json::parse(Post("/api/set", R"({"id": "BlurStyle", "value": "Gaussian"})")->body);
    EXPECT_FALSE(Control(after, "PolygonSideCount")["visible"]);
    after = json::parse(Post("/api/set", R"({"id": "BlurStyle", "value": 1})")->body);
    EXPECT_TRUE(Control(after, "PolygonSideCount")["visible"]);
    EXPECT_EQ(Control(after, "BlurStyle")["value"], 1.0);
}

TEST_F(View, OutputAndSavedFlowRenderAsTheProgramDoes)
{
    // A picture of the defaults first: what follows must not be served from it.
    ASSERT_EQ(m_client->Get("/api/image?which=output&format=png")->status, 200);
    for (const char* set : {R"({"id": "BlurStyle", "value": "polygon"})", R"({"id": "BlurSizeX", "value": 7.25})",
                            R"({"id": "BadBokeh", "value": 0.4})"})
        ASSERT_EQ(Post("/api/set", set)->status, 200) << set;
    const OIIO::ImageBuf viewed = OutputExr("viewed.exr");

    const RunResult rendered = RunLumivane(m_dir, {"render", "in.exr", "rendered.exr", "--set", "BlurStyle=polygon",
                                                   "--set", "BlurSizeX=7.25", "--set", "BadBokeh=0.4"});
    ASSERT_EQ(rendered.status, 0) << rendered.err;
    const OIIO::ImageBuf reference = ReadFile(m_dir / "rendered.exr");
    const auto bytes = [&](const char* name) {
        std::stringstream s;
        s << std::ifstream(m_dir / name, std::ios::binary).rdbuf();
        return s.str();
    };
    EXPECT_TRUE(bytes("viewed.exr") == bytes("rendered.exr")) << "the EXR files differ";
    EXPECT_EQ(Compare(viewed, reference).worst, 0.0) << Compare(viewed, reference);
    // The look moved the picture: an unblurred output would not match.
    EXPECT_GT(Compare(viewed, ReadFile(m_dir / "in.exr")).worst, 0.01);

    const auto saved = Post("/api/flow", "{}");
    ASSERT_EQ(saved->status, 200) << saved->body;
    EXPECT_EQ(json::parse(saved->body)["saved"], m_dir / "look.flow");
    const RunResult fromFlow = RunLumivane(m_dir, {"render", "--flow", "look.flow"});
    ASSERT_EQ(fromFlow.status, 0) << fromFlow.err;
    EXPECT_EQ(Compare(viewed, ReadFile(m_dir / "look.exr")).worst, 0.0);
}

// The readout, in the file's own coordinates: a data window off the origin,
// overscan past the display window, a layer, and the output against its EXR.
TEST_F(View, PixelsAreTheLinearValuesAtTheFilesCoordinates)
{
    OIIO::ImageBuf plate = TestPicture(21, 13, {"R", "G", "B", "A", "diffuse.R", "diffuse.G", "diffuse.B"}, true);
    plate.set_origin(5, -3);
    plate.set_full(0, 30, 0, 12, 0, 1);
    WriteFile(plate, m_dir / "win.exr", OIIO::TypeDesc::FLOAT);
    Start("win.exr");
    EXPECT_EQ(json::parse(m_client->Get("/api/plate")->body)["dataWindow"], json({5, -3, 21, 13}));
    EXPECT_EQ(json::parse(m_client->Get("/api/plate")->body)["displayWindow"], json({0, 0, 30, 12}));
    ASSERT_EQ(Post("/api/set", R"({"id": "BlurSizeX", "value": 6})")->status, 200);
    const OIIO::ImageBuf output = OutputExr("out.exr");
    struct Case { const char* query; int x, y, w, n; const OIIO::ImageBuf& expected; int red; };
    for (const Case& c : {Case{"which=input&x=6&y=-2&w=3&h=2", 6, -2, 3, 6, plate, 0},
                          Case{"which=input&layer=diffuse&x=24&y=8&w=2&h=3", 24, 8, 2, 6, plate, 4},
                          Case{"which=output&x=2&y=-3&w=5&h=4", 2, -3, 5, 20, output, 0}}) {
        const json got = json::parse(m_client->Get((std::string("/api/pixels?") + c.query).c_str())->body);
        for (int k = 0; k < c.n * 3; ++k)  // at() throws for a pixel missing
            EXPECT_EQ(got["pixels"].at(k / 3).at(k % 3),
                      c.expected.getchannel(c.x + k / 3 % c.w, c.y + k / 3 / c.w, 0, c.red + k % 3))
                << c.query << ", pixel " << k / 3;
    }
    EXPECT_NE(m_client->Get("/api/pixels?w=65&h=64")->body.find("1 to 4096 pixels"), std::string::npos);
    EXPECT_EQ(m_client->Get("/api/pixels?x=29&y=11&w=2")->status, 400);
}

// Without --save-flow the flow goes beside the input, as in.flow; the output
// it names must then not be in.exr, the input itself.
TEST_F(View, TheSavedFlowNeverNamesItsInputAsItsOutput)
{
    Start("in.exr", "");
    ASSERT_EQ(Post("/api/set", R"({"id": "BlurSizeX", "value": 6})")->status, 200);
    const auto saved = Post("/api/flow", "{}");
    ASSERT_EQ(saved->status, 200) << saved->body;
    EXPECT_EQ(json::parse(saved->body)["saved"], m_dir / "in.flow");
    const RunResult r = RunLumivane(m_dir, {"render", "--flow", "in.flow"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_GT(Compare(ReadFile(m_dir / "in.lumivane.exr"), ReadFile(m_dir / "in.exr")).worst, 0.01);
}

TEST_F(View, RefusesStrangersAndBadRequestsAndKeepsServing)
{
    const std::string port = std::to_string(m_server->Port());
    httplib::Client stranger("127.0.0.1", m_server->Port());
    EXPECT_EQ(stranger.Get("/api/tool")->status, 403);
    EXPECT_EQ(stranger.Get("/api/tool", {{"X-Lumivane-Token", std::string(32, '0')}})->status, 403);
    const auto rebound = m_client->Get("/api/tool", {{"Host", "attacker.example:" + port}});
    EXPECT_EQ(rebound->status, 403);
    EXPECT_NE(json::parse(rebound->body)["error"].get<std::string>().find("attacker.example"), std::string::npos);
    EXPECT_EQ(stranger.Get("/", {{"Host", "attacker.example:" + port}})->status, 403);
    EXPECT_EQ(stranger.Get("/")->status, 200);  // the page itself; its script then needs the token

    // A bad value answers with the message --set prints for it.
    const RunResult cli = RunLumivane(m_dir, {"render", "in.exr", "o.exr", "--set", "BlurStyle=Hexagon"});
    const auto bad = Post("/api/set", R"({"id": "BlurStyle", "value": "Hexagon"})");
    EXPECT_EQ(bad->status, 400);
    const std::string message = json::parse(bad->body)["error"];
    EXPECT_NE(cli.err.find(message), std::string::npos) << cli.err << " / " << message;

    struct Case {
        const char* path;
        std::string body;
        int status;
    };
    for (const Case& c : std::vector<Case>{{"/api/set", "{\"id\": ", 400},
                                           {"/api/set", R"({"id": "NoSuchControl", "value": 1})", 400},
                                           {"/api/set", R"({"id": "BlurSizeX", "value": -3})", 400},
                                           {"/api/set", R"({"id": "BlurSizeX", "value": [1]})", 400},
                                           {"/api/frame", R"({"frame": 5})", 400},
                                           {"/api/key", R"({"id": "CompanyName", "action": "set"})", 400},
                                           {"/api/key", R"({"id": "BlurSizeX", "action": "delete"})", 400},
                                           {"/api/key", R"({"id": "BlurSizeX", "action": "toggle"})", 400},
                                           {"/api/animate", R"({"id": "NoSuchControl"})", 400},
                                           {"/api/nothing", "{}", 404},
                                           {"/api/set", std::string(1 << 20, ' '), 413}}) {
        const auto r = Post(c.path, c.body);
        ASSERT_TRUE(r) << c.path;
        EXPECT_EQ(r->status, c.status) << c.path << " " << c.body.substr(0, 60);
        EXPECT_TRUE(json::parse(r->body).contains("error")) << r->body;
    }
    EXPECT_EQ(m_client->Get("/api/image?which=elsewhere")->status, 400);
    EXPECT_EQ(m_client->Get("/api/image?which=snapshot")->status, 400);  // none kept yet
    EXPECT_EQ(m_client->Get("/api/tool")->status, 200);
}

// Clients that send their request a byte a second, more of them than the
// server has workers, while the page asks for pictures.
TEST_F(View, ClientsTricklingRequestsNeitherHoldUpThePageNorStayConnected)
{
    using Clock = std::chrono::steady_clock;
    const std::string request = "GET /api/tool HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
    std::vector<int> slow(24);
    for (int& fd : slow) {
        fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(static_cast<std::uint16_t>(m_server->Port()));
        to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    // Closed by the server: an end of file, or an answer and then the end.
    const auto closed = [](int fd) {
        char byte;
        const ssize_t n = ::recv(fd, &byte, 1, MSG_DONTWAIT);
        return n >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
    };
    const auto begin = Clock::now();
    for (std::size_t second = 0; second < 9; ++second) {
        for (const int fd : slow) ::send(fd, &request[second], 1, MSG_NOSIGNAL);
        if (second >= 2 && second <= 4) {
            const auto asked = Clock::now();
            const auto r = m_client->Get("/api/image?which=output&format=png");
            const double ms = std::chrono::duration<double, std::milli>(Clock::now() - asked).count();
            ASSERT_TRUE(r);
            EXPECT_EQ(r->status, 200);
            EXPECT_LT(ms - std::stod(r->get_header_value("X-Lumivane-Render-Ms")), 1000.0) << "at second " << second;
        }
        if (std::all_of(slow.begin(), slow.end(), closed)) break;
        std::this_thread::sleep_until(begin + std::chrono::seconds(second + 1));
    }
    for (const int fd : slow) {
        EXPECT_TRUE(closed(fd)) << "still connected after 9 s without a whole request";
        ::close(fd);
    }
}

TEST_F(View, ProxyLooksLikeTheFullRenderShrunk)
{
    // Bright points on a ramp: the bokeh's size shows in every point.
    WriteFile(TestPicture(64, 48, {"R", "G", "B", "A"}, true), m_dir / "plate.exr", OIIO::TypeDesc::FLOAT);
    Start("plate.exr");
    const auto srgb = [](double v) {
        v = std::clamp(v, 0.0, 1.0);
        return v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
    };
    struct Case {
        const char* unit;
        double size;  // 16 pixels in the full frame either way
        bool keyed;
        int factor;
    };
    for (const Case& c : {Case{"Absolute", 16.0, false, 2}, Case{"Relative", 25.0, false, 2},
                          Case{"Absolute", 16.0, true, 4}}) {
        SCOPED_TRACE(std::string(c.unit) + (c.keyed ? ", keyed, proxy " : ", proxy ") + std::to_string(c.factor));
        for (const std::string& set : {std::string(R"({"id": "BlurSizeUnit", "value": ")") + c.unit + "\"}",
                                      R"({"id": "BlurSizeX", "value": )" + std::to_string(c.size) + "}"})
            ASSERT_EQ(Post("/api/set", set)->status, 200) << set;
        if (c.keyed) {
            ASSERT_EQ(Post("/api/animate", R"({"id": "BlurSizeX"})")->status, 200);
        }
        const std::string factor = std::to_string(c.factor);
        const auto proxy = m_client->Get(("/api/image?which=output&format=png&proxy=" + factor).c_str());
        ASSERT_EQ(proxy->status, 200) << proxy->body;
        EXPECT_EQ(proxy->get_header_value("X-Lumivane-Proxy"), factor);
        std::ofstream(m_dir / "proxy.png", std::ios::binary) << proxy->body;
        const OIIO::ImageBuf shown = ReadFile(m_dir / "proxy.png");
        const int w = 64 / c.factor, h = 48 / c.factor;
        ASSERT_EQ(shown.spec().width, w);
        ASSERT_EQ(shown.spec().height, h);
        const json console = json::parse(m_client->Get("/api/console")->body);
        EXPECT_EQ(console["proxy"], c.factor);
        EXPECT_EQ(console["version"], Tool()["version"]) << "the console speaks of an older render";

        // The full resolution, unchanged by the proxy render before it.
        const OIIO::ImageBuf full = OutputExr("full.exr");
        const RunResult rendered = RunLumivane(m_dir, {"render", "plate.exr", "rendered.exr", "--set",
                                                       std::string("BlurSizeUnit=") + c.unit, "--set",
                                                       "BlurSizeX=" + std::to_string(c.size)});
        ASSERT_EQ(rendered.status, 0) << rendered.err;
        EXPECT_EQ(Compare(full, ReadFile(m_dir / "rendered.exr")).worst, 0.0);

        // Against the full render averaged over factor x factor blocks, on the display's scale.
        const int n = c.factor * c.factor;
        double sum = 0.0;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int ch = 0; ch < 3; ++ch) {
                    double mean = 0.0;
                    for (int k = 0; k < n; ++k)
                        mean += full.getchannel(c.factor * x + k % c.factor, c.factor * y + k / c.factor, 0, ch) / n;
                    sum += std::fabs(srgb(mean) - shown.getchannel(x, y, 0, ch));
                }
        EXPECT_LT(sum / (w * h * 3), 0.025) << "mean difference on the display scale";
    }
}

// A configuration whose one display halves the light.
constexpr const char* kHalvingDisplay = R"(ocio_profile_version: 1
roles: {default: linear, scene_linear: linear}
displays: {Test: [!<View> {name: Half, colorspace: half}]}
colorspaces: [!<ColorSpace> {name: linear},
  !<ColorSpace> {name: half, from_reference: !<CDLTransform> {slope: [0.5, 0.5, 0.5]}}])";

TEST_F(View, DisplayCodesAreTheSrgbOfTheScaledValues)
{
    // A ramp past both ends, irregular values, and what must not break the curve.
    const int width = 256;
    OIIO::ImageBuf plate(OIIO::ImageSpec(width, 3, 3, OIIO::TypeDesc::FLOAT));
    const float odd[] = {NAN, -INFINITY, INFINITY, -0.0f, 1e-30f, 3e38f};
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < width; ++x) {
            float px[3];
            for (int c = 0; c < 3; ++c)
                px[c] = y == 0 ? x / 200.0f - 0.1f : y == 1 ? std::fmod(x * 0.0137f + c * 0.31f, 2.9f) : odd[(x + c) % 6];
            plate.setpixel(x, y, px);
        }
    WriteFile(plate, m_dir / "codes.exr", OIIO::TypeDesc::FLOAT);
    std::ofstream(m_dir / "display.ocio") << kHalvingDisplay;
    ::setenv("OCIO", (m_dir / "display.ocio").c_str(), 1);
    Start("codes.exr");
    struct Case { const char* query; double stops, gamma; char channel; bool half; };  // half: the display, not sRGB
    for (const Case& k : {Case{"exposure=0", 0, 1, 0, false}, Case{"exposure=2.25&channel=y", 2.25, 1, 'y', false},
                          Case{"exposure=-1.5&gamma=2.2&channel=g", -1.5, 2.2, 'g', false},
                          Case{"exposure=1&gamma=2&display=Test&view=Half", 1, 2, 0, true}}) {
        const auto r = m_client->Get((std::string("/api/image?which=input&format=png&") + k.query).c_str());
        ASSERT_EQ(r->status, 200) << r->body;
        std::ofstream(m_dir / "codes.png", std::ios::binary) << r->body;
        const OIIO::ImageBuf shown = ReadFile(m_dir / "codes.png");
        for (int y = 0; y < (k.half ? 2 : 3); ++y)
            for (int x = 0; x < width; ++x)
                for (int c = 0; c < 3; ++c) {
                    const auto at = [&](int ch) { return plate.getchannel(x, y, 0, ch); };
                    const float luminance = static_cast<float>(0.2126 * at(0) + 0.7152 * at(1) + 0.0722 * at(2));
                    double v = (k.channel == 'g' ? at(1) : k.channel == 'y' ? luminance : at(c)) * std::exp2(k.stops);
                    v = std::isnan(v) ? 0.0 : std::clamp(v * (k.half ? 0.5 : 1.0), 0.0, 1.0);
                    if (!k.half) v = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
                    const double expected = std::round(255 * std::pow(v, 1 / k.gamma));
                    ASSERT_EQ(std::lround(shown.getchannel(x, y, 0, c) * 255), expected)
                        << k.query << ", value " << at(c) << ", pixel " << x << "," << y << " channel " << c;
                }
    }
    ::unsetenv("OCIO");
}

}  // namespace

namespace {

TEST_F(View, UndoAndRedoStepThroughSetsAndKeyVerbs)
{
    StartSequence();
    // BlurSizeX as a user sees it: its keys when animated, else its value.
    const auto SizeSource = [](const json& doc) {
        const json c = Control(doc, "BlurSizeX");
        return c["animated"].get<bool>() ? c["keys"] : c["value"];
    };
    // At a frame, a change and BlurSizeX after it.
    const std::vector<std::tuple<int, const char*, const char*, json>> steps = {
        {1001, "/api/set", R"({"id": "BlurSizeX", "value": 3})", 3.0},
        {1001, "/api/animate", R"({"id": "BlurSizeX"})", {{1001, 3}}},
        {1003, "/api/set", R"({"id": "BlurSizeX", "value": 5})", {{1001, 3}, {1003, 5}}},
        {1001, "/api/key", R"({"id": "BlurSizeX", "action": "delete"})", {{1003, 5}}},
        {1002, "/api/unanimate", R"({"id": "BlurSizeX"})", 5.0}};
    std::vector<json> sizes = {SizeSource(Tool())};
    for (const auto& [frame, path, body, size] : steps) {
        ASSERT_EQ(Post("/api/frame", "{\"frame\": " + std::to_string(frame) + "}")->status, 200);
        ASSERT_EQ(SizeSource(json::parse(Post(path, body)->body)), size) << body;
        sizes.push_back(size);
    }
    for (std::size_t i = sizes.size() - 1; i-- > 0;) EXPECT_EQ(SizeSource(json::parse(Post("/api/undo", "{}")->body)), sizes[i]);
    EXPECT_EQ(json::parse(Post("/api/undo", "{}")->body)["error"], "nothing to undo");
    for (std::size_t i = 1; i < sizes.size(); ++i) EXPECT_EQ(SizeSource(json::parse(Post("/api/redo", "{}")->body)), sizes[i]);
    EXPECT_EQ(Post("/api/redo", "{}")->status, 400);
    // A change after an undo drops the steps that were undone.
    Post("/api/undo", "{}");
    Post("/api/set", R"({"id": "BlurSizeY", "value": 2})");
    EXPECT_EQ(Post("/api/redo", "{}")->status, 400);
    EXPECT_EQ(SizeSource(Tool()), sizes[sizes.size() - 2]);
}

// Two passes over the frames: the second renders nothing unless the budget
// holds fewer frames than the sequence has; a changed control renders anew.
TEST_F(View, PlaybackKeepsRenderedFramesWithinTheBudget)
{
    // A budget of so many frames (37x23 RGBA floats each), the proxy, the frames it holds.
    for (const auto& [frames, proxyText, kept] : {std::tuple{100.0, "1", 4}, {100.0, "2", 4}, {2.5, "1", 2}}) {
        const char* proxy = proxyText;  // a lambda may not capture a structured binding in C++17
        StartSequence(frames * 37 * 23 * 4 * sizeof(float) / (1 << 20));
        const auto rendered = [&](int frame) {
            Post("/api/frame", "{\"frame\": " + std::to_string(frame) + "}");
            const auto r = m_client->Get((std::string("/api/image?format=jpeg&proxy=") + proxy).c_str());
            return r->status == 200 && std::stod(r->get_header_value("X-Lumivane-Render-Ms")) > 0;
        };
        for (int pass = 0; pass < 2; ++pass)
            for (int f = 1001; f <= 1004; ++f) EXPECT_EQ(rendered(f), pass == 0 || kept < 4) << f << " pass " << pass << " proxy " << proxy;
        const json cache = json::parse(m_client->Get("/api/cache")->body);
        EXPECT_EQ(cache["frames"], kept);
        EXPECT_LE(cache["bytes"], cache["budget"]);
        Post("/api/set", R"({"id": "BlurSizeX", "value": 2})");
        EXPECT_TRUE(rendered(1004));
    }
}

}  // namespace
