#pragma once
// What an image file says besides its pixels: its windows, the kind of data it
// holds, its colour, and everything else its header holds, which only the
// reader that made it understands and which an output written "like" the file
// carries over.
#include <memory>
#include <string>
#include <utility>
#include <vector>

// A reader's own record of a file's header. Each reader (ExrFiles.h, the
// OpenImageIO module) derives its own; the writers look for theirs.
class FileMetadata {
public:
    virtual ~FileMetadata() = default;
    // The header's attributes as (name, value as text), in the reader's order,
    // for a host to show; the windows and channels are the layout's.
    virtual std::vector<std::pair<std::string, std::string>> Attributes() const = 0;
};

struct FileLayout {
    int x = 0, y = 0, width = 0, height = 0;                  // the data window
    int fullX = 0, fullY = 0, fullWidth = 0, fullHeight = 0;  // the display window; 0 wide: the data window
    bool floating = true;     // floating-point data (else integer)
    std::string colourSpace;  // what the file says its colour is; empty: it says nothing
    std::string path;         // the file it was read from; empty for a layout made up here
    std::shared_ptr<const FileMetadata> metadata;  // null for a layout made up here
};

// What a file's header says of the host image reading it would make, before
// any pixel is read: enough for a host to plan the frame.
struct FileHeader {
    FileLayout layout;
    int channels = 0;                 // in the file
    std::vector<std::string> extras;  // the host image's extra channels, in order
    int depth = 0;                    // the host image's ImageDepth
    double pixelAspect = 1.0;         // the host image's XScale (its YScale is 1)
};
