#pragma once

#include <cstddef>

namespace quorin::storage {

// Copies `count` bytes out of a file mapping into `dest`, surviving a file
// that another process truncated behind our back.
//
// Touching a mapped page past the new end of such a file raises SIGBUS, which
// would kill the editor. The copy runs page by page under a thread-local
// recovery point; a process-wide SIGBUS handler jumps back to it when the
// faulting thread armed one, and otherwise hands the signal to whatever
// handler was there before (or the default action, which ends the process as
// usual). Returns the number of bytes copied: `count`, or fewer when a page
// faulted (every byte before that page has been copied).
//
// Thread-safe; reentrant per thread. `dest` must not be mapped memory.
size_t guardedCopy(void* dest, const void* src, size_t count);

// Installs the SIGBUS handler once per process. guardedCopy calls it; the
// mapping code calls it early so the handler is in place before the first
// mapping exists.
void installSigbusHandler();

}  // namespace quorin::storage
