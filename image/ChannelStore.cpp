#include "image/ChannelStore.h"

#include "util/AlignedMemory.h"

#include <stdexcept>

namespace {

constexpr std::size_t kAlignment = 16;

// Null when the memory cannot be had: the store reports that itself. An empty
// plane still gets a buffer, so a zero-size store reads and writes nothing rather
// than reporting a failed allocation.
void* AlignedAlloc(std::size_t bytes) { return AllocateAligned(bytes, kAlignment); }

template <class T>
void Reallocate(std::map<std::string, T*>& table, std::size_t bytes)
{
    for (auto& entry : table) {
        FreeAligned(entry.second);
        entry.second = static_cast<T*>(AlignedAlloc(bytes));
    }
}

template <class T>
bool AllAllocated(const std::map<std::string, T*>& table)
{
    for (const auto& entry : table)
        if (!entry.second) return false;
    return true;
}

template <class T>
void FreeAll(std::map<std::string, T*>& table)
{
    for (auto& entry : table) FreeAligned(entry.second);
    table.clear();
}

}  // namespace

ChannelStore::~ChannelStore()
{
    FreeAll(planes);
}

std::size_t ChannelStore::PlaneBytes() const
{
    return static_cast<std::size_t>(pitch) * static_cast<std::size_t>(height < 0 ? 0 : height) * sizeof(float);
}

void ChannelStore::Allocate(std::int32_t newWidth, std::int32_t newHeight)
{
    // A sequence renders frame after frame at one size: the buffers it has are the
    // new ones (their contents are undefined after Allocate either way), without
    // handing the memory back and faulting it in again.
    if (newWidth == width && newHeight == height && newWidth > 0 && newHeight > 0 && AllAllocated(planes)) return;
    height = newHeight;
    width = newWidth;
    pitch = 4 * ((newWidth + 3) / 4);
    Reallocate(planes, PlaneBytes());
}

float* ChannelStore::GetChannel(const std::string& name)
{
    auto it = planes.find(name);
    if (it == planes.end()) it = planes.emplace(name, static_cast<float*>(AlignedAlloc(PlaneBytes()))).first;
    if (it->second) return it->second;
    throw std::runtime_error("Image: Failed to allocate memory for channel " + name + "\n");
}
