#include "rerate/rerated_calls.h"

#include <cstring>
#include <string_view>

namespace {

/// Lines gathered before they are written: few large writes.
constexpr std::size_t kWriteSize = std::size_t{256} << 10;

/// Collects three texts, then hands them over.
class unmatched_reader {
 public:
  void read(std::string_view piece, const auto& tell) {
    for (const char c : piece) {
      texts_ += c;
      if (c == '\0' && ++count_ == kTexts) {
        hand_over(tell);
      }
    }
  }

 private:
  static constexpr int kTexts = 3;

  void hand_over(const auto& tell) {
    const char* const session_id = texts_.c_str();
    const char* const ani = session_id + std::strlen(session_id) + 1;
    tell(session_id, ani, ani + std::strlen(ani) + 1);
    texts_.clear();
    count_ = 0;
  }

  std::string texts_;
  int count_ = 0;
};

}  // namespace

void rerated_calls::add(char* line) {
  pricer_.add(line, out_);
  ++count_;
  if (out_.lines.size() >= kWriteSize) {
    (void)lines_.take(out_.lines);
  }
  if (out_.unmatched.size() >= kWriteSize) {
    (void)unmatched_.take(out_.unmatched);
  }
}

void rerated_calls::finish() {
  pricer_.finish(out_);
  (void)lines_.take(out_.lines);
}

void rerated_calls::each_unmatched(
    const std::function<void(const char*, const char*, const char*)>& tell) const {
  unmatched_reader spooled;
  unmatched_.replay([&](std::string_view piece) { spooled.read(piece, tell); });
  unmatched_reader kept;  // on a full disk the spool may end in the middle of a call
  kept.read(out_.unmatched, tell);
}
