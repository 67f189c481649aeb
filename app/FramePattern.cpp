#include "app/FramePattern.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr int kMaxPadding = 12;

[[noreturn]] void TwoFields(const std::string& text)
{
    throw std::invalid_argument("\"" + text + "\" has more than one frame field (#### or %04d); a name takes one");
}

// Parses a non-negative frame number that fills `s` completely.
bool ParseFrame(const std::string& s, int& out)
{
    if (s.empty() || s.size() > 9) return false;
    for (char c : s)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    out = std::stoi(s);
    return true;
}

// The same, with an optional leading '-'.
bool ParseSignedFrame(const std::string& s, int& out)
{
    if (s.empty() || s[0] != '-') return ParseFrame(s, out);
    if (!ParseFrame(s.substr(1), out)) return false;
    out = -out;
    return true;
}

}  // namespace

FramePattern::FramePattern(const std::string& text) : m_text(text)
{
    std::string* out = &m_prefix;
    for (std::size_t i = 0; i < text.size();) {
        const char c = text[i];
        if (c == '#') {
            if (m_hasField) TwoFields(text);
            std::size_t n = 0;
            while (i + n < text.size() && text[i + n] == '#') ++n;
            m_hasField = true;
            m_width = static_cast<int>(n);
            out = &m_suffix;
            i += n;
            continue;
        }
        if (c == '%' && i + 1 < text.size() && text[i + 1] == '%') {
            *out += '%';
            i += 2;
            continue;
        }
        if (c == '%') {
            // %d or %0Nd; anything else after '%' is not a frame field.
            std::size_t j = i + 1;
            while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j]))) ++j;
            if (j < text.size() && text[j] == 'd') {
                if (m_hasField) TwoFields(text);
                const std::string digits = text.substr(i + 1, j - i - 1);
                m_width = digits.empty() ? 0 : std::stoi(digits.substr(0, 3));
                if (m_width > kMaxPadding)
                    throw std::invalid_argument("\"" + text + "\": a frame field pads to at most " +
                                                std::to_string(kMaxPadding) + " digits");
                m_hasField = true;
                out = &m_suffix;
                i = j + 1;
                continue;
            }
        }
        *out += c;
        ++i;
    }
}

std::string FramePattern::At(int frame) const
{
    if (!m_hasField) return m_prefix;
    std::string number = std::to_string(frame);
    if (static_cast<int>(number.size()) < m_width) number.insert(frame < 0 ? 1 : 0, m_width - number.size(), '0');
    return m_prefix + number + m_suffix;
}

std::optional<int> FramePattern::FrameOf(const std::string& name) const
{
    if (!m_hasField || name.size() <= m_prefix.size() + m_suffix.size()) return std::nullopt;
    if (name.compare(0, m_prefix.size(), m_prefix) != 0 ||
        name.compare(name.size() - m_suffix.size(), m_suffix.size(), m_suffix) != 0)
        return std::nullopt;
    const std::string number = name.substr(m_prefix.size(), name.size() - m_prefix.size() - m_suffix.size());
    // Padding may make the number longer than any frame number is.
    const bool negative = !number.empty() && number[0] == '-';
    std::size_t digits = negative ? 1 : 0;
    while (digits + 1 < number.size() && number[digits] == '0') ++digits;
    int frame = 0;
    if (!ParseFrame(number.substr(digits), frame)) return std::nullopt;
    if (negative) frame = -frame;
    // "7" is not a name of "####", nor "0007" one of "%d".
    if (At(frame) != name) return std::nullopt;
    return frame;
}

FrameList FrameList::Parse(const std::string& text)
{
    const auto bad = [&](const std::string& why) {
        return std::invalid_argument("frame list \"" + text + "\": " + why +
                                     " (expected FIRST-LAST, FIRST-LASTxSTEP or FRAME, or several of them "
                                     "separated by commas, e.g. 1-24, 1-24x2, 1,3,7-9, -5--1)");
    };
    FrameList list;
    list.m_frames.clear();
    std::size_t begin = 0;
    do {
        std::size_t end = text.find(',', begin);
        if (end == std::string::npos) end = text.size();
        const std::string item = text.substr(begin, end - begin);
        begin = end + 1;

        std::string first = item, last, step;
        const std::size_t x = item.find('x');
        if (x != std::string::npos) {
            step = item.substr(x + 1);
            first = item.substr(0, x);
        }
        // The range's dash is the first one after the first character: a
        // leading dash is the first frame's sign.
        const std::size_t dash = first.find('-', 1);
        if (dash != std::string::npos) {
            last = first.substr(dash + 1);
            first = first.substr(0, dash);
        }
        int a = 0, b = 0, by = 1;
        if (!ParseSignedFrame(first, a)) throw bad("\"" + item + "\" is not a frame number or range");
        b = a;
        if (dash != std::string::npos && !ParseSignedFrame(last, b))
            throw bad("\"" + item + "\" is not two frame numbers");
        if (x != std::string::npos && (dash == std::string::npos || !ParseFrame(step, by) || by < 1))
            throw bad("\"" + item + "\": a step follows a range and is a whole number from 1");
        if (a > b) throw bad("in \"" + item + "\" the first frame is after the last");
        if ((static_cast<long long>(b) - a) / by + 1 + list.m_frames.size() > static_cast<std::size_t>(kMaxFrames))
            throw bad("more than " + std::to_string(kMaxFrames) + " frames");
        for (long long f = a; f <= b; f += by) list.m_frames.push_back(static_cast<int>(f));
    } while (begin <= text.size());
    return list;
}

FrameList FrameList::Of(std::vector<int> frames)
{
    FrameList list;
    if (!frames.empty()) list.m_frames = std::move(frames);
    return list;
}

std::vector<int> FramesOnDisk(const FramePattern& pattern)
{
    if (pattern.FieldInFolderName())
        throw std::invalid_argument("\"" + pattern.Text() +
                                    "\" has its frame field in a folder name, so its frames cannot be looked up");
    const fs::path folder = fs::path(pattern.At(0)).parent_path();
    // The folder as the pattern writes it, so a name read back is one At() makes.
    const std::string leading = pattern.At(0).substr(0, pattern.At(0).size() - fs::path(pattern.At(0)).filename().string().size());
    std::vector<int> frames;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder.empty() ? fs::path(".") : folder, ec)) {
        if (const auto frame = pattern.FrameOf(leading + entry.path().filename().string())) frames.push_back(*frame);
    }
    std::sort(frames.begin(), frames.end());
    return frames;
}
