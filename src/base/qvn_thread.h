/// Starting threads. Every thread inherits the signal mask of its creator, so the signals that the
/// main thread blocked before the first thread started are never handled anywhere else.
#pragma once

#include <cstddef>
#include <pthread.h>

/// The stack of worker and console threads, in bytes: jobs keep their bulk on the heap, and a
/// hundred workers must not cost a hundred times the system's default.
inline constexpr std::size_t kWorkerStackSize = std::size_t{512} * 1024;

using qvn_thread_routine = void* (*)(void* argument);

/// Starts a thread in the detached state with the worker stack. Returns 0, or the error number of
/// the step that failed, in which case `argument` stays with the caller.
[[nodiscard]] int create_detached_thread(qvn_thread_routine routine, void* argument);

/// Names the calling thread as an operator sees it in `top -H`; at most 15 characters are kept.
void qvn_thread_set_name(const char* name);
