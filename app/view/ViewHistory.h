#pragma once
// The page's undo and redo: the tool's states (its flow, as text) before each
// change of a control, its keys or its animation, and those undone since.
// A change that left the tool as it was is no step; a new change after an
// undo drops the steps that were undone, as in any editor.
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

class ViewHistory {
public:
    // A change took the tool from `before` to `after`.
    void Changed(std::string before, const std::string& after);
    // The state to go back (forward) to, with `now` kept to return to; none
    // when there is no step that way.
    std::optional<std::string> Undo(std::string now);
    std::optional<std::string> Redo(std::string now);
    std::size_t UndoSteps() const { return m_back.size(); }
    std::size_t RedoSteps() const { return m_forward.size(); }

private:
    std::vector<std::string> m_back, m_forward;
};
