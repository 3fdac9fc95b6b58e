#include "rate/qvn_rate_table.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <new>
#include <utility>

#include "base/qvn_log.h"
#include "base/qvn_slab.h"
#include "base/qvn_text.h"

static_assert(sizeof(rate_node) == 88 && offsetof(rate_node, texts) == 81,
              "the header states the size of a rate");

namespace {

constexpr const char* kLogSource = "qvn_rate_table";

thread_local constinit qvn_slab record_slab;

/// A field of a record and the text that goes there.
template <class Record>
using text_field = std::pair<const char * Record::*, std::string_view>;

/// A zeroed record followed by its texts in the same piece of the slab; null without memory.
template <class Record, std::size_t Count>
Record* make_record(const std::array<text_field<Record>, Count>& fields) {
  std::size_t size = sizeof(Record);
  for (const auto& [member, text] : fields) {
    size += qvn_stored_size(text);
  }
  void* const memory = record_slab.alloc(size);
  if (!memory) {
    return nullptr;
  }
  auto* const record = new (memory) Record{};
  char* end = static_cast<char*>(memory) + sizeof(Record);
  for (const auto& [member, text] : fields) {
    record->*member = qvn_store_text(end, text);
  }
  return record;
}

template <class Record>
Record* first_of(const rp_hash_node* node) {
  return static_cast<Record*>(node->items);
}

/// Puts the record before the first one that does not come before it, or at the end of the list.
template <class Record, class Before>
void link_sorted(rp_hash_node* node, Record* record, Before comes_before) {
  Record* const first = first_of<Record>(node);
  ++node->item_count;
  if (!first) {
    record->prev = record;
    record->next = record;
    node->items = record;
    return;
  }
  Record* place = first;
  const bool goes_last = comes_before(*first->prev, *record);
  while (!goes_last && comes_before(*place, *record)) {
    place = place->next;
  }
  record->prev = place->prev;
  record->next = place;
  place->prev->next = record;
  place->prev = record;
  if (place == first && !goes_last) {
    node->items = record;
  }
}

template <class Record>
void unlink(rp_hash_node* node, Record* record) {
  if (node->items == record) {
    node->items = record->next != record ? record->next : nullptr;
  }
  record->prev->next = record->next;
  record->next->prev = record->prev;
  --node->item_count;
  qvn_slab::release(record);
}

bool same_text(const char* left, const char* right) {
  return std::strcmp(qvn_or_empty(left), qvn_or_empty(right)) == 0;
}

bool text_less(const char* left, const char* right) {
  return std::strcmp(qvn_or_empty(left), qvn_or_empty(right)) < 0;
}

template <class Record>
void free_list(rp_hash_node* node) {
  Record* record = first_of<Record>(node);
  while (record && node->item_count > 0) {
    // The last record is not looked at: of a million lists nearly all hold one, far from the cache.
    Record* const next = node->item_count > 1 ? record->next : nullptr;
    qvn_slab::release(record);
    --node->item_count;
    record = next;
  }
  node->items = nullptr;
}

/// Removes the first record whose `key` equals the text, or, without a text, the whole list.
template <class Record, class Text>
int32_t delete_by_key(rp_hash_node* node, Text Record::*key, const void* wanted) {
  if (!wanted) {
    free_list<Record>(node);
    return 1;
  }
  Record* record = first_of<Record>(node);
  for (uint64_t left = record ? node->item_count : 0; left > 0; --left, record = record->next) {
    if (same_text(record->*key, static_cast<const char*>(wanted))) {
      unlink(node, record);
      return 1;
    }
  }
  return 0;
}

/// Frees the node's first record and links nothing anew. Returns 1.
int32_t free_first(rp_hash_node* node) {
  qvn_slab::release(node->items);
  if (node->item_count > 0) {
    --node->item_count;
  }
  return 1;
}

const rp_hash_node* top_of(const rp_hash_node* node) {
  while (node->parent) {
    node = node->parent;
  }
  return node;
}

}  // namespace

