#pragma once
// The engine hands objects around with the base library's counted pointer.
#include "base/Referenced.h"
