/// The validation of a rate deck from its first line to its last. It knows neither job nor
/// database: the import worker and qvn_rate_check run it alike. Nothing is logged here.
#pragma once

#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "base/qvn_file.h"
#include "rate_upload/code_decks.h"
#include "rate_upload/deck_dates.h"
#include "rate_upload/seen_codes.h"

/// A line of the deck; its texts live until the next one is read.
struct rate_deck_line {
  int number;             ///< all lines count, empty ones and the pieces of long ones too; from 1
  std::string_view text;  ///< up to its first CR, LF or NUL
  std::string_view raw;   ///< as it stands in the deck, with its line end
  std::span<const std::string_view> cells;
};

/// Learns what becomes of each line after the header, before anything of it is written.
class rate_deck_listener {
 public:
  virtual ~rate_deck_listener() = default;

  /// The first line that is not empty, be it valid as a header or not.
  virtual void began(const rate_header& /*header*/, const rate_deck_line& /*line*/) {}

  /// The line is good. Its code lives as long as the set of seen codes, the other texts are the
  /// line's own. False when memory runs out: the reading ends.
  [[nodiscard]] virtual bool accepted(const import_values& values, const rate_deck_line& line) = 0;

  /// The line is refused with this message, or got a note and may still be accepted.
  virtual void refused(std::string_view message, const rate_deck_line& line) = 0;
  virtual void noted() {}
};

/// What a validation works with; all of it is the caller's.
struct rate_deck_request {
  std::FILE* deck;      ///< its descriptor is read, from where it stands: nothing must have been
                        ///< read from the stream
  std::FILE* log;       ///< gets a message per refused line, and the notes; null: unwanted
  std::FILE* reimport;  ///< gets the refused lines as they were read; null: unwanted
  rate_date_reader& dates;
  seen_codes& codes;
  const code_decks* names;   ///< code names and countries; null: they come from the deck
  std::string code_deck_id;  ///< empty: any of its decks
};

/// Why a deck cannot be used, as the portal and the caller of qvn_rate_check read it.
inline constexpr const char* kDeckNotOpened = "Open rate file failed";
inline constexpr const char* kDeckHeaderInvalid = "Import header invalid";
inline constexpr const char* kReimportNotCreated = "Create reimport rate file failed";
inline constexpr const char* kDateFormatUnsupported = "Unsupported rate date format";

enum class rate_deck_end { whole, no_header, unreadable, no_memory };

/// Opens a deck for reading. Anything but a file is refused where reading it could block or never
/// end: a pipe, a terminal, a device; and so is the daemon's own pid file. A directory opens and
/// then holds no line. Waits some seconds for a file that another process holds a lease on.
[[nodiscard]] qvn_file rate_deck_open(const char* path);

/// Reads the deck to its end, or to what keeps it from being read. Whether log and reimport file
/// take what is written shows when the caller closes them. Throws std::bad_alloc when memory runs
/// out.
[[nodiscard]] rate_deck_end rate_deck_validate(const rate_deck_request& request,
                                               rate_deck_listener& listener);
