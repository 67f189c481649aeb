#pragma once
// File names of image sequences. A name holds at most one frame field:
//   a run of N '#'   the frame number padded with zeros to N digits ("plate.####.exr")
//   %d, %0Nd         printf style, unpadded or padded to N digits ("plate.%04d.exr")
// "%%" stands for a literal '%'; any other '%' is taken literally. A name without
// a frame field names the same file at every frame.
#include <optional>
#include <string>
#include <vector>

class FramePattern {
public:
    // Throws std::invalid_argument naming the pattern when it holds two frame fields.
    explicit FramePattern(const std::string& text);

    const std::string& Text() const { return m_text; }
    bool HasFrameField() const { return m_hasField; }
    // Whether the frame field is in a folder name ("shot.####/plate.exr"): each
    // frame's file is then in a folder of its own.
    bool FieldInFolderName() const { return m_hasField && m_suffix.find('/') != std::string::npos; }
    // The file name of `frame` (the text itself, "%%" undone, without a field).
    // Negative frames keep their sign before the padding ("-005" for -5 in
    // "####"), as printf pads them.
    std::string At(int frame) const;
    // The frame whose name is `name`, if any: At(frame) == name.
    std::optional<int> FrameOf(const std::string& name) const;

private:
    std::string m_text;
    std::string m_prefix;
    std::string m_suffix;
    int m_width = 0;
    bool m_hasField = false;
};

// The frames to render, in the order given, written as oiiotool writes them:
//   "7"           one frame
//   "1-10"        first to last, both included (first <= last)
//   "1-10x2"      every second frame from the first: 1, 3, 5, 7, 9
//   "1,3,7-9"     any of the above, separated by commas
// Frames may be negative ("-5--1", "-3-2"); the dash after a number is the
// range's, so "-3-2" runs from -3 to 2.
// The most frames a list holds: far more than any shot; it keeps a mistyped
// list from filling the memory.
constexpr int kMaxFrames = 1000000;

class FrameList {
public:
    FrameList() = default;
    // Throws std::invalid_argument naming the text and saying what was expected.
    static FrameList Parse(const std::string& text);
    // Frames found some other way (on disk, say), in the order given; at least one.
    static FrameList Of(std::vector<int> frames);

    const std::vector<int>& Frames() const { return m_frames; }
    int First() const { return m_frames.empty() ? 0 : m_frames.front(); }
    int Count() const { return static_cast<int>(m_frames.size()); }

private:
    std::vector<int> m_frames{0};  // a still: one render, at time 0
};

// The frames of the files that `pattern` names in its folder, sorted: the
// files whose name is the pattern's name of some frame. Throws
// std::invalid_argument when the frame field is in a folder name, which
// would need every folder searched.
std::vector<int> FramesOnDisk(const FramePattern& pattern);
