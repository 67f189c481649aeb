#pragma once
// The engine's settings, read and checked in this one place: the host's worker
// threads, the FFT planning effort and wisdom file, the transform sizes and the
// memory one frame may use.
//
// Each is the value a program set (the Set functions, from its own options), else
// its environment variable, else the default:
//   LUMIVANE_THREADS          1 to 256                       one per core
//   LUMIVANE_FFT_PLANNING     estimate | measure             estimate
//   LUMIVANE_FFT_WISDOM       a file, read and updated       none
//   LUMIVANE_TRANSFORM_SIZES  power-of-two | smooth          power-of-two
//   LUMIVANE_MAX_MEMORY       512M, 8G, 1.5G, bytes          the memory available, at
//                                                            most 75% of the machine's
// A malformed value is never ignored: the Parse functions, and the readers for a
// malformed variable, throw std::invalid_argument naming the value and what is
// accepted (the readers also name the variable).
#include <cstdint>
#include <string>

enum class FftEffort { Estimate, Measure };
enum class TransformSizes { PowersOfTwo, Smooth };

unsigned EngineThreads();
FftEffort EngineFftPlanning();
std::string EngineFftWisdom();
TransformSizes EngineTransformSizes();
// The limit in bytes, and where it came from, for messages.
std::uint64_t MemoryLimit();
std::string MemoryLimitSource();

// Threads 0, an empty wisdom file and a memory limit of 0 go back to the environment.
void SetEngineThreads(unsigned threads);
void SetEngineFftPlanning(FftEffort effort);
void SetEngineFftWisdom(const std::string& file);
void SetEngineTransformSizes(TransformSizes sizes);
void SetMemoryLimit(std::uint64_t bytes);
// What the program hosting the tool holds for a frame beside the images it
// hands the tool (its other layers' images and results, the buffers of writing
// the output file), in bytes: the tool counts it with its own estimate. 0 until
// a program sets it.
std::uint64_t HostFrameMemory();
void SetHostFrameMemory(std::uint64_t bytes);
// Whether a render keeps its transform buffers for the next one. A program that
// renders frames of one size again and again at once (the live page) keeps them;
// by default a render lets go of them before making its output image, which
// lowers the frame's peak memory. Off until a program sets it.
bool HostKeepsTransformBuffers();
void SetHostKeepsTransformBuffers(bool keep);
// Forgets every value a program set.
void ResetEngineSettings();

unsigned ParseThreads(const std::string& text);
FftEffort ParseFftPlanning(const std::string& text);
TransformSizes ParseTransformSizes(const std::string& text);
// "512M", "8G", "1.5G" or a plain number of bytes.
std::uint64_t ParseMemorySize(const std::string& text);

// Reads every variable, so that a program refuses a malformed one before it starts.
void CheckEngineEnvironment();
