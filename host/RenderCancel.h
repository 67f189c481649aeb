#pragma once
// Abandoning a render that became obsolete, for a front end that takes changes
// while it renders (the live page). A render is handed the flag (FusionDoc::Render);
// the worker pool starts no chunk once it is raised, and the transforms stop
// between blocks, so the render ends early and hands over nothing.
//
// A change announces itself (Change, from its own thread) before it waits for
// the render in flight to end: that raises the flag. A render starts only when
// no change is waiting (Begin, which lowers the flag), so a change that arrives
// between two renders still cancels the second.
#include <atomic>
#include <mutex>

class RenderCancel {
public:
    // Held by a change from before it waits for the render until it is made.
    class Change {
    public:
        explicit Change(RenderCancel& cancel);
        ~Change();
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;

    private:
        RenderCancel& m_cancel;
    };

    // Before a render: false when a change is waiting (the render would be
    // obsolete before it began); else the flag is lowered for it.
    bool Begin();
    // Whether the render since Begin has been cancelled.
    bool Raised() const { return m_flag.load(std::memory_order_relaxed); }
    const std::atomic<bool>* Flag() const { return &m_flag; }

private:
    std::mutex m_mutex;
    int m_waiting = 0;
    std::atomic<bool> m_flag{false};
};
