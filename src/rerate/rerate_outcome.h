/// How a rerating, one of its steps or one of its days ended. Made where something fails and handed
/// up: the job's own is what its row shows; a day's is logged and then forgotten. Any thread.
#pragma once

#include <cstdint>

/// Values of the row's column `err_code`.
enum class rerate_error : int32_t {
  none = 0,
  invalid_job = 1,
  cdr_load = 2,
  reference_data = 3,
  system = 4,
  connection = 5,
  rating = 6,
};

/// Holds its text itself: memory may be what has failed.
struct rerate_outcome {
  [[nodiscard]] bool failed() const { return error != rerate_error::none; }

  rerate_error error = rerate_error::none;
  char text[200] = {};  ///< what the portal shows; empty for a success
};

/// A failure with the text that the portal will show; 199 bytes of it are kept.
[[nodiscard, gnu::format(printf, 2, 3)]] rerate_outcome rerate_fail(rerate_error error,
                                                                    const char* format, ...);

/// The failure of a job that found no memory, which is logged as the caller's line.
[[nodiscard]] rerate_outcome rerate_fail_without_memory(uint32_t id, int line = __builtin_LINE());
