#pragma once
// What the tool asks of its host beyond the SDK's classes: the host's worker pool,
// to move images in bands while the render thread would otherwise work alone, and
// the engine settings (memory limit, transform sizes, FFT planning) the host was
// started with. Everything the tool needs from the host that is not an SDK call
// goes through here.
#include "host/EngineSettings.h"
#include "image/ImageTransfer.h"

#include <cstdint>
#include <string>

// Bands of rows run on the host's workers.
RowBands HostRowBands();
unsigned HostThreadCount();
std::uint64_t HostMemoryLimit();
std::string HostMemoryLimitSource();
// What the host holds for the frame beside the images it gives the tool.
std::uint64_t HostHeldMemory();
TransformSizes HostTransformSizes();
// Whether the host re-renders at once and wants the transform buffers kept.
bool HostKeepsBuffers();
// Passes the host's FFT planning effort and wisdom file on to the FFT layer.
void ApplyHostFftSettings();
