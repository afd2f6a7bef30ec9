// Maps shared pages that survive the truncation of their file.
#pragma once

#include <cstddef>

namespace layer {

constexpr std::size_t PageBytes = 4096;

/// Maps the first PageBytes of a file, shared. If another process truncates the file, an access to the page fills the
/// file up with zeros again instead of ending the process.
/// @param file  has to stay open until the page is unmapped
/// @return the page, or null with `errno` set
void* MapGuardedPage(int file);

/// Maps the page again through another descriptor of its file. Until then the mapping keeps the old open file
/// description, and so its byte locks, alive even if its descriptor is closed.
/// @return false with `errno` set
bool RemapGuardedPage(void* page, int file);

/// Unmaps a page. Its address may be used by the next page.
void UnmapGuardedPage(void* page);

}  // namespace layer
