/// The console after the login: a line whose bytes are the sizes of the reads, then the stream.
///
/// What a connection makes of received bytes is a function of its source file alone, so that
/// is included.

#include <strings.h>

#include "cli/cli_session.cpp"  // NOLINT(bugprone-suspicious-include)
#include "db/qvn_db_conf.h"
#include "line_streams.h"
#include "support.h"

namespace {

/// The list that a reload finds: two databases, one too wide for its row.
constexpr std::string_view kDatabases =
    "[one]\ndb_host=127.0.0.1\ndb_listen_port=5432\ndb_name=portal\ndb_user=p\n"
    "db_user_password=s\n"
    "[two]\ndb_host=127.0.0.1\ndb_listen_port=65535\ndb_name=a_name_wider_than_its_column_is\n"
    "db_user=a_user_wider_than_the_column_is\ndb_user_password=a_password_wider_than_its_column\n";

}  // namespace

void fuzz_prepare() {
  fuzz_set_content(kDatabases);
  FUZZ_CHECK(load_db_info() == 0);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz_input input(data, size);
  const std::vector<std::string> reads = checked_reads(input, kSessionLimits, kSessionReadSize);

  const auto connection = std::make_unique<cli_connection>();
  for (const std::string& read : reads) {
    request_bytes(*connection, read);
  }
  const auto is_logout = [](const line_event& event) {
    return event.first && strcasecmp(split_line(event.second).first.c_str(), "logout") == 0;
  };
  FUZZ_CHECK(connection->logout ==
             std::ranges::any_of(expected_events(reads, kSessionLimits), is_logout));
  return 0;
}
