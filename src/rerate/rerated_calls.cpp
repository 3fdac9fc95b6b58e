#include "rerate/rerated_calls.h"

#include <cstring>
#include <string_view>

namespace {

/// Lines gathered before they are written: few large writes.
constexpr std::size_t kWriteSize = std::size_t{256} << 10;

}  // namespace

void rerated_calls::add(char* line) {
  pricer_.add(line, out_);
  ++count_;
  if (out_.lines.size() >= kWriteSize) {
    lines_.take(out_.lines);
  }
  if (out_.unmatched.size() >= kWriteSize) {
    unmatched_.take(out_.unmatched);
  }
}

void rerated_calls::finish() {
  pricer_.finish(out_);
  lines_.take(out_.lines);
}

void rerated_calls::each_unmatched(
    qvn_function_ref<void(const char*, const char*, const char*)> take) const {
  constexpr int kTexts = 3;
  std::string texts;
  int count = 0;
  const auto read = [&](std::string_view piece) {
    for (const char c : piece) {
      texts += c;
      if (c == '\0' && ++count == kTexts) {
        const char* const session_id = texts.c_str();
        const char* const ani = session_id + std::strlen(session_id) + 1;
        take(session_id, ani, ani + std::strlen(ani) + 1);
        texts.clear();
        count = 0;
      }
    }
  };
  unmatched_.replay(read);
  // On a full disk the spool may end in the middle of a call.
  texts.clear();
  count = 0;
  read(out_.unmatched);
}
