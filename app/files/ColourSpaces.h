#pragma once
// Colour spaces of image files, through OpenImageIO's colour configuration:
// OpenColorIO's configuration named by $OCIO when there is one, else
// OpenImageIO's built-in spaces (linear, sRGB, Rec709, GammaN). Without $OCIO
// the configuration is opened only when a conversion needs it, so frames
// already in linear light never load OpenImageIO (ImageCodec.h).
//
// The tool filters light, so images are rendered in a linear working space:
// the configuration's scene_linear role, else "linear". A file's colour is
// brought into it on reading and taken back to the output's space on writing.
// Only red, green and blue change; premultiplied colour is divided by alpha
// around the conversion, since an encoding applies to the colour itself.
#include "app/files/ExitCodes.h"
#include "app/files/FileLayout.h"
#include "app/files/ImageCodec.h"
#include "host/Image.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class ColourSpaces {
public:
    // Throws a file ProgramError when $OCIO names a configuration that cannot be read.
    ColourSpaces();

    const std::string& Working() const { return m_working; }
    // What integer data holds unless its file says otherwise.
    static constexpr const char* kIntegerDefault = "sRGB";
    // What a file says its colour is ("oiio:ColorSpace"); failing that, sRGB
    // for integer data and the working space for float data.
    std::string OfFile(const FileLayout& layout) const;
    // Throws a usage ProgramError naming `what` (an option, a file) when the
    // configuration cannot convert between `name` and the working space.
    void Check(const std::string& name, const std::string& what) const;

    // `file` names the image in errors: a space the file names itself that
    // the configuration does not know is a file error.
    void ToWorking(Image& image, const std::string& from, const std::string& file) const;
    void FromWorking(Image& image, const std::string& to) const;
    // Whether `name` is the working space under another of its names, so
    // converting to or from it changes nothing.
    bool IsWorking(const std::string& name) const;

    // The displays and views of $OCIO's configuration; none without it.
    ColourConfig::Displays Displays() const;
    // From the working space to `display` as `view` shows it; a usage
    // ProgramError naming both, and the pairs there are, when the
    // configuration lacks them.
    std::unique_ptr<ColourProcessor> ToDisplay(const std::string& display, const std::string& view) const;

private:
    // One space's way to and from the working space. The transfer is also kept
    // sampled at every 16-bit code, per channel: looking it up and inverting
    // the samples exactly makes the way back undo the way in, so an 8- or
    // 16-bit file copied through the working space comes back code for code
    // (OpenImageIO's own transfer functions are fast approximations whose
    // round trip moves about one 16-bit code in sixteen).
    struct Transfer {
        std::unique_ptr<ColourProcessor> in, out;
        std::vector<float> samples[3];  // empty when the transfer mixes channels or is not increasing
    };
    // Null for the working space itself; throws a ProgramError of `kind`
    // naming `what` when the configuration has no way between the two.
    const Transfer* Find(const std::string& name, const std::string& what, Exit kind) const;

    const ColourConfig& Config() const;

    // A plate may be read on one thread while another is written.
    mutable std::recursive_mutex m_mutex;
    mutable std::unique_ptr<ColourConfig> m_config;
    std::string m_working;
    mutable std::map<std::string, Transfer> m_transfers;
};
