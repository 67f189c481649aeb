#pragma once
// `lumivane describe`: the tools the loaded plug-ins provide, with their pages,
// controls and connections as the host holds them on a new instance.
#include <string>

struct DescribeOptions {
    std::string plugins;
    bool json = false;
};

int RunDescribe(const DescribeOptions& options);
