#include "app/view/ViewServer.h"

#include "app/files/ExitCodes.h"
#include "app/view/ViewHttpServer.h"
#include "app/files/Interrupt.h"
#include "host/EngineSettings.h"
#include "util/Text.h"

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <thread>

using json = nlohmann::ordered_json;

namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kTokenHeader = "X-Lumivane-Token";
constexpr const char* kJson = "application/json";
constexpr std::size_t kMaxBody = 64 * 1024;  // a setting is a few dozen bytes
constexpr int kTokenBytes = 16;              // 128 bits

std::string NewToken()
{
    std::random_device random;  // the kernel's entropy source
    std::string token;
    char hex[3];
    for (int i = 0; i < kTokenBytes; ++i) {
        std::snprintf(hex, sizeof hex, "%02x", static_cast<unsigned>(random() & 0xff));
        token += hex;
    }
    return token;
}

// Compares in time independent of where the first difference is.
bool SameToken(const std::string& a, const std::string& b)
{
    if (a.size() != b.size()) return false;
    unsigned char diff = 0;
    for (std::size_t i = 0; i < a.size(); ++i) diff |= static_cast<unsigned char>(a[i] ^ b[i]);
    return diff == 0;
}

void Reply(httplib::Response& res, int status, const json& body)
{
    res.status = status;
    res.set_content(body.dump(), kJson);
}

void Refuse(httplib::Response& res, int status, const std::string& message)
{
    Reply(res, status, json{{"error", message}});
}

json Body(const httplib::Request& req)
{
    try {
        json body = json::parse(req.body);
        if (!body.is_object()) throw UsageError("the request body must be a JSON object");
        return body;
    } catch (const json::parse_error& e) {
        throw UsageError(std::string("malformed JSON: ") + e.what());
    }
}

std::string Field(const json& body, const char* key)
{
    if (!body.contains(key) || !body[key].is_string())
        throw UsageError(std::string("\"") + key + "\": expected a text");
    return body[key].get<std::string>();
}

int FrameField(const json& body, const char* key)
{
    if (!body.contains(key) || !body[key].is_number_integer())
        throw UsageError(std::string("\"") + key + "\": expected a whole frame number");
    return body[key].get<int>();
}

// A value as --set takes it: numbers exactly, on/off for true/false, text as typed.
std::string SettingText(const json& value)
{
    if (value.is_boolean()) return value.get<bool>() ? "on" : "off";
    if (value.is_string()) return value.get<std::string>();
    if (value.is_number_integer()) return std::to_string(value.get<long long>());
    if (value.is_number()) {
        char text[40];
        std::snprintf(text, sizeof text, "%.17g", value.get<double>());
        return text;
    }
    throw UsageError("\"value\": expected a number, an entry name or on/off");
}

std::string Param(const httplib::Request& req, const char* name, const char* fallback)
{
    return req.has_param(name) ? req.get_param_value(name) : fallback;
}

double NumberParam(const httplib::Request& req, const char* name, double fallback, const char* expected)
{
    if (!req.has_param(name)) return fallback;
    const std::string text = req.get_param_value(name);
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (text.empty() || *end) throw UsageError(std::string(name) + ": expected " + expected + ", got \"" + text + "\"");
    return v;
}

long WholeParam(const httplib::Request& req, const char* name, long fallback)
{
    const double v = NumberParam(req, name, static_cast<double>(fallback), "a whole number");
    if (v != std::trunc(v) || std::fabs(v) > 1e9)
        throw UsageError(std::string(name) + ": expected a whole number, got \"" + req.get_param_value(name) + "\"");
    return static_cast<long>(v);
}

// The picture's channel, gamma, layer and display (ViewDisplay.h).
DisplayLook LookOf(const httplib::Request& req)
{
    DisplayLook look;
    const std::string channel = Param(req, "channel", "rgb");
    if (channel.size() == 1 && std::string("rgbay").find(channel[0]) != std::string::npos) look.channel = channel[0];
    else if (channel != "rgb") throw UsageError("channel: expected rgb, r, g, b, a or y, got \"" + channel + "\"");
    look.gamma = NumberParam(req, "gamma", 1.0, "a number");
    look.layer = Param(req, "layer", "");
    look.display = Param(req, "display", "");
    look.view = Param(req, "view", "");
    return look;
}

}  // namespace

