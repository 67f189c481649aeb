#pragma once
// How `lumivane submit` shares a sequence out among a scheduler's tasks: which
// frames each task renders, how many frames a task gets, the memory it asks
// for, and the shell text every task runs. No scheduler is named here.
#include <cstdint>
#include <string>
#include <vector>

constexpr int kMaxTasks = 1000;

// `frames` in the frame-list syntax (FramePattern.h), as short as runs with a
// common step allow: {1, 2, 3, 5, 7, 9, 20} is "1-3,5-9x2,20".
std::string FrameListText(const std::vector<int>& frames);

// The frames in order, `perTask` to a task (the last may have fewer).
std::vector<std::vector<int>> SplitFrames(const std::vector<int>& frames, int perTask);

// Frames per task so that a task takes about a minute at `secondsPerFrame`,
// and no more than kMaxTasks tasks cover `frames` frames.
int DefaultFramesPerTask(int frames, double secondsPerFrame);

// The frame memory the tool reported ("... memory about 37 MiB", "2.5 GiB", "600 KiB")
// in `renderOutput`, in bytes; 0 when it reported none (a copy).
std::uint64_t ReportedFrameMemory(const std::string& renderOutput);

// What a task asks for, in MiB: the tool's estimate for the frame plus the
// program's own needs, which grow with the input frame (`inputBytes`: its
// pixels as floats).
std::uint64_t TaskMemoryMiB(std::uint64_t frameEstimate, std::uint64_t inputBytes);

// The shell text of a task: the frames of task $task (1 for the first of
// `tasks`), then `render` running in their place.
std::string TaskBody(const std::vector<std::vector<int>>& tasks, const std::vector<std::string>& render);