void near_text::lead_to(const char* text, char* pointer) {
  const auto distance_of = [this](const char* place) {
    return place - reinterpret_cast<char*>(this);
  };
  if (!text) {
    distance_ = 0;
  } else if (distance_of(text) <= kReach) {
    distance_ = static_cast<uint16_t>(distance_of(text));
  } else {
    std::memcpy(pointer, &text, sizeof text);
    distance_ = static_cast<uint16_t>(distance_of(pointer) + kReach + 1);
  }
}

rate_node* rate_node_create(const rate_texts& texts) {
  const auto fields = std::to_array<std::pair<near_text rate_node::*, std::string_view>>({
      {&rate_node::code, texts.code},
      {&rate_node::code_name, texts.code_name},
      {&rate_node::country, texts.country},
      {&rate_node::rate_id, texts.rate_id},
      {&rate_node::rate_table_id, texts.rate_table_id},
      {&rate_node::time_profile_id, texts.time_profile_id},
  });
  std::size_t size = offsetof(rate_node, texts);
  for (const auto& [member, text] : fields) {
    size += qvn_stored_size(text);
  }
  // Texts of ordinary length are all within reach. Else there is room for a pointer to each first.
  const std::size_t pointer_size = size > near_text::kReach ? sizeof(const char*) : 0;
  size += fields.size() * pointer_size;
  void* const memory = record_slab.alloc(std::max(size, sizeof(rate_node)));
  if (!memory) {
    return nullptr;
  }
  auto* const rate = new (memory) rate_node{};
  char* pointer = static_cast<char*>(memory) + offsetof(rate_node, texts);
  char* end = pointer + fields.size() * pointer_size;
  for (const auto& [member, text] : fields) {
    (rate->*member).lead_to(qvn_store_text(end, text), pointer);
    pointer += pointer_size;
  }
  return rate;
}

code_deck_node* code_deck_node_create(std::string_view code_id, std::string_view code,
                                      std::string_view code_deck_id, std::string_view country,
                                      std::string_view name) {
  return make_record(std::to_array<text_field<code_deck_node>>({
      {&code_deck_node::code_id, code_id},
      {&code_deck_node::code, code},
      {&code_deck_node::code_deck_id, code_deck_id},
      {&code_deck_node::country, country},
      {&code_deck_node::name, name},
  }));
}

jurisdiction_prefix_node* jurisdiction_prefix_node_create(std::string_view id,
                                                          std::string_view jurisdiction_id) {
  return make_record(std::to_array<text_field<jurisdiction_prefix_node>>({
      {&jurisdiction_prefix_node::id, id},
      {&jurisdiction_prefix_node::jurisdiction_id, jurisdiction_id},
  }));
}

time_profile_node* time_profile_node_create(std::string_view time_profile_id) {
  return make_record(std::to_array<text_field<time_profile_node>>({
      {&time_profile_node::time_profile_id, time_profile_id},
  }));
}

void rate_node_drop(rate_node* rate) {
  qvn_slab::release(rate);
}

void jurisdiction_prefix_node_drop(jurisdiction_prefix_node* prefix) {
  qvn_slab::release(prefix);
}

void time_profile_node_drop(time_profile_node* profile) {
  qvn_slab::release(profile);
}

void rate_node_link(rp_hash_node* node, rate_node* rate) {
  link_sorted(node, rate, [](const rate_node& left, const rate_node& right) {
    return left.effective_date < right.effective_date;
  });
}

void code_deck_node_link(rp_hash_node* node, code_deck_node* entry) {
  auto* const kept = first_of<code_deck_node>(node);
  if (kept && text_less(kept->code_id, entry->code_id)) {
    qvn_slab::release(entry);
    return;
  }
  (void)delete_code_deck_node(node, nullptr);  // 0 when the code is new
  entry->prev = entry;
  entry->next = entry;
  node->items = entry;
  ++node->item_count;
}

