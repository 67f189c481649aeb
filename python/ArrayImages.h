#pragma once
// numpy arrays to host images and back, laid out as the program lays out image
// files (Module.cpp's header lists the shapes). Both run in bands of rows on the
// host's worker pool, straight between the array and the image's pixel records,
// with the GIL released while the samples move.
#include "host/Image.h"

#include <pybind11/numpy.h>

// Channels of an H x W (x C) array; a ValueError naming the shape, `what` and
// what is accepted otherwise.
int ChannelsOf(const pybind11::array& a, const char* what);
// A new image of the array's size, channels, data depth and aspect, with or
// without pixels (all 0); the errors of ImageFromArray.
Ref<Image> ShapeOfArray(const pybind11::array& a, const char* what, double xScale, double yScale, ImagePixels pixels);
// A new image of the array's values: integer data scaled to 0..1 as OpenImageIO
// converts it (multiplied by the float 1/255 or 1/65535), half and double rounded
// to float; any strides. TypeError for any other data type.
Ref<Image> ImageFromArray(const pybind11::array& a, const char* what, double xScale, double yScale);
// A new float32 array of the image in the layout of an array of `channels`
// (H x W when `flat`).
pybind11::array_t<float> ArrayFromImage(const Image& image, int channels, bool flat);
