// Work on many things at once, on all cores.
#pragma once

#include <cstddef>
#include <functional>

namespace kvx::publish {

// Makes what one thread works with: called for each index that falls to the thread, in ascending order over all
// threads. False ends the work of all threads after what they are at.
using IndexWork = std::function<bool(size_t index)>;

// Runs the work for every index below `count`. `make_work` is called once on each thread. Returns when all threads have
// ended; false when any call returned false.
[[nodiscard]] bool for_each_index(size_t count, const std::function<IndexWork()>& make_work);

}  // namespace kvx::publish
