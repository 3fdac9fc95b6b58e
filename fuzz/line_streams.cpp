#include "line_streams.h"

#include <algorithm>

line_events expected_events(const std::vector<std::string>& reads,
                            const qvn_line_buffer::limits& allowed) {
  line_events events;
  std::string kept;
  for (const std::string& read : reads) {
    kept += read;
    const std::size_t looked_at = kept.size() - read.size();  // but for half of a line end
    std::size_t end = kept.find("\r\n", looked_at > 0 ? looked_at - 1 : 0);
    for (; end != std::string::npos; end = kept.find("\r\n")) {
      events.emplace_back(end < allowed.line, fuzz_before_nul(kept.substr(0, end)));
      kept.erase(0, end + 2);
    }
    const std::size_t text = kept.size() - (kept.ends_with('\r') ? 1 : 0);
    if (text >= allowed.rest) {
      events.emplace_back(false, fuzz_before_nul(kept.substr(0, text)));
      kept.erase(0, text);
    }
  }
  return events;
}

std::vector<std::string> cut_stream(std::string_view stream, std::string_view sizes,
                                    std::size_t most) {
  constexpr std::size_t kSmallReads = 40;
  constexpr std::size_t kSmall = 127;  // bytes that stand for themselves
  std::vector<std::string> reads;
  for (std::size_t i = 0; !stream.empty(); ++i) {
    const bool whole = sizes.empty() || i >= kSmallReads;
    const std::size_t byte = whole ? 255 : static_cast<uint8_t>(sizes[i % sizes.size()]);
    const std::size_t wanted = byte <= kSmall ? byte : (byte - kSmall) * most / (255 - kSmall);
    const std::size_t size = std::min(std::max<std::size_t>(wanted, 1), most);
    reads.emplace_back(stream.substr(0, size));
    stream.remove_prefix(reads.back().size());
  }
  return reads;
}

std::string unpack_stream(std::string_view packed) {
  constexpr char kManyLetters = '~';
  constexpr std::size_t kMostBytes = 6144;
  std::string stream;
  for (std::size_t i = 0; i < packed.size() && stream.size() < kMostBytes; ++i) {
    if (packed[i] == kManyLetters && i + 1 < packed.size()) {
      stream.append(std::size_t{8} * static_cast<uint8_t>(packed[++i]), 'a');
    } else {
      stream += packed[i];
    }
  }
  return stream;
}

bool has_overlong_line(std::string_view stream, const qvn_line_buffer::limits& allowed) {
  for (std::size_t end = stream.find("\r\n"); end != std::string_view::npos;
       end = stream.find("\r\n")) {
    if (end >= allowed.rest) {
      return true;
    }
    stream.remove_prefix(end + 2);
  }
  return stream.size() >= allowed.rest;
}

std::pair<std::string, std::string> split_line(const std::string& line) {
  const std::size_t blank = line.find(' ');
  if (blank == std::string::npos) {
    return {line, ""};
  }
  return {line.substr(0, blank), line.substr(blank + 1)};
}
