#pragma once

namespace fs {

/// Lets loads begin; the first one starts the workers.
void start_loads();
/// Ends every load, callbacks included, and the workers, before the sources go.
void stop_loads();

}  // namespace fs
