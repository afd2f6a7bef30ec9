// The signal of the process's file size limit.
#pragma once

namespace layer {

/// Makes a write beyond the process's file size limit fail with EFBIG, which becomes ERROR_DISK_FULL. Without it the
/// write raises SIGXFSZ, which ends the process by default. Call it before each kind of write; only the first call does
/// something. A program that has set its own action for the signal keeps it.
void HandleFileSizeSignal();

}  // namespace layer
