#include "app/FramePattern.h"

#include <cctype>
#include <stdexcept>

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
    if (static_cast<int>(number.size()) < m_width) number.insert(0, m_width - number.size(), '0');
    return m_prefix + number + m_suffix;
}

FrameRange FrameRange::Parse(const std::string& text)
{
    const auto bad = [&](const std::string& why) {
        return std::invalid_argument("frame range \"" + text + "\": " + why +
                                     " (expected FIRST-LAST or FRAME, whole numbers from 0, e.g. 1-24)");
    };
    FrameRange r;
    const std::size_t dash = text.find('-');
    if (dash == std::string::npos) {
        if (!ParseFrame(text, r.first)) throw bad("not a frame number");
        r.last = r.first;
        return r;
    }
    if (!ParseFrame(text.substr(0, dash), r.first) || !ParseFrame(text.substr(dash + 1), r.last))
        throw bad("not two frame numbers");
    if (r.first > r.last) throw bad("the first frame is after the last");
    return r;
}

std::string FrameRange::ToString() const
{
    return first == last ? std::to_string(first) : std::to_string(first) + "-" + std::to_string(last);
}
