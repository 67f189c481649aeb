#pragma once
// lumivane.Plate, lumivane.read and lumivane.write: the program's image files
// as Python sees them (PlateFiles.h).
#include "python/PlateFiles.h"

#include <pybind11/pybind11.h>

void BindPlates(pybind11::module_& m);

// A ValueError for an array that is not an image, or a plate's first image: the
// kernel image a render is given (None: none).
Ref<Image> KernelImageOf(const pybind11::object& kernel);

// The arguments of read and write as the program's options.
PlateOptions PlateOptionsOf(const pybind11::object& layers, const pybind11::object& colorspace, bool raw);
WriteChoices WriteChoicesOf(const pybind11::object& compression, const pybind11::object& colorspace,
                            const pybind11::object& depth);
// A str argument (or an int, as text); empty for None; a TypeError naming `what` otherwise.
std::string TextArgument(const pybind11::object& value, const char* what);

// The warnings of a write, as Python UserWarnings.
void WarnAll(const std::vector<std::string>& warnings);
