#pragma once

#include <memory>

class IOQueue;

namespace fs {

/// Starts the process's read queue, unless it runs already. Without memory for it there is none.
void start_queues();
/// Stops every queue; open asynchronous handles answer with failures from then on.
void stop_queues();
/// The first queue, which asynchronous handles take at opening; null when none runs.
std::shared_ptr<IOQueue> first_queue();

}  // namespace fs
