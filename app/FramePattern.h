#pragma once
// File names of image sequences. A name holds at most one frame field:
//   a run of N '#'   the frame number padded with zeros to N digits ("plate.####.exr")
//   %d, %0Nd         printf style, unpadded or padded to N digits ("plate.%04d.exr")
// "%%" stands for a literal '%'; any other '%' is taken literally. A name without
// a frame field names the same file at every frame.
#include <string>

class FramePattern {
public:
    // Throws std::invalid_argument naming the pattern when it holds two frame fields.
    explicit FramePattern(const std::string& text);

    const std::string& Text() const { return m_text; }
    bool HasFrameField() const { return m_hasField; }
    // The file name of `frame` (the text itself, "%%" undone, without a field).
    std::string At(int frame) const;

private:
    std::string m_text;
    std::string m_prefix;
    std::string m_suffix;
    int m_width = 0;
    bool m_hasField = false;
};

// An inclusive range of frame numbers, written "A-B" or "A" (0 <= A <= B).
struct FrameRange {
    int first = 0;
    int last = 0;

    // Throws std::invalid_argument saying what was expected.
    static FrameRange Parse(const std::string& text);
    int Count() const { return last - first + 1; }
    std::string ToString() const;
};
