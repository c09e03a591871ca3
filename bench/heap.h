#pragma once

namespace vexmor::Bench
{

/// Counts what the plugin takes from the heap, for a frame and for an open interface, and prints tables. The gateways
/// run on the given processor.
void measureHeap(int processor);

} // namespace vexmor::Bench