ViewServer::ViewServer(const ViewOptions& options)
    : m_session(options), m_server(std::make_unique<ViewHttpServer>()), m_token(NewToken())
{
    m_server->set_payload_max_length(kMaxBody);
    Routes();
    m_port = m_server->Bind(kLoopback, options.port);
    if (m_port <= 0)
        throw UsageError("--port " + std::to_string(options.port) + ": cannot listen on " + kLoopback +
                         " at that port (in use, or not allowed)");
}

ViewServer::~ViewServer() = default;

std::string ViewServer::Address() const
{
    return std::string("http://") + kLoopback + ":" + std::to_string(m_port) + "/#" + m_token;
}

void ViewServer::Serve()
{
    const InterruptsWait looked;  // by the watch
    std::atomic<bool> done{false};
    std::thread watch([&] {
        while (!done) {
            if (InterruptRequested()) {
                m_server->stop();
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    });
    m_server->listen_after_bind();
    done = true;
    watch.join();
}

void ViewServer::Stop() { m_server->stop(); }

void ViewServer::Routes()
{
    httplib::Server& s = *m_server;
    s.set_pre_routing_handler([this](const httplib::Request& req, httplib::Response& res) {
        const std::string host = req.get_header_value("Host");
        const std::string port = ":" + std::to_string(m_port);
        if (host != kLoopback + port && host != "localhost" + port) {
            Refuse(res, 403, "Host \"" + host + "\" is not this server's address " + kLoopback + port);
            return httplib::Server::HandlerResponse::Handled;
        }
        if (req.path.rfind("/api/", 0) == 0 && !SameToken(req.get_header_value(kTokenHeader), m_token)) {
            Refuse(res, 403, std::string("missing or wrong ") + kTokenHeader + " header (the token is in the printed address)");
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    s.set_error_handler([](const httplib::Request& req, httplib::Response& res) {
        if (!res.body.empty()) return;
        if (res.status == 404) Refuse(res, 404, "no such route: " + req.method + " " + req.path);
        else if (res.status == 413) Refuse(res, 413, "request body larger than " + std::to_string(kMaxBody) + " bytes");
        else Refuse(res, res.status, "request refused (HTTP " + std::to_string(res.status) + ")");
    });

    // Runs `f` under the lock; failures become JSON messages with a 4xx for
    // what the caller can fix, 422 for a render the tool refused.
    auto api = [this](auto f) {
        return [this, f](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard<std::mutex> lock(m_mutex);
            try {
                f(req, res);
            } catch (const Superseded& e) {
                Refuse(res, 409, e.what());
            } catch (const ProgramError& e) {
                Refuse(res, e.Kind() == Exit::Usage ? 400 : e.Kind() == Exit::Render ? 422 : 500, e.what());
            } catch (const std::exception& e) {
                Refuse(res, 500, e.what());
            }
        };
    };

    // A change makes the render in flight obsolete: it is cancelled before the
    // change waits for the lock.
    auto change = [this, &api](auto f) {
        return [this, handler = api(f)](const httplib::Request& req, httplib::Response& res) {
            const RenderCancel::Change coming(m_session.Cancel());
            handler(req, res);
        };
    };

    s.Get("/", [](const httplib::Request&, httplib::Response& res) {
        res.set_header("Cache-Control", "no-store");
        res.set_header("Content-Security-Policy",
                       "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
                       "img-src blob:; connect-src 'self'");
        res.set_content(kViewPage, "text/html; charset=utf-8");
    });
    s.Get("/api/tool", api([this](const httplib::Request&, httplib::Response& res) {
              Reply(res, 200, m_session.ToolDocument());
          }));
    s.Post("/api/set", change([this](const httplib::Request& req, httplib::Response& res) {
               const json body = Body(req);
               if (!body.contains("value")) throw UsageError("\"value\": missing");
               // Read as the command line's --set ID=VALUE, so its messages are the same.
               m_session.Set(ParseSetArgument(Field(body, "id") + "=" + SettingText(body["value"])));
               Reply(res, 200, m_session.ToolDocument());
           }));
    s.Post("/api/frame", change([this](const httplib::Request& req, httplib::Response& res) {
               m_session.SetFrame(FrameField(Body(req), "frame"));
               Reply(res, 200, m_session.ToolDocument());
           }));
    // Keyframe verbs at the current frame; /api/animate and /api/unanimate
    // are /api/key's "set" and "remove" by name.
    const auto key = [this, &change](const char* action) {
        return change([this, action](const httplib::Request& req, httplib::Response& res) {
            const json body = Body(req);
            m_session.Key(Field(body, "id"), action ? std::string(action) : Field(body, "action"));
            Reply(res, 200, m_session.ToolDocument());
        });
    };
    s.Post("/api/key", key(nullptr));
    s.Post("/api/animate", key("set"));
    s.Post("/api/unanimate", key("remove"));
    // Undo and redo of the changes above; the snapshot an A/B wipe compares
    // with; what the frame cache holds.
    s.Post("/api/undo", api([this](const httplib::Request&, httplib::Response& res) {
               m_session.Undo();
               Reply(res, 200, m_session.ToolDocument());
           }));
    s.Post("/api/redo", api([this](const httplib::Request&, httplib::Response& res) {
               m_session.Redo();
               Reply(res, 200, m_session.ToolDocument());
           }));
    s.Post("/api/snapshot", api([this](const httplib::Request&, httplib::Response& res) {
               m_session.Snapshot();
               Reply(res, 200, m_session.ToolDocument());
           }));
    s.Get("/api/cache", api([this](const httplib::Request&, httplib::Response& res) {
              Reply(res, 200, m_session.Cache());
          }));
    s.Get("/api/image", api([this](const httplib::Request& req, httplib::Response& res) {
              const std::string which = Param(req, "which", "output");
              const std::string format = Param(req, "format", "png");
              const double exposure = NumberParam(req, "exposure", 0.0, "stops");
              int proxy = 1;
              if (req.has_param("proxy")) {
                  const std::string text = req.get_param_value("proxy");
                  if (text != "1" && text != "2" && text != "4")
                      throw UsageError("proxy: expected 1, 2 or 4, got \"" + text + "\"");
                  proxy = std::stoi(text);
              }
              const EncodedImage image = m_session.Picture(which, format, exposure, proxy, LookOf(req));
              res.set_header("X-Lumivane-Render-Ms", FormatNumber(image.renderMs));
              res.set_header("X-Lumivane-Encode-Ms", FormatNumber(image.encodeMs));
              res.set_header("X-Lumivane-Proxy", std::to_string(image.proxy));
              res.set_header("X-Lumivane-Version", std::to_string(image.version));
              res.set_header("Cache-Control", "no-store");
              res.set_content(image.bytes, image.mime.c_str());
          }));
    s.Get("/api/pixels", api([this](const httplib::Request& req, httplib::Response& res) {
              Reply(res, 200, m_session.Pixels(Param(req, "which", "output"), Param(req, "layer", ""),
                                               WholeParam(req, "x", 0), WholeParam(req, "y", 0),
                                               WholeParam(req, "w", 1), WholeParam(req, "h", 1)));
          }));
    s.Get("/api/plate", api([this](const httplib::Request&, httplib::Response& res) {
              Reply(res, 200, m_session.PlateDocument());
          }));
    s.Get("/api/console", api([this](const httplib::Request&, httplib::Response& res) {
              Reply(res, 200, m_session.Console());
          }));
    s.Post("/api/flow", api([this](const httplib::Request&, httplib::Response& res) {
               Reply(res, 200, json{{"saved", m_session.SaveFlow()}});
           }));
}

int RunView(const ViewOptions& options)
{
    // The page re-renders the same frame size at every change.
    SetHostKeepsTransformBuffers(true);
    ViewServer server(options);
    std::printf("%s\n", server.Address().c_str());
    std::fflush(stdout);
    server.Serve();
    return ExitStatus(Exit::Success);
}
