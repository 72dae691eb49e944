#pragma once

namespace fs {

/// Destroys the server archive, if there is one. Its source must be out of the registry by then, as it is when
/// fs::shutdown has destroyed the sources.
void destroy_server_archive();

}  // namespace fs
