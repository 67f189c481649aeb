#pragma once
// A header can claim any size: a few hundred bytes of TIFF may describe a
// 60000 x 60000 frame. What reading a file holds at once is checked against
// the memory limit from the header alone, before anything is allocated.
#include <string>

// Throws a render ProgramError naming `path` when `floatsPerPixel` floats for
// each of the file's `width` x `height` pixels (`channels` of them in the
// file) would pass the memory limit.
void CheckReadMemory(const std::string& path, int width, int height, int channels, double floatsPerPixel);
