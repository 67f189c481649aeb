#include "frequency/KernelSpectra.h"

#include <stdexcept>

void KernelSpectra::Reset(const int owner[3])
{
    for (int c = 0; c < 3; ++c) {
        m_owner[c] = owner[c];
        m_slots[c] = owner[c] == c ? std::make_unique<Slot>() : nullptr;
    }
    std::lock_guard<std::mutex> lock(m_alphaMutex);
    m_alphaFinished = false;
    m_alphaFiltered = false;
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

void KernelSpectra::AlphaFinished(bool filtered)
{
    {
        std::lock_guard<std::mutex> lock(m_alphaMutex);
        m_alphaFinished = true;
        m_alphaFiltered = filtered;
    }
    m_alphaDone.notify_all();
}

bool KernelSpectra::WaitForAlpha()
{
    std::unique_lock<std::mutex> lock(m_alphaMutex);
    m_alphaDone.wait(lock, [&] { return m_alphaFinished; });
    return m_alphaFiltered;
}
