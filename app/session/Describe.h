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

// One tool as `describe --json` lists it: its identity, its pages with their
// controls (ID, label, kind, range, default, live visibility), its image inputs
// and its outputs.
nlohmann::ordered_json DescribeTool(const Registry& reg, const Operator& tool, const std::string& module);
