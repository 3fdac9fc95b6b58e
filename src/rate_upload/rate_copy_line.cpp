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

void append_terms(std::string& buffer, const import_terms& terms) {
  append_money(buffer, std::max(terms.setup_fee, 0.0F));  // never NULL, unlike a rate
  buffer += ',';
  append_text(buffer, terms.effective.text);
  append_text(buffer, terms.end.text);
  append_number(buffer, terms.grace_time, ',');
  append_number(buffer, terms.min_time, ',');
  append_number(buffer, terms.rate_type, ',');
  append_number(buffer, terms.seconds, ',');
  append_number(buffer, terms.interval, ',');
  append_number(buffer, terms.zone, '\n');
}

}  // namespace

void append_money(std::string& buffer, float amount) {
  char digits[kMoneyTextSize];
  buffer += qvn_money_text(digits, amount);
}

void rate_copy_lines::append(std::string& buffer, const import_record& record) {
  // Most lines share their terms with the one before: half of the text is formed once.
  if (record.terms != terms_) {
    end_.clear();
    append_terms(end_, *record.terms);
    terms_ = record.terms;
  }
  buffer += begin_;
  append_text(buffer, record.code);
  append_text(buffer, record.code_name);
  append_text(buffer, record.country);
  append_rate(buffer, record.rate);
  append_rate(buffer, record.intra_rate);
  append_rate(buffer, record.inter_rate);
  append_rate(buffer, record.local_rate);
  buffer += end_;
}
