#pragma once
// Who the tool is, as the host and the user see it.
namespace lumivane {

constexpr const char* kClassId = "tevrinworks.Lumivane2";
constexpr const char* kDisplayName = "Lumivane 2";
constexpr const char* kCategory = "Nimbrel";
constexpr const char* kShortName = "Lmv2";
constexpr const char* kDescription = "Blur using the frequency domain with an arbitrary colour convolution kernel";
constexpr const char* kAbout = "Tevrin Software Plugin. Please visit our website for more quality plugins.";
constexpr const char* kCompany = "Tevrin Software";
constexpr const char* kBuildStamp = "Built: Dec 15 2008";
constexpr const char* kDocUrl = "https://lumivane.example.org/docs/lumivane2";
constexpr int kRegistryVersion = 101;

}  // namespace lumivane
