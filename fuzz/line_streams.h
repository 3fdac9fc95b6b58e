/// Streams of lines for the console's three readers: how a stream is cut into reads is part of the
/// input, and must not change what comes out.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/qvn_line_buffer.h"
#include "support.h"

/// A line or, with false, what was handed over as invalid.
using line_event = std::pair<bool, std::string>;
using line_events = std::vector<line_event>;

/// What a stream becomes, read for read.
[[nodiscard]] line_events expected_events(const std::vector<std::string>& reads,
                                          const qvn_line_buffer::limits& allowed);

/// Cuts a stream into reads of at most `most` bytes; each byte of `sizes` stands for one of the
/// first, in turn.
[[nodiscard]] std::vector<std::string> cut_stream(std::string_view stream, std::string_view sizes,
                                                  std::size_t most);

/// The stream that an input stands for: after each "~" a byte says how many times eight letters
/// follow, so that lines at the limits take few bytes.
[[nodiscard]] std::string unpack_stream(std::string_view packed);

/// Whether a stream has a line so long that what becomes of it depends on when it comes.
[[nodiscard]] bool has_overlong_line(std::string_view stream,
                                     const qvn_line_buffer::limits& allowed);

/// The first word of a line and what follows its blank.
[[nodiscard]] std::pair<std::string, std::string> split_line(const std::string& line);

inline line_events buffer_events(const std::vector<std::string>& reads,
                                 const qvn_line_buffer::limits& allowed) {
  line_events events;
  const auto buffer = std::make_unique<qvn_line_buffer>();
  for (const std::string& read : reads) {
    const auto copy = fuzz_copy(read);
    buffer->feed(
        {copy.get(), read.size()}, allowed,
        [&](const char* text) { events.emplace_back(true, text); },
        [&](const char* text) { events.emplace_back(false, text); });
  }
  return events;
}

/// The reads of a stream, after the buffer has been compared with the model for them.
inline std::vector<std::string> checked_reads(fuzz_input& input,
                                              const qvn_line_buffer::limits& allowed,
                                              std::size_t read_size) {
  const std::string_view sizes = input.field('\n');
  const std::string stream = unpack_stream(input.rest());
  std::vector<std::string> reads = cut_stream(stream, sizes, read_size);
  const line_events events = buffer_events(reads, allowed);
  FUZZ_CHECK(events == expected_events(reads, allowed));
  if (!has_overlong_line(stream, allowed)) {
    FUZZ_CHECK(events == buffer_events(cut_stream(stream, "", read_size), allowed));
    FUZZ_CHECK(events == buffer_events(cut_stream(stream, "\1", read_size), allowed));
  }
  return reads;
}
