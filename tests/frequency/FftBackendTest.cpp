#include "frequency/FftBackend.h"
#include "frequency/FrequencyArray.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <utility>

namespace {

TEST(FftBackend, SecondArrayOfASizeMakesNoPlans)
{
    FrequencyArray first;
    first.Create(40, 12);
    const std::uint64_t plansAfterFirst = FftPlansCreated();
    FrequencyArray second;
    second.Create(40, 12);
    EXPECT_TRUE(second.Forward());
    EXPECT_TRUE(second.Backward());
    EXPECT_EQ(FftPlansCreated(), plansAfterFirst);
    EXPECT_EQ(first.descriptor, second.descriptor);
}

TEST(FftBackend, MisalignedBufferRunsOnUnalignedPlans)
{
    FrequencyArray aligned;
    aligned.Create(16, 6);
    std::mt19937 generator(7);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (std::int32_t i = 0; i < aligned.size; ++i) aligned.data[i] = value(generator);

    double* block = AllocateFftBuffer(aligned.size + 1);
    double* misaligned = block + 1;
    std::copy(aligned.data, aligned.data + aligned.size, misaligned);
    EXPECT_FALSE(FftPlansFit(*aligned.descriptor, misaligned));

    const FftPlanPair* plans = nullptr;
    ASSERT_EQ(AcquireFftPlans(16, 6, true, plans), FftStatus::NoError);
    ASSERT_TRUE(FftPlansFit(*plans, misaligned));
    ExecuteForwardFft(*plans, misaligned);
    ASSERT_TRUE(aligned.Forward());
    for (std::int32_t i = 0; i < aligned.size; ++i) EXPECT_NEAR(misaligned[i], aligned.data[i], 1e-12) << i;
    FreeFftBuffer(block);
}

TEST(FftBackend, RejectsSizesFftwCannotIndex)
{
    const FftPlanPair* plans = nullptr;
    for (const auto& [width, height] : {std::pair{0, 4}, std::pair{4, -1}, std::pair{65536, 65536}}) {
        EXPECT_EQ(AcquireFftPlans(width, height, false, plans), FftStatus::InvalidSize);
    }
    EXPECT_STREQ(FftStatusText(FftStatus::InvalidSize), "FFTW_INVALID_SIZE");
}

TEST(FftBackend, MeasuredPlanningWritesWisdomAndKeepsResults)
{
    const std::string wisdom = ::testing::TempDir() + "lumivane_fft_wisdom";
    std::remove(wisdom.c_str());
    SetFftPlanning(FftPlanning::Measure, wisdom);
    FrequencyArray measured;
    measured.Create(24, 18);  // a size no other test plans
    SetFftPlanning(FftPlanning::Estimate);

    EXPECT_TRUE(std::ifstream(wisdom).good());
    for (std::int32_t i = 0; i < measured.size; ++i) ASSERT_EQ(measured.data[i], 0.0) << i;
    measured.data[3] = 1.0;
    ASSERT_TRUE(measured.Forward());
    // A single sample at (3, 0) gives bin 1 of row 0 the phase -2 pi 3 / 24.
    EXPECT_NEAR(measured.data[2], std::cos(-2 * 3.14159265358979323846 * 3 / 24), 1e-12);
    EXPECT_NEAR(measured.data[3], std::sin(-2 * 3.14159265358979323846 * 3 / 24), 1e-12);
    std::remove(wisdom.c_str());
}

}  // namespace
