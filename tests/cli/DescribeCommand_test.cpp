// `lumivane describe`: the tool as the host holds it.
#include "support/ProgramRunner.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

TEST(DescribeCommand, ListsTheToolAsTheHostHoldsIt)
{
    ScratchFolder dir;
    const RunResult text = RunLumivane(dir, {"describe"});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* part : {"Lumivane 2 (tevrinworks.Lumivane2)", "category:    Nimbrel", "Page \"Info\"",
                             "PolygonSideCount", "m_outImageput"})
        EXPECT_NE(text.out.find(part), std::string::npos) << part;

    const RunResult js = RunLumivane(dir, {"describe", "--json"});
    ASSERT_EQ(js.status, 0) << js.err;
    const auto doc = nlohmann::json::parse(js.out);
    ASSERT_EQ(doc["tools"].size(), 1u);
    const auto& controls = doc["tools"][0]["pages"][0]["controls"];
    ASSERT_EQ(controls.size(), 17u);
    EXPECT_EQ(controls[13]["entries"][3], "Airy Disk");  // BlurStyle
    EXPECT_EQ(controls[15]["min"], 3.0);                 // PolygonSideCount
    EXPECT_EQ(controls[8]["visible"], false);  // GreenBlurSizeY while the R/G/B lock is on
}

}  // namespace
