#pragma once
// The engine's colour is the geometry library's CColour: four floats, red,
// green, blue, alpha, with toD3DColor packing alpha, red, green, blue.
#include "geometry/Colour.h"
