#include "app/cli/ControlOptions.h"

#include <CLI/CLI.hpp>

#include <map>
#include <sstream>

namespace {

// A friendly option stands for up to two settings; a null value takes the
// option's own argument.
struct FriendlyOption {
    const char* name;
    const char* argument;  // null for a flag
    const char* choices;   // comma-separated, checked before any control sees them; may be null
    const char* help;
    struct { const char* id; const char* value; } sets[2];
};

constexpr const char* kSetOption = "--set";
constexpr const char* kKeyOption = "--key";

constexpr FriendlyOption kFriendly[] = {
    {"--size", "SIZE", nullptr,
     "Blur size (BlurSizeX): percent of the frame width, or pixels with --unit absolute",
     {{"BlurSizeX", nullptr}, {}}},
    {"--size-y", "SIZE", nullptr,
     "Vertical blur size (BlurSizeY); releases the X/Y lock first (LockXY=0), which after a flow's lock "
     "copies the X size to Y before this size is set (on a new tool it copies nothing)",
     {{"LockXY", "0"}, {"BlurSizeY", nullptr}}},
    {"--unit", "UNIT", "relative,absolute", "Blur size unit (BlurSizeUnit): relative (percent of width) or absolute (pixels)",
     {{"BlurSizeUnit", nullptr}, {}}},
    {"--style", "STYLE", "disk,polygon,gaussian,airy,laplacian", "Kernel shape (BlurStyle)",
     {{"BlurStyle", nullptr}, {}}},
    {"--edges", "EDGES", "duplicate,wrap,black", "How borders are extended (Edges)", {{"Edges", nullptr}, {}}},
    {"--deconvolve", nullptr, nullptr, "Sharpen by Wiener deconvolution instead of blurring (Operation=Deconvolve)",
     {{"Operation", "Deconvolve"}, {}}},
    {"--wiener", "K", nullptr, "Wiener constant for --deconvolve (WienerParam)", {{"WienerParam", nullptr}, {}}},
    {"--bad-bokeh", "AMOUNT", nullptr, "Uneven bokeh, 0 to 1, for disk and polygon (BadBokeh)",
     {{"BadBokeh", nullptr}, {}}},
    {"--sides", "N", nullptr, "Polygon side count, 3 to 1000 (PolygonSideCount)", {{"PolygonSideCount", nullptr}, {}}},
    {"--angle", "DEGREES", nullptr, "Polygon rotation in degrees (KernelAngle)", {{"KernelAngle", nullptr}, {}}},
};

}  // namespace

void AddSettingOptions(CLI::App& command)
{
    const std::string group = "Controls (applied in the order given)";
    command
        .add_option(kSetOption, "Set a control by its ID, e.g. --set BlurSizeX=2.5 --set BlurStyle=Polygon "
                                "(`lumivane describe` lists the IDs and values)")
        ->type_name("ID=VALUE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->group(group);
    command
        .add_option(kKeyOption, "Key a control at a frame, e.g. --key BlurSizeX=1001:1 --key BlurSizeX=1010:5; "
                                "a static control becomes animated with its first key, a key at a frame that has one replaces "
                                "it, and a later --set replaces the animation with one value")
        ->type_name("ID=FRAME:VALUE")
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->group(group);
    for (const FriendlyOption& f : kFriendly) {
        if (!f.argument) {
            command.add_flag(f.name, f.help)
                ->disable_flag_override()
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                ->group(group);
            continue;
        }
        CLI::Option* opt = command.add_option(f.name, f.help)
                               ->type_name(f.argument)
                               ->allow_extra_args(false)
                               ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                               ->group(group);
        if (f.choices) {
            std::vector<std::string> choices;
            std::stringstream list(f.choices);
            for (std::string c; std::getline(list, c, ',');) choices.push_back(c);
            opt->check(CLI::IsMember(choices, CLI::ignore_case));
        }
    }
}

std::vector<Setting> SettingsInCommandLineOrder(const CLI::App& command)
{
    std::map<const CLI::Option*, std::size_t> used;
    std::vector<Setting> settings;
    for (const CLI::Option* opt : command.parse_order()) {
        const std::size_t k = used[opt]++;
        if (k >= opt->results().size()) continue;
        const std::string& value = opt->results()[k];
        const std::string name = "--" + opt->get_single_name();
        if (name == kSetOption || name == kKeyOption) {
            settings.push_back(name == kSetOption ? ParseSetArgument(value) : ParseKeyArgument(value));
            continue;
        }
        for (const FriendlyOption& f : kFriendly) {
            if (name != f.name) continue;
            const std::string origin = f.argument ? name + " " + value : name;
            for (const auto& set : f.sets)
                if (set.id) settings.push_back(Setting{set.id, set.value ? set.value : value, origin});
        }
    }
    return settings;
}
