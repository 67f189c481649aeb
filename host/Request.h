#pragma once
// One render request: the time being rendered. Values handed out by
// Input::GetValue for the request stay alive as long as the request.
#include "host/Object.h"
#include "host/Parameter.h"

#include <vector>

using TimeStamp = double;

class Request {
public:
    explicit Request(TimeStamp time) : Time(time) {}
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    const TimeStamp Time;

    // Holds a reference to `p` until the request ends, and returns it.
    Parameter* Keep(Parameter* adopted)
    {
        m_kept.emplace_back(adopted);
        return adopted;
    }

private:
    std::vector<Ref<Parameter>> m_kept;
};
