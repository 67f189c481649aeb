#pragma once
// One render request: the time being rendered. Values handed out by
// Input::GetValue for the request stay alive as long as the request.
#include "host/Object.h"
#include "host/Parameter.h"

#include <atomic>
#include <vector>

using TimeStamp = double;

class Request {
public:
    // `cancel`, when given, may be raised from any thread while the request
    // renders (host/RenderCancel.h): the tool then stops as soon as it can.
    explicit Request(TimeStamp time, const std::atomic<bool>* cancel = nullptr) : Time(time), m_cancel(cancel) {}
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    const TimeStamp Time;

    bool IsCancelled() const { return m_cancel && m_cancel->load(std::memory_order_relaxed); }
    // For work the tool hands to layers that know nothing of the host.
    const std::atomic<bool>* CancelFlag() const { return m_cancel; }

    // Holds a reference to `p` until the request ends, and returns it.
    Parameter* Keep(Parameter* adopted)
    {
        m_kept.emplace_back(adopted);
        return adopted;
    }

private:
    const std::atomic<bool>* m_cancel;
    std::vector<Ref<Parameter>> m_kept;
};
