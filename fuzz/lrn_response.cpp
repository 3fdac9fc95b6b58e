/// Responses to a number lookup: a line with the call id, then the datagram.

#include "lrn/lrn_message.h"
#include "support.h"

namespace {

constexpr std::size_t kMostBytes = 1023;  // of a response that a lookup looks at

lrn_verdict read_copy(std::string_view datagram, const std::string& call_id) {
  const auto bytes = fuzz_copy(datagram);
  const std::string_view copy(bytes.get(), datagram.size());
  const auto lies_within = [&](std::string_view text) {
    return text.data() >= copy.data() && text.data() + text.size() <= copy.data() + copy.size();
  };
  lrn_answer answer;
  const lrn_verdict verdict = lrn_response_read(copy, call_id, answer);
  if (verdict == lrn_verdict::accepted) {
    FUZZ_CHECK(datagram.find("INVITE") != std::string_view::npos);
    FUZZ_CHECK(datagram.find(call_id) != std::string_view::npos);
    FUZZ_CHECK(answer.result == kLrnRedirected || answer.result == kLrnServiceUnavailable ||
               answer.result == kLrnOther503 || answer.result == kLrnOther);
    FUZZ_CHECK(!answer.lrn || (lies_within(*answer.lrn) &&
                               answer.lrn->find_first_of(";\r\n") == std::string_view::npos));
  }
  return verdict;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const std::string call_id = input.line();
  const std::string_view datagram = input.rest().substr(0, kMostBytes);
  const lrn_verdict verdict = read_copy(datagram, call_id);
  FUZZ_CHECK(read_copy(fuzz_before_nul(datagram), call_id) == verdict);
  return 0;
}
