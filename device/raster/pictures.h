// Pictures: spans whose pixels are texels of one row, moved in the ways of rows.h.
//
// A textured rectangle along the axes, without a depth test and of a colour that changes nothing, is what a driver
// shows windows, sprites and frames with. Each thread keeps where the pixels of a picture lie in its texture, for all
// rows and both triangles, and the rows filtered last.
//
// What is kept belongs to one thread, needs no lock and lives as long as the thread; it holds addresses of textures
// only from the draw that found them to the next one that may move rows (forget_pictures()).
#pragma once

#include "device/raster/span.h"

namespace kalix::device::raster {

// Draws a span of a plain draw, with one texture that is filtered or not; false, and nothing drawn, when its triangle
// is none of a picture, or there is no memory for what is kept of it: for all of its spans, then.
bool draw_picture_row(const draw_setup& setup, const interpolator& at, const span& what, bool filters, bool blends);

// Makes what the calling thread keeps; each thread that draws calls this first, since later there may be no memory.
void prepare_pictures();

// Makes all threads forget what they keep of textures' contents: called before a draw, which may find others.
void forget_pictures();

} // namespace kalix::device::raster
