// The signals of the processor's faults, for all families of the layer that answer some of them.
#pragma once

namespace layer {

/// Sets the layer's handler for this signal, once. It asks each family in turn whether the fault is its own, and hands
/// the rest to the handler that stood there before.
void WatchFaultSignal(int signal);

}  // namespace layer
