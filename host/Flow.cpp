#include "host/Flow.h"

#include "host/FusionDoc.h"
#include "util/AtomicFile.h"
#include "util/CheckedFile.h"
#include "util/FileIdentity.h"
#include "util/Text.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

using json = nlohmann::ordered_json;
namespace fs = std::filesystem;

namespace {

constexpr const char* kFormat = "lumivane-flow";
constexpr int kVersion = 1;

json SaveInput(const Input& in)
{
    const InputDeclaration& d = in.Decl();
    if (d.IsNumber()) {
        if (!in.IsAnimated()) {
            Ref<Parameter> v(const_cast<Input&>(in).GetSource(0.0));
            return static_cast<Number&>(*v).Value();
        }
        json keys = json::array();
        for (const auto& [t, v] : in.Keys()) keys.push_back(json::array({t, v}));
        return json{{"keys", keys}};
    }
    Ref<Parameter> v(const_cast<Input&>(in).GetSource(0.0));
    return v ? json(static_cast<Text&>(*v).Value()) : json("");
}

// Reads a flow held in memory. `origin` is the file it came from, whose folder
// relative file names are taken from; an empty one (a flow that never was a
// file) keeps file names as they are.
class FlowReader {
public:
    explicit FlowReader(std::string origin) : m_path(std::move(origin)) {}

    [[noreturn]] void Fail(const std::string& where, const std::string& what) const
    {
        throw std::runtime_error(Name() + ": " + where + ": " + what);
    }

    [[noreturn]] void Refuse(const std::string& where, const std::string& why) const
    {
        throw ValueRefused(Name() + ": " + where + ": " + why);
    }

    // A field the format does not have is refused rather than dropped: a
    // misspelt "input" would otherwise render the defaults without a word.
    void OnlyFields(const json& object, std::initializer_list<const char*> fields, const std::string& where) const
    {
        for (const auto& item : object.items()) {
            bool known = false;
            for (const char* f : fields) known = known || item.key() == f;
            if (known) continue;
            std::string list;
            for (const char* f : fields) list += std::string(list.empty() ? "" : ", ") + "\"" + f + "\"";
            Fail(where.empty() ? item.key() : where + "." + item.key(), "unknown field (expected " + list + ")");
        }
    }

    // Flows go through the same rule as the command line: a saved value is one
    // a user could have set. A read-only control is saved with the flow, so
    // its own value reads back as no change; any other is refused.
    void ApplyInput(Input& in, const json& value, const std::string& where) const
    {
        const InputDeclaration& d = in.Decl();
        if (d.IsText()) {
            if (!value.is_string()) Fail(where, "expected a text, got " + std::string(value.type_name()));
            Ref<Text> text(new Text(value.get<std::string>()));
            if (d.ReadOnly) {
                Ref<Parameter> now(in.GetSource(0.0));
                if (now && static_cast<Text&>(*now).Value() == text->Value()) return;
                Refuse(where, "\"" + d.ID.str() + "\" is read-only");
            }
            in.SetSource(text.get(), 0.0);
            return;
        }
        if (!d.IsNumber()) Fail(where, "\"" + d.ID.str() + "\" is an image connection; give it under \"connections\"");
        if (value.is_number() || value.is_string()) {
            const double v = NumberFrom(d, value, where);
            in.SetKeys({});
            Ref<Number> number(new Number(v));
            in.SetSource(number.get(), 0.0);
            return;
        }
        if (!value.is_object() || !value.contains("keys") || !value["keys"].is_array() || value["keys"].empty())
            Fail(where, "expected a number or {\"keys\": [[time, value], ...]}, got " + std::string(value.type_name()));
        OnlyFields(value, {"keys"}, where);
        std::map<double, double> keys;
        for (std::size_t i = 0; i < value["keys"].size(); ++i) {
            const json& key = value["keys"][i];
            const std::string at = where + ".keys[" + std::to_string(i) + "]";
            if (!key.is_array() || key.size() != 2 || !key[0].is_number() || !(key[1].is_number() || key[1].is_string()))
                Fail(at, "expected [time, value]");
            // Values between keys are interpolated and left to the tool's own
            // conversions; only the keys themselves are a user's values.
            keys[key[0].get<double>()] = NumberFrom(d, key[1], at);
        }
        in.SetKeys(std::move(keys));
    }

    // A number or a typed value (an entry name, "on") as --set takes it.
    double NumberFrom(const InputDeclaration& d, const json& value, const std::string& where) const
    {
        double v = 0.0;
        const std::string why = value.is_string() ? d.RefuseTyped(value.get<std::string>(), v)
                                                  : d.RefuseNumber(v = value.get<double>());
        if (!why.empty()) Refuse(where, why);
        return v;
    }

