#pragma once
#include <functional>
#include <stdexcept>
#include <string>

// The message `fn` throws as std::invalid_argument, or "accepted".
inline std::string Refusal(const std::function<void()>& fn)
{
    try {
        fn();
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
    return "accepted";
}
