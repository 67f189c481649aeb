#pragma once
#include <functional>
#include <stdexcept>
#include <string>

// The message `fn` throws as an E, or "accepted".
template <class E = std::invalid_argument>
std::string Refusal(const std::function<void()>& fn)
{
    try {
        fn();
    } catch (const E& e) {
        return e.what();
    }
    return "accepted";
}