void jurisdiction_prefix_node_link(rp_hash_node* node, jurisdiction_prefix_node* prefix) {
  link_sorted(node, prefix,
              [](const jurisdiction_prefix_node& left, const jurisdiction_prefix_node& right) {
                return text_less(left.id, right.id);
              });
}

void time_profile_node_link(rp_hash_node* node, time_profile_node* profile) {
  (void)delete_time_profile_node(node, nullptr);  // 0 when the id is new
  ++node->item_count;
  node->items = profile;
}

int32_t delete_rate_node(rp_hash_node* node, const void* rate_id) {
  return delete_by_key(node, &rate_node::rate_id, rate_id);
}

int32_t delete_jurisdiction_prefix_node(rp_hash_node* node, const void* id) {
  return delete_by_key(node, &jurisdiction_prefix_node::id, id);
}

int32_t delete_code_deck_node(rp_hash_node* node, const void* code_id) {
  auto* const entry = first_of<code_deck_node>(node);
  if (!entry || (code_id && !same_text(entry->code_id, static_cast<const char*>(code_id)))) {
    return 0;
  }
  return free_first(node);
}

int32_t delete_time_profile_node(rp_hash_node* node, const void* /*ignored*/) {
  return node->items ? free_first(node) : 0;
}

void create_del_expire_rate(const rate_node* first, uint64_t count, expire_rate_req** requests,
                            int64_t effective_date) {
  for (const rate_node* rate = first; rate && count > 0; --count, rate = rate->next) {
    if (rate->effective_date != effective_date) {
      continue;
    }
    auto* const request = make_record(std::to_array<text_field<expire_rate_req>>({
        {&expire_rate_req::code, qvn_or_empty(rate->code)},
        {&expire_rate_req::rate_id, qvn_or_empty(rate->rate_id)},
        {&expire_rate_req::rate_table_id, qvn_or_empty(rate->rate_table_id)},
    }));
    if (!request) {
      QVN_LOG(kLogError, "Alloc memory for expired rate delete request  failed\n");
      return;
    }
    request->next = *requests;
    *requests = request;
  }
}

void delete_expire_rate(rp_hash_node* root, const char* code, const char* rate_id,
                        const char* rate_table_id, uint64_t /*ignored*/) {
  rp_hash_node* const outer = rp_hash_match_all(&root, qvn_or_empty(rate_table_id));
  if (!outer || rp_hash_delete(&outer->sub, qvn_or_empty(code), delete_rate_node,
                               qvn_or_empty(rate_id)) != 1) {
    return;
  }
  // `root` is a copy: freeing a top-level node here would leave the caller's slot on freed memory.
  if (top_of(outer)->pass_count > 0) {
    (void)rp_hash_delete(&root, qvn_or_empty(rate_table_id), nullptr, nullptr);
  }
}

int32_t get_timezone_from_str(const char* text) {
  static constexpr std::pair<const char*, int32_t> kZones[] = {
      {"+0000", 0},  {"-1200", -12}, {"-1100", -11}, {"-1000", -10}, {"-0900", -9}, {"-0800", -8},
      {"-0700", -7}, {"-0600", -6},  {"-0500", -5},  {"-0300", -3},  {"-0200", -2}, {"-0100", -1},
      {"+0100", 1},  {"+0200", 2},   {"+0300", 3},   {"+0400", 4},   {"+0500", 5},  {"+0600", 6},
      {"+0700", 7},  {"+0800", 8},   {"+0900", 9},   {"+1000", 10},  {"+1100", 11}, {"+1200", 12},
  };
  const auto* const found = std::ranges::find_if(
      kZones, [text](const auto& zone) { return same_text(zone.first, text); });
  return found == std::end(kZones) ? 0 : found->second;
}

bool qvn_is_rate(std::string_view text) {
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  return !text.empty() && is_digit(text.front()) &&
         std::ranges::all_of(text, [&](char c) { return is_digit(c) || c == '.'; });
}

int32_t qvn_is_rate(const char* text) {
  return qvn_is_rate(std::string_view(qvn_or_empty(text))) ? 1 : 0;
}
