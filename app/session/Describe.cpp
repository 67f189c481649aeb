#include "app/session/Describe.h"

#include "app/files/ExitCodes.h"
#include "app/session/Plugins.h"
#include "app/session/Settings.h"
#include "host/Registry.h"
#include "host/Tags.h"
#include "util/Text.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <iostream>
#include <sstream>

using json = nlohmann::ordered_json;

namespace {

std::string KindOfControl(const InputDeclaration& d)
{
    if (d.IsImage()) return "image";
    if (d.Control == MultiButtonControlID) return "multi-button";
    if (d.Control == SliderControlID) return "slider";
    if (d.Control == CheckboxControlID) return "checkbox";
    if (d.Control == TextEditControlID) return "text";
    return d.Control.IsEmpty() ? d.DataType.str() : d.Control.str();
}

bool ReadOnly(const InputDeclaration& d) { return d.Tags.GetLong(TEC_ReadOnly, 0) != 0; }

json ControlJson(const Input& in)
{
    const InputDeclaration& d = in.Decl();
    json c{{"id", d.ID.str()}, {"label", in.GetLabel()}, {"kind", KindOfControl(d)}};
    if (!d.Entries.empty()) c["entries"] = d.Entries;
    if (d.MinAllowed) c["min"] = *d.MinAllowed;
    if (d.MaxAllowed) c["max"] = *d.MaxAllowed;
    if (d.SliderTop) c["sliderTop"] = *d.SliderTop;
    if (d.IsNumber()) c["default"] = d.Default;
    if (d.IsText()) c["default"] = d.DefaultText;
    if (d.Integer) c["integer"] = true;
    if (d.Notify) c["notify"] = true;
    if (ReadOnly(d)) c["readOnly"] = true;
    c["visible"] = in.IsVisible();
    return c;
}

void PrintText(const Registry& reg, const Operator& tool, const std::string& module)
{
    std::printf("%s (%s)\n", reg.Name().c_str(), reg.ID().c_str());
    std::printf("  category:    %s\n", reg.Tags().GetString(REGS_Category).c_str());
    std::printf("  description: %s\n", reg.Tags().GetString(REGS_OpDescription).c_str());
    std::printf("  module:      %s\n", module.c_str());
    for (const std::string& page : tool.Pages()) {
        std::printf("\n  Page \"%s\"\n", page.c_str());
        for (const auto& in : tool.Inputs()) {
            const InputDeclaration& d = in->Decl();
            if (d.IsImage() || d.Page != page) continue;
            std::string details = KindOfControl(d);
            if (d.IsNumber()) details += ", " + AcceptedValues(d) + ", default " + FormatNumber(d.Default);
            if (d.IsText()) details += ", \"" + d.DefaultText + "\"";
            if (ReadOnly(d)) details += ", read-only";
            if (d.Notify) details += ", notifies";
            if (!in->IsVisible()) details += ", hidden";
            std::printf("    %-18s %-38s %s\n", d.ID.c_str(), ("\"" + in->GetLabel() + "\"").c_str(), details.c_str());
        }
    }
    std::printf("\n  Image inputs\n");
    for (const auto& in : tool.Inputs())
        if (in->Decl().IsImage())
            std::printf("    %-18s %-38s link %lld, %s\n", in->ID().c_str(), ("\"" + in->GetLabel() + "\"").c_str(),
                        static_cast<long long>(in->Decl().LinkNumber), in->Decl().Required ? "required" : "optional");
    std::printf("\n  Outputs\n");
    for (const auto& out : tool.Outputs())
        std::printf("    %-18s \"%s\"\n", out->ID().c_str(), out->Decl().Label.c_str());
}

}  // namespace

nlohmann::ordered_json DescribeTool(const Registry& reg, const Operator& tool, const std::string& module)
{
    json t{{"id", reg.ID().str()},
           {"name", reg.Name()},
           {"category", reg.Tags().GetString(REGS_Category)},
           {"description", reg.Tags().GetString(REGS_OpDescription)},
           {"module", module},
           {"pages", json::array()},
           {"inputs", json::array()},
           {"outputs", json::array()}};
    for (const std::string& page : tool.Pages()) {
        json controls = json::array();
        for (const auto& in : tool.Inputs())
            if (!in->Decl().IsImage() && in->Decl().Page == page) controls.push_back(ControlJson(*in));
        t["pages"].push_back(json{{"name", page}, {"controls", controls}});
    }
    for (const auto& in : tool.Inputs())
        if (in->Decl().IsImage())
            t["inputs"].push_back(json{{"id", in->ID().str()},
                                       {"label", in->GetLabel()},
                                       {"link", in->Decl().LinkNumber},
                                       {"required", in->Decl().Required}});
    for (const auto& out : tool.Outputs())
        t["outputs"].push_back(json{{"id", out->ID().str()}, {"label", out->Decl().Label}});
    return t;
}

int RunDescribe(const DescribeOptions& opt)
{
    PluginHost host(PluginFolders(opt.plugins), [](const std::string& w) {
        std::fprintf(stderr, "lumivane: warning: %s\n", w.c_str());
    });
    json tools = json::array();
    bool first = true;
    for (Registry* reg : ClassRegistry->Entries()) {
        if (reg->Tags().GetLong(REGI_ClassType, 0) != CT_Tool) continue;
        Operator* tool = host.Doc().AddTool(reg->ID());
        const std::string module = host.ModuleOf(reg->ID().str());
        if (opt.json) {
            tools.push_back(DescribeTool(*reg, *tool, module));
        } else {
            if (!first) std::printf("\n");
            PrintText(*reg, *tool, module);
        }
        first = false;
        host.Doc().RemoveTool(tool);
    }
    if (first && !opt.json) {
        std::printf("no tools loaded (searched: %s)\n", Join(host.Folders()).c_str());
    }
    if (opt.json) std::cout << json{{"tools", tools}}.dump(2) << "\n";
    return ExitStatus(Exit::Success);
}
