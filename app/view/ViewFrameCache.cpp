#include "app/view/ViewFrameCache.h"

#include "host/Image.h"

namespace {

// What an entry holds: its pixels, and the state text it is found by.
std::size_t BytesOf(const CachedFrame& frame, const std::string& state)
{
    std::size_t bytes = state.size();
    for (const Image* image : frame.plate.images)
        if (image && image->HasPixels())
            bytes += static_cast<std::size_t>(image->Width) * image->Height * image->PixelStride() * sizeof(float);
    return bytes;
}

}  // namespace

std::list<ViewFrameCache::Entry>::iterator ViewFrameCache::Locate(int frame, int factor, const std::string& state)
{
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it)
        if (it->frame == frame && it->factor == factor && it->state == state) return it;
    return m_entries.end();
}

const CachedFrame* ViewFrameCache::Find(int frame, int factor, const std::string& state)
{
    const auto it = Locate(frame, factor, state);
    if (it == m_entries.end()) return nullptr;
    m_entries.splice(m_entries.begin(), m_entries, it);
    return &m_entries.front().rendered;
}

void ViewFrameCache::Keep(int frame, int factor, const std::string& state, CachedFrame rendered)
{
    if (const auto it = Locate(frame, factor, state); it != m_entries.end()) {
        m_bytes -= it->bytes;
        m_entries.erase(it);
    }
    const std::size_t bytes = BytesOf(rendered, state);
    if (bytes > m_budget) return;
    while (m_bytes + bytes > m_budget) {
        m_bytes -= m_entries.back().bytes;
        m_entries.pop_back();
    }
    m_entries.push_front(Entry{frame, factor, state, std::move(rendered), bytes});
    m_bytes += bytes;
}
