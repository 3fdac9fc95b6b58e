#include "rate_upload/import_record.h"

#include <functional>

static_assert(sizeof(import_record) == 48, "the header states the size of a record");

namespace {

/// Lines differ in their dates, if in anything.
std::size_t hash_of(const import_terms& terms) {
  constexpr int64_t kSecondsPerHour = 3600;
  return static_cast<std::size_t>(terms.effective.epoch / kSecondsPerHour / 24 +
                                  terms.end.epoch / kSecondsPerHour);
}

}  // namespace

bool import_list::keep_name(std::string_view name, const char*& kept) {
  if (name.empty()) {
    kept = nullptr;
    return true;
  }
  std::string_view& recent =
      recent_names_[std::hash<std::string_view>{}(name) % recent_names_.size()];
  if (recent != name) {
    text_pool::place where{};
    if (!names_.add(name, where)) {
      return false;
    }
    recent = {names_.at(where), name.size()};
  }
  kept = recent.data();
  return true;
}

const import_terms* import_list::keep_terms(const import_terms& given) {
  import_terms terms = given;
  terms.interval = given.interval == 0 ? kDefaultInterval : given.interval;
  terms.seconds = given.seconds == 0 ? kDefaultSeconds : given.seconds;
  const import_terms*& recent = recent_terms_[hash_of(terms) % recent_terms_.size()];
  if (!recent || *recent != terms) {
    if (!terms_.push(terms)) {
      return nullptr;
    }
    recent = &terms_.top();
  }
  return recent;
}

bool import_list::push(const import_values& values) {
  import_record record{.code = values.code.data(),
                       .code_name = nullptr,
                       .country = nullptr,
                       .terms = keep_terms(values),
                       .rate = values.rate,
                       .intra_rate = values.intra_rate,
                       .inter_rate = values.inter_rate,
                       .local_rate = values.local_rate};
  return record.terms && keep_name(values.code_name, record.code_name) &&
         keep_name(values.country, record.country) && records_.push(record);
}

void import_list::clear() {
  records_.clear();
  terms_.clear();
  names_.clear();
  recent_names_ = {};
  recent_terms_ = {};
}
