#include "rate_upload/rate_copy_line.h"

#include <algorithm>
#include <charconv>

#include "base/qvn_text.h"

namespace {

constexpr const char* kNull = "NULL";

void append_text(std::string& buffer, const char* text) {
  buffer += text ? text : kNull;
  buffer += ',';
}

/// A rate below 0 was not given.
void append_rate(std::string& buffer, float rate) {
  if (rate < 0.0F) {
    buffer += kNull;
  } else {
    append_money(buffer, rate);
  }
  buffer += ',';
}

void append_number(std::string& buffer, uint16_t number, char end) {
  char digits[8];
  const auto result = std::to_chars(std::begin(digits), std::end(digits), number);
  buffer.append(digits, result.ptr);
  buffer += end;
}

}  // namespace

void append_money(std::string& buffer, float amount) {
  char digits[kMoneyTextSize];
  buffer += qvn_money_text(digits, amount);
}

void rate_copy_line_append(std::string& buffer, const std::string& rate_table_id,
                           const import_record& record) {
  buffer += rate_table_id;
  buffer += ',';
  buffer += qvn_or_empty(record.code);
  buffer += ',';
  append_text(buffer, record.code_name);
  append_text(buffer, record.country);
  append_rate(buffer, record.rate);
  append_rate(buffer, record.intra_rate);
  append_rate(buffer, record.inter_rate);
  append_rate(buffer, record.local_rate);
  append_money(buffer, std::max(record.setup_fee, 0.0F));
  buffer += ',';
  append_text(buffer, record.effective_text);
  append_text(buffer, record.end_text);
  append_number(buffer, record.grace_time, ',');
  append_number(buffer, record.min_time, ',');
  append_number(buffer, record.rate_type, ',');
  append_number(buffer, record.seconds, ',');
  append_number(buffer, record.interval, ',');
  append_number(buffer, record.zone, '\n');
}
