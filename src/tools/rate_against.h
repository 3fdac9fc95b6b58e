/// What a deck would change in its rate table: the daemon's own loader and reconciliation over the
/// stored rates, and a comparison of prices. Nothing is written to the database. Main thread.
#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "rate_upload/rate_upload_task.h"

class rate_against {
 public:
  /// The job that would import the deck: its row names the rate table. Its data get the stored
  /// rates, and the code decks if the row asks for them. The section is one of the database list.
  rate_against(rate_upload_task& job, std::string section)
      : job_(job), section_(std::move(section)) {}

  /// Loads what is stored, in one read-only transaction. False, with a line on standard error, when
  /// it cannot be had whole. Needs a tool_core. Throws std::bad_alloc when memory runs out, as the
  /// next.
  [[nodiscard]] bool load();

  /// Once the job has its accepted lines: prints what becomes of the stored rates, and the largest
  /// changes. `changes`, if there is one, gets a CSV line for each code whose prices change.
  void report(std::FILE* changes);

 private:
  /// In the order in which they are compared: kPrices in the source. Below 0: none.
  using prices = std::array<double, 5>;

  struct stored_price {
    std::string code;
    prices values;
  };

  enum class kind : uint8_t { fresh, dearer, cheaper, same, unpriced };

  /// What a line of the deck does to the prices of its code.
  struct price_change {
    const import_record* line;
    kind what;
    std::size_t column;  ///< of the first price that differs
    double before;
    double after;

    [[nodiscard]] double percent() const;
  };

  [[nodiscard]] bool refuse(const std::string& why) const;
  [[nodiscard]] bool takes_end_date() const;
  [[nodiscard]] bool load_prices(int64_t time);
  static prices stored_prices(std::span<char* const> fields);
  static prices deck_prices(const import_record& line);
  [[nodiscard]] price_change judge(const import_record& line);
  void reconcile();
  [[nodiscard]] std::size_t missing_codes();
  void print_counts();
  static void print_largest(std::vector<price_change> changes);
  static void write(std::FILE* file, const price_change& change);

  rate_upload_task& job_;
  std::string section_;
  std::unordered_map<std::string, stored_price> stored_;  ///< by rate id
  std::array<uint32_t, 5> counts_{};                      ///< of lines, by kind
  uint32_t doubled_ = 0;  ///< stored rates that stay beside a new one of their date
};
