#pragma once
// Rendered frames kept for playing a sequence again without rendering. Each is
// kept under its frame, the factor it was shrunk by and the tool's state (its
// flow, as text), so any change of a control, a key or the animation misses,
// and undoing back to a look finds its frames again. Once the pixels held pass
// the budget, the frames used longest ago go first. Only whole, successful
// renders are kept: the caller never hands over a render that failed or was
// abandoned.
#include "app/session/RenderPlate.h"

#include <cstddef>
#include <list>
#include <string>
#include <vector>

struct CachedFrame {
    PlateResults plate;  // the frame, then each layer (a proxy: the frame alone)
    std::vector<std::string> console;  // the render's console lines
    double renderMs = 0.0;
};

class ViewFrameCache {
public:
    explicit ViewFrameCache(std::size_t budgetBytes) : m_budget(budgetBytes) {}

    // The frame rendered for this key, now the last to go; null when none.
    const CachedFrame* Find(int frame, int factor, const std::string& state);
    // Keeps `rendered` (replacing what the key held) and lets the oldest go
    // until the budget holds; a frame larger than the whole budget is not kept.
    void Keep(int frame, int factor, const std::string& state, CachedFrame rendered);

    std::size_t Budget() const { return m_budget; }
    std::size_t Bytes() const { return m_bytes; }
    std::size_t Frames() const { return m_entries.size(); }

private:
    struct Entry {
        int frame;
        int factor;
        std::string state;
        CachedFrame rendered;
        std::size_t bytes;
    };
    std::list<Entry>::iterator Locate(int frame, int factor, const std::string& state);

    std::size_t m_budget;
    std::size_t m_bytes = 0;
    std::list<Entry> m_entries;  // the most recently used first
};
