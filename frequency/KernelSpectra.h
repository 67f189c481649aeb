#pragma once
// Work that the chunks of one render would otherwise repeat. Chunks c and c + 3
// filter with the same kernel, and with the channels locked all three colours
// do, so each distinct kernel spectrum is made once, by the first chunk that
// needs it, and read by the others. When the three alpha planes meet the same
// kernel their results are identical, so only the first is filtered and the
// others are neither filled nor read (AlphaShared).
#include "fft/FrequencyArray.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>

class KernelSpectra {
public:
    // Starts a render. owner[c] is the colour whose kernel colour c uses (c
    // itself, or a lower colour with an identical kernel).
    void Reset(const int owner[3]);
    // Drops the spectra once the render is done.
    void Release();

    int Owner(int colour) const { return m_owner[colour]; }
    // How many colours filter with the kernel that colour's owner makes.
    int Sharers(int colour) const
    {
        const int o = m_owner[colour];
        return (m_owner[0] == o) + (m_owner[1] == o) + (m_owner[2] == o);
    }
    bool AlphaShared() const { return m_owner[1] == 0 && m_owner[2] == 0; }

    // The spectrum of colour's kernel, made by `make` on the first call for its
    // owner; later calls wait for it and get the same array, or the same error.
    const FrequencyArray& Get(int colour, const std::function<void(FrequencyArray&)>& make);

private:
    struct Slot {
        std::mutex mutex;
        bool made = false;
        std::string error;
        FrequencyArray spectrum;
    };
    int m_owner[3] = {0, 1, 2};
    std::unique_ptr<Slot> m_slots[3];
};
