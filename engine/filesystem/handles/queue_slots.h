#pragma once

#include <memory>

class IOQueue;

namespace fs {

/// Starts the process's read queue, unless it runs already. When that fails it is tried again at the next asynchronous
/// open.
void start_queues();
/// Stops it; open asynchronous handles answer with failures from then on.
void stop_queues();
/// The queue that an asynchronous handle takes at opening; null before start_queues and after stop_queues. Throws
/// StoredFailure when it cannot be started.
std::shared_ptr<IOQueue> take_queue();

}  // namespace fs