    Operator* ReadTool(FusionDoc& doc, const json& t, const std::string& where) const
    {
        if (!t.is_object()) Fail(where, "expected an object with \"class\", \"name\" and \"inputs\"");
        if (!t.contains("class") || !t["class"].is_string()) Fail(where + ".class", "expected the tool's class ID");
        OnlyFields(t, {"name", "class", "inputs", "connections"}, where);
        if (t.contains("name") && !t["name"].is_string()) Fail(where + ".name", "expected a text");
        const std::string name = t.contains("name") ? t["name"].get<std::string>() : std::string();
        Operator* tool = nullptr;
        try {
            tool = doc.AddTool(FuID(t["class"].get<std::string>()), name);
        } catch (const std::runtime_error& e) {
            Fail(where + ".class", e.what());
        }
        if (t.contains("inputs")) {
            if (!t["inputs"].is_object()) Fail(where + ".inputs", "expected an object of control ID to value");
            for (const auto& [id, value] : t["inputs"].items()) {
                Input* in = tool->FindInput(id);
                if (!in) {
                    std::vector<std::string> known;
                    for (const auto& i : tool->Inputs())
                        if (!i->Decl().IsImage()) known.push_back(i->ID().str());
                    Fail(where + ".inputs." + id, "the tool has no control \"" + id + "\" (controls: " + Join(known) + ")");
                }
                ApplyInput(*in, value, where + ".inputs." + id);
            }
        }
        if (t.contains("connections")) {
            if (!t["connections"].is_object()) Fail(where + ".connections", "expected an object of input ID to source");
            for (const auto& [id, value] : t["connections"].items()) {
                Input* in = tool->FindInput(id);
                if (!in || !in->Decl().IsImage())
                    Fail(where + ".connections." + id, "the tool has no image input \"" + id + "\"");
                if (!value.is_string()) Fail(where + ".connections." + id, "expected a text");
                const std::string name = value.get<std::string>();
                in->SetConnection(m_path.empty() ? name : PathFromFlow(m_path, name));
            }
        }
        return tool;
    }

private:
    std::string Name() const { return m_path.empty() ? std::string("flow") : m_path; }

    std::string m_path;
};

}  // namespace

std::string PathFromFlow(const std::string& flowPath, const std::string& name)
{
    const fs::path file(name);
    if (name.empty() || file.is_absolute()) return name;
    return (fs::path(flowPath).parent_path() / file).lexically_normal().string();
}

std::string PathForFlow(const std::string& flowPath, const std::string& name)
{
    if (name.empty()) return name;
    std::error_code ec;
    const fs::path file = fs::absolute(name, ec).lexically_normal();
    const fs::path folder = fs::absolute(flowPath, ec).lexically_normal().parent_path();
    if (ec) return name;
    const fs::path relative = file.lexically_relative(folder);
    // At most one step up: further out, the file is not part of the shot and
    // stays where it is when the shot moves.
    auto part = relative.begin();
    const bool near = !relative.empty() && (*part != ".." || (++part != relative.end() && *part != ".."));
    return near ? relative.string() : file.string();
}

namespace {

// One tool as the flow holds it.
json ToolFlowOf(const Operator& tool, const std::string& flowPath)
{
    json inputs = json::object(), connections = json::object();
    for (const auto& in : tool.Inputs()) {
        if (in->Decl().IsImage()) {
            const std::string& name = in->Connection();
            if (!name.empty()) connections[in->ID().str()] = flowPath.empty() ? name : PathForFlow(flowPath, name);
        } else {
            inputs[in->ID().str()] = SaveInput(*in);
        }
    }
    json t{{"name", tool.Name()}, {"class", tool.Reg() ? tool.Reg()->ID().str() : std::string()}, {"inputs", inputs}};
    if (!connections.empty()) t["connections"] = connections;
    return t;
}

}  // namespace

json FlowOf(const FusionDoc& doc, const std::string& flowPath, const json& program)
{
    json flow{{"format", kFormat}, {"version", kVersion}, {"tools", json::array()}};
    for (const auto& tool : doc.Tools()) flow["tools"].push_back(ToolFlowOf(*tool, flowPath));
    if (!program.is_null()) flow["program"] = program;
    return flow;
}

void SaveFlow(const FusionDoc& doc, const std::string& path, const json& program)
{
    const json flow = FlowOf(doc, path, program);
    std::string why;
    try {
        AtomicFile file(path);
        CheckedFile out(file.TempPath());
        const std::string text = flow.dump(2) + "\n";
        out.Write(text.data(), text.size());
        why = out.Close();
        if (why.empty()) why = file.Commit();
    } catch (const AtomicFile::Refused& e) {
        why = e.what();
    }
    if (!why.empty()) throw std::runtime_error("cannot write flow " + path + ": " + why);
}

json LoadFlow(FusionDoc& doc, const std::string& path)
{
    // Checked before opening: a FIFO or a device would be read for ever.
    if (const std::string why = NotRegularFile(path); !why.empty())
        throw std::runtime_error("cannot read flow " + path + ": " + why);
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read flow " + path + ": no such file or not readable");
    json flow;
    try {
        flow = json::parse(in);
    } catch (const json::exception& e) {
        // Syntax errors, and numbers too large for a double.
        throw std::runtime_error(path + ": not a valid flow file: " + e.what());
    }
    return LoadFlowValue(doc, flow, path);
}

json LoadFlowValue(FusionDoc& doc, const json& flow, const std::string& origin)
{
    FlowReader reader(origin);
    if (!flow.is_object() || !flow.contains("format") || flow["format"] != kFormat)
        reader.Fail("format", std::string("expected \"") + kFormat + "\"");
    if (!flow.contains("version") || !flow["version"].is_number_integer() || flow["version"].get<int>() != kVersion)
        reader.Fail("version", "expected " + std::to_string(kVersion));
    if (!flow.contains("tools") || !flow["tools"].is_array()) reader.Fail("tools", "expected a list of tools");
    reader.OnlyFields(flow, {"format", "version", "tools", "program"}, "");
    for (std::size_t i = 0; i < flow["tools"].size(); ++i)
        reader.ReadTool(doc, flow["tools"][i], "tools[" + std::to_string(i) + "]");
    return flow.contains("program") ? flow["program"] : json();
}

Operator* CopyTool(FusionDoc& into, const Operator& tool, const std::string& name)
{
    json entry = ToolFlowOf(tool, {});
    if (name.empty()) entry.erase("name");
    else entry["name"] = name;
    return FlowReader({}).ReadTool(into, entry, "copy of " + tool.Name());
}
