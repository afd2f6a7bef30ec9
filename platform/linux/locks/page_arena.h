// Where shared pages are mapped, and what happens when the file behind one is cut off.
#pragma once

#include <cstddef>

namespace layer {

constexpr std::size_t PageBytes = 4096;

/// Maps the first PageBytes of `file`, shared, or gives null with `errno`. Until it is unmapped, an access
/// beyond an end of the file that somebody moved makes the file whole again, with zeros, instead of ending
/// the process; `file` has to stay open.
void* MapGuarded(int file);

/// Maps the page anew through another descriptor of its file. Until then the page keeps the descriptor's open
/// file description alive, also where that is closed. False with `errno`.
bool RemapGuarded(void* page, int file);

void UnmapGuarded(void* page);

}  // namespace layer
