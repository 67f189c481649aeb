#pragma once
// `lumivane submit --wait`: waiting for a job array and saying which frames
// it wrote. A frame counts as written when its output file exists (frames are
// renamed into place whole); for the others, the last lines of the log of the
// task that had them say why.
#include "app/files/FramePattern.h"

#include <string>
#include <vector>

class Scheduler;

// Waits until the scheduler no longer lists `jobId`, then reports. Returns the
// exit status: 0 when every frame of `tasks` (task 1 first) is written, 4 when
// some are not, 130 when interrupted while waiting.
int WaitForJob(const Scheduler& scheduler, const std::string& jobId, const std::string& folder,
               const FramePattern& output, const std::vector<std::vector<int>>& tasks);

// The last `count` lines of the file `path` ("" when it cannot be read).
std::vector<std::string> LastLines(const std::string& path, std::size_t count);
