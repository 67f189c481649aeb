#include "frequency/KernelSpectra.h"

#include <stdexcept>

void KernelSpectra::Reset(const int owner[3])
{
    for (int c = 0; c < 3; ++c) {
        m_owner[c] = owner[c];
        m_slots[c] = owner[c] == c ? std::make_unique<Slot>() : nullptr;
    }
}

void KernelSpectra::Release()
{
    for (auto& slot : m_slots) slot.reset();
}

const FrequencyArray& KernelSpectra::Get(int colour, const std::function<void(FrequencyArray&)>& make)
{
    Slot& slot = *m_slots[m_owner[colour]];
    std::lock_guard<std::mutex> lock(slot.mutex);
    if (!slot.made) {
        slot.made = true;
        try {
            make(slot.spectrum);
        } catch (const std::exception& e) {
            slot.error = e.what();
            slot.spectrum.Release();
        }
    }
    if (!slot.error.empty()) throw std::runtime_error(slot.error);
    return slot.spectrum;
}
