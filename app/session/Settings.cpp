#include "app/session/Settings.h"

#include "app/files/ExitCodes.h"
#include "util/Text.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace {

std::string ControlList(const Operator& tool)
{
    std::vector<std::string> ids;
    for (const auto& in : tool.Inputs())
        if (in->Decl().IsNumber()) ids.push_back(in->ID().str());
    return Join(ids);
}

}  // namespace

Input& FindControl(const Operator& tool, const std::string& id, const std::string& origin)
{
    if (Input* in = tool.FindInput(id)) return *in;
    std::vector<std::string> ids;
    for (const auto& in : tool.Inputs()) ids.push_back(in->ID().str());
    const std::string near = NearestName(id, ids);
    const std::string hint = near.empty() ? std::string() : " (did you mean \"" + near + "\"?)";
    throw UsageError(origin + ": the tool has no control \"" + id + "\"" + hint + "; its controls are: " + ControlList(tool));
}

Setting ParseSetArgument(const std::string& arg)
{
    const std::size_t eq = arg.find('=');
    if (eq == std::string::npos || eq == 0)
        throw UsageError("--set " + arg +
                         ": expected ControlID=VALUE, e.g. --set BlurSizeX=2.5 (see `lumivane describe` for the IDs)");
    return Setting{arg.substr(0, eq), arg.substr(eq + 1), "--set " + arg};
}

Setting ParseKeyArgument(const std::string& arg)
{
    const std::string origin = "--key " + arg;
    const std::size_t eq = arg.find('='), colon = eq == std::string::npos ? eq : arg.find(':', eq + 1);
    if (eq == 0 || colon == std::string::npos)
        throw UsageError(origin + ": expected ControlID=FRAME:VALUE, e.g. --key BlurSizeX=1001:2.5 (see `lumivane "
                                  "describe` for the IDs)");
    const std::string frameText = arg.substr(eq + 1, colon - eq - 1);
    double frame = 0.0;
    if (ParseDecimal(frameText, frame) != DecimalText::Number)
        throw UsageError(origin + ": the frame \"" + frameText + "\" is not a finite decimal number");
    return Setting{arg.substr(0, eq), arg.substr(colon + 1), origin, Setting::Apply::Key, frame};
}

std::string AcceptedValues(const InputDeclaration& d) { return d.AcceptedValues(); }

double ResolveNumber(const InputDeclaration& d, const std::string& text, const std::string& origin)
{
    double v = 0.0;
    if (std::string why = d.RefuseTyped(text, v); !why.empty()) throw UsageError(origin + ": " + why);
    return v;
}

void ApplySettings(Operator& tool, const std::vector<Setting>& settings, TimeStamp time)
{
    for (const Setting& s : settings) {
        Input* in = &FindControl(tool, s.id, s.origin);
        const InputDeclaration& d = in->Decl();
        if (d.IsImage())
            throw UsageError(s.origin + ": \"" + s.id + "\" is an image input; give its file as INPUT" +
                             (d.LinkNumber == 1 ? "" : " or with --kernel"));
        if (d.ReadOnly) throw UsageError(s.origin + ": \"" + s.id + "\" is read-only");
        const double v = d.IsText() ? 0.0 : ResolveNumber(d, s.value, s.origin);
        try {
            if (s.apply == Setting::Apply::Key) in->Animate(s.frame);
            else if (s.apply == Setting::Apply::Constant && in->IsAnimated()) in->RemoveAnimation(time);
        } catch (const ValueRefused& e) {
            throw UsageError(s.origin + ": " + e.what());
        }
        const Ref<Parameter> value(d.IsText() ? static_cast<Parameter*>(new Text(s.value)) : new Number(v));
        in->SetSource(value.get(), s.apply == Setting::Apply::Key ? s.frame : time);
    }
}
