#pragma once

/// Installs a handler of faults as a host may have one: it says "the host's handler" and ends the process with status 7,
/// or, when it chains, calls what was there before it. A chain without an end is cut with status 99.
void install_host_handler(bool chains);
