#include "app/view/ViewHistory.h"

#include <utility>

namespace {

// A state is a few kilobytes; a session of a thousand changes keeps a few
// megabytes, and the oldest steps go first.
constexpr std::size_t kMaxSteps = 1000;

std::optional<std::string> Step(std::vector<std::string>& from, std::vector<std::string>& to, std::string now)
{
    if (from.empty()) return std::nullopt;
    std::string state = std::move(from.back());
    from.pop_back();
    to.push_back(std::move(now));
    return state;
}

}  // namespace

void ViewHistory::Changed(std::string before, const std::string& after)
{
    if (before == after) return;
    if (m_back.size() == kMaxSteps) m_back.erase(m_back.begin());
    m_back.push_back(std::move(before));
    m_forward.clear();
}

std::optional<std::string> ViewHistory::Undo(std::string now) { return Step(m_back, m_forward, std::move(now)); }

std::optional<std::string> ViewHistory::Redo(std::string now) { return Step(m_forward, m_back, std::move(now)); }
