// Sizes and near misses as messages show them.
#include "util/Text.h"

#include <gtest/gtest.h>

namespace {

// A limit of a few bytes or KiB reads as what it is, never as a MiB.
TEST(FormatMemorySize, ShowsTheUnitThatHoldsTheSize)
{
    const struct { std::uint64_t bytes; const char* text; } cases[] = {
        {1, "1 byte"},           {1000, "1000 bytes"},         {20 << 10, "20 KiB"},      {(20 << 10) + 1, "21 KiB"},
        {1 << 20, "1 MiB"},      {(64 << 20) + 1, "65 MiB"},   {3ull << 29, "1.5 GiB"}};
    for (const auto& c : cases) EXPECT_EQ(FormatMemorySize(c.bytes), c.text) << c.bytes;
}

TEST(NearestName, SuggestsOnlyCloseNames)
{
    const std::vector<std::string> commands = {"render", "kernel", "flow", "view", "submit", "describe"};
    const std::vector<std::string> options = {"size", "size-y", "style", "sides", "frames", "flow"};
    const struct { const char* typed; const std::vector<std::string>& names; const char* near; } cases[] = {
        {"rendr", commands, "render"},  {"RENDER", commands, "render"}, {"vew", commands, "view"},
        {"describ", commands, "describe"}, {"szie", options, "size"},  {"frmaes", options, "frames"},
        {"sise-y", options, "size-y"},  {"draw", commands, ""},          {"x", options, ""},
        {"blurry", options, ""}};
    for (const auto& c : cases) EXPECT_EQ(NearestName(c.typed, c.names), c.near) << c.typed;
}

}  // namespace
