#pragma once
// Named single-precision planes that hold the image between the host's image
// and the frequency engine. Every plane has the store's size, a row stride
// (`pitch`) of the width rounded up to a multiple of 4 floats, and 16-byte
// aligned rows: pixel (x, y) is element y * pitch + x. Spare elements at the
// end of a row are never read or written.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

class ChannelStore {
public:
    ChannelStore() = default;
    ~ChannelStore();
    ChannelStore(const ChannelStore&) = delete;
    ChannelStore& operator=(const ChannelStore&) = delete;

    // Sets the size and gives every plane a buffer of that size; names are kept,
    // contents are not. At the size it already has, the store keeps its buffers.
    void Allocate(std::int32_t width, std::int32_t height);
    // The named plane, made on first use. Throws std::runtime_error when its
    // buffer could not be allocated.
    float* GetChannel(const std::string& name);

    std::int32_t pitch = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;

    std::map<std::string, float*> planes;

private:
    std::size_t PlaneBytes() const;
};
