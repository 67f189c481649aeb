#pragma once
// A viewable picture of the synthesised kernels.
class Image;
class filter_interface;

// The kernels the filtering pipeline would synthesise for red, green and blue at
// blur sizes sizeX[c] by sizeY[c] (pixels), side by side in the colour channels
// of one image as wide and as tall as the largest of them, each centred. Each
// channel is divided by its kernel's largest magnitude so its peak is 1 (a
// Laplacian's negative ring stays negative); alpha is 1 everywhere. The image
// has no extra channels. Throws what MakeChannelKernel throws.
Image* MakeKernelPreview(const filter_interface& params, const double sizeX[3], const double sizeY[3]);
