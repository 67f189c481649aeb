#pragma once
// `lumivane describe`: the tools the loaded plug-ins provide, with their pages,
// controls and connections as the host holds them on a new instance.
#include "host/Operator.h"
#include "host/Registry.h"

#include <nlohmann/json.hpp>

#include <string>

struct DescribeOptions {
    std::string plugins;
    bool json = false;
};

int RunDescribe(const DescribeOptions& options);

// One tool as `describe --json` lists it: its pages with every control (label,
// kind, range, entries, visibility as the instance holds them now), its image
// inputs and its outputs. The live page reads the same table.
nlohmann::ordered_json DescribeToolJson(const Registry& reg, const Operator& tool, const std::string& module);
