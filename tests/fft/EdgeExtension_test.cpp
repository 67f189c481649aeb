#include "fft/EdgeExtension.h"
#include "fft/FrequencyArray.h"

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::int32_t kDuplicate = 0;
constexpr std::int32_t kWrap = 1;
constexpr std::int32_t kBlack = 2;

struct EdgeCase {
    const char* name;
    std::int32_t C, R, W, H, kw, kh, type;
    double margin;                              // what the margins hold before
    std::vector<std::vector<double>> expected;  // the whole array, row by row, worked by hand
};

std::ostream& operator<<(std::ostream& out, const EdgeCase& c) { return out << c.name; }

double& At(FrequencyArray& a, std::int32_t x, std::int32_t y) { return a.data[y * (a.width + 2) + x]; }

// The image is numbered 1, 2, ... row by row.
void MakeImage(FrequencyArray& a, std::int32_t C, std::int32_t R, std::int32_t W, std::int32_t H, double margin)
{
    a.Create(C, R);
    for (std::int32_t y = 0; y < R; ++y)
        for (std::int32_t x = 0; x < C; ++x) At(a, x, y) = x < W && y < H ? 1 + x + W * y : margin;
}

class ExtendEdgesCase : public ::testing::TestWithParam<EdgeCase> {};

TEST_P(ExtendEdgesCase, FillsTheMargins)
{
    const EdgeCase& c = GetParam();
    FrequencyArray a;
    MakeImage(a, c.C, c.R, c.W, c.H, c.margin);
    ExtendEdges(a, c.W, c.H, c.kw, c.kh, c.type);
    for (std::int32_t y = 0; y < c.R; ++y)
        for (std::int32_t x = 0; x < c.C; ++x) EXPECT_EQ(At(a, x, y), c.expected[y][x]) << "at " << x << ", " << y;
}

// Image 1 2 3 / 4 5 6 unless it is 2 wide. The tight cases are exactly one sample
// wider or taller than image plus kernel: there the far corner's extra column or
// row lands on the last near one and the later write stands.
INSTANTIATE_TEST_SUITE_P(
    Margins, ExtendEdgesCase,
    ::testing::Values(
        EdgeCase{"WrapTwoColumnsOneRow", 8, 5, 3, 2, 3, 1, kWrap, 0,
                 {{1, 2, 3, 1, 2, 0, 2, 3}, {4, 5, 6, 4, 5, 0, 5, 6}, {1, 2, 3, 1, 2, 0, 2, 3}, {0, 0, 0, 0, 0, 0, 0, 0},
                  {4, 5, 6, 4, 5, 0, 5, 6}}},
        EdgeCase{"DuplicateRoomy", 9, 7, 3, 2, 3, 1, kDuplicate, 0,
                 {{1, 2, 3, 3, 3, 0, 0, 1, 1}, {4, 5, 6, 6, 6, 0, 0, 4, 4}, {4, 5, 6, 6, 6, 0, 4, 4, 4},
                  {4, 5, 6, 0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0, 0, 0, 0}, {1, 2, 3, 3, 3, 0, 1, 1, 1},
                  {1, 2, 3, 3, 3, 0, 1, 1, 1}}},
        EdgeCase{"DuplicateTightBothWays", 4, 4, 2, 2, 1, 1, kDuplicate, 0,
                 {{1, 2, 2, 1}, {3, 4, 4, 3}, {1, 2, 4, 3}, {1, 2, 2, 1}}},
        EdgeCase{"DuplicateTightColumns", 7, 6, 3, 2, 3, 1, kDuplicate, 0,
                 {{1, 2, 3, 3, 3, 1, 1}, {4, 5, 6, 6, 6, 4, 4}, {4, 5, 6, 6, 6, 4, 4}, {4, 5, 6, 0, 0, 0, 0},
                  {1, 2, 3, 3, 3, 1, 1}, {1, 2, 3, 3, 3, 1, 1}}},
        EdgeCase{"DuplicateTightRows", 5, 7, 2, 3, 1, 3, kDuplicate, 0,
                 {{1, 2, 2, 0, 1}, {3, 4, 4, 0, 3}, {5, 6, 6, 0, 5}, {5, 6, 6, 5, 5}, {1, 2, 6, 5, 5}, {1, 2, 2, 1, 1},
                  {1, 2, 2, 1, 1}}},
        EdgeCase{"BlackClearsOldMargins", 5, 4, 3, 2, 3, 1, kBlack, 7,
                 {{1, 2, 3, 0, 0}, {4, 5, 6, 0, 0}, {0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}}}),
    [](const auto& info) { return info.param.name; });

TEST(ExtendEdges, UnknownTypeFailsAndLeavesTheArray)
{
    for (const std::int32_t type : {3, -1}) {
        FrequencyArray a;
        MakeImage(a, 8, 6, 3, 2, 0);
        EXPECT_THROW(ExtendEdges(a, 3, 2, 3, 1, type), std::runtime_error) << type;  // message: test_tool
        EXPECT_EQ(At(a, 3, 0), 0.0);
    }
}

}  // namespace
