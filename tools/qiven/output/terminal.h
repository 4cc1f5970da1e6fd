// The abilities of the terminal: width and colour.
#pragma once

#include <cstddef>

namespace qiven::terminal {

enum class Colour { kAuto, kAlways, kNever };

// Whether this descriptor is a terminal that obeys control sequences.
bool IsCapable(int fd);

// Columns of the terminal on this descriptor, or the value of COLUMNS; 0 if there is neither.
size_t Width(int fd);

// Whether to colour output to this descriptor: NO_COLOR and TERM=dumb are honoured.
bool UseColour(Colour colour, int fd);

}  // namespace qiven::terminal
