#include "base/qvn_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>

namespace {

/// What the formatting copies hold at most, their NUL included.
constexpr std::size_t kDupBufferSize = 2047;

constexpr unsigned char kBlank = 32;

unsigned char code_of(char c) {
  return static_cast<unsigned char>(c);
}

bool is_ascii_digit(char c) {
  return c >= '0' && c <= '9';
}

bool is_ascii_letter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

qvn_heap_text heap_copy(std::string_view first, std::string_view second = {}) {
  qvn_heap_text copy(static_cast<char*>(std::malloc(first.size() + second.size() + 1)));
  if (copy) {
    char* end = std::copy(first.begin(), first.end(), copy.get());
    end = std::copy(second.begin(), second.end(), end);
    *end = '\0';
  }
  return copy;
}

/// A copy of what the format makes of the arguments, cut at the end of its buffer or, without
/// `may_cut`, none when it would be.
[[gnu::format(printf, 1, 0)]] qvn_heap_text formatted_copy(const char* format, va_list arguments,
                                                           bool may_cut) {
  std::array<char, kDupBufferSize> buffer;
  // The analyser does not follow va_start through to here.
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = std::vsnprintf(buffer.data(), buffer.size(), format, arguments);
  const auto most = static_cast<int>(buffer.size()) - 1;
  if (length < 0 || (length > most && !may_cut)) {
    return nullptr;
  }
  return heap_copy({buffer.data(), static_cast<std::size_t>(std::min(length, most))});
}

/// The first separator, line feed or end of a field.
char* field_end(char* field, char separator) {
  const char ends[] = {'\n', separator, '\0'};
  return field + std::strcspn(field, ends);
}

/// Splits until the line ends or the vector is full; returns the index of the last field.
std::size_t split_fields(char* line, std::span<char*> fields, char separator) {
  std::size_t index = 0;
  fields[0] = line;
  while (index + 1 < fields.size()) {
    char* const end = std::strchr(fields[index], separator);
    if (!end) {
      break;
    }
    *end = '\0';
    fields[++index] = end + 1;
  }
  return index;
}

/// What may follow the first byte of a UTF-8 character of that many bytes.
struct utf8_lead {
  std::size_t length;
  unsigned char lowest, highest;  ///< of the second byte
};

/// Without the forms that are longer than they need to be, surrogates and codes above U+10FFFF.
utf8_lead utf8_lead_of(unsigned char lead) {
  constexpr unsigned char kFirst = 0x80;
  constexpr unsigned char kLast = 0xbf;
  if (lead < kFirst) {
    return {1, 0, 0};
  }
  if (lead < 0xc2 || lead > 0xf4) {
    return {0, 0, 0};
  }
  if (lead < 0xe0) {
    return {2, kFirst, kLast};
  }
  if (lead < 0xf0) {
    return {3, lead == 0xe0 ? static_cast<unsigned char>(0xa0) : kFirst,
            lead == 0xed ? static_cast<unsigned char>(0x9f) : kLast};
  }
  return {4, lead == 0xf0 ? static_cast<unsigned char>(0x90) : kFirst,
          lead == 0xf4 ? static_cast<unsigned char>(0x8f) : kLast};
}

/// Bytes of the UTF-8 character that a text, which is not empty, begins with; 0 for none.
std::size_t utf8_length(std::string_view text) {
  const utf8_lead lead = utf8_lead_of(code_of(text.front()));
  if (lead.length > text.size()) {
    return 0;
  }
  for (std::size_t i = 1; i < lead.length; ++i) {
    const unsigned char code = code_of(text[i]);
    if (code < (i == 1 ? lead.lowest : 0x80) || code > (i == 1 ? lead.highest : 0xbf)) {
      return 0;
    }
  }
  return lead.length;
}

/// Whether the bytes, a UTF-8 character or a byte of none, are a control character.
bool is_control(std::string_view bytes) {
  const unsigned char code = code_of(bytes.back());
  const bool high = code >= 0x80 && code < 0xa0;
  if (bytes.size() > 1) {
    return bytes.size() == 2 && code_of(bytes.front()) == 0xc2 && high;
  }
  return (code > 0 && code < kBlank) || code == 0x7f || high;
}

}  // namespace

int32_t zstr(const char* text) {
  return !text || *text == '\0' ? 1 : 0;
}

int32_t str_nonzero(const char* text) {
  return zstr(text) == 0 ? 1 : 0;
}

qvn_heap_text qvn_strdup(const char* text) {
  return zstr(text) != 0 ? nullptr : heap_copy(text);
}

qvn_heap_text qvn_strcat(const char* first, const char* second) {
  if (!first || !second) {
    // The analyser does not see that the returned owner frees it.
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc)
    return qvn_strdup(first ? first : second);
  }
  return heap_copy(first, second);
}

qvn_heap_text qvn_dup_printf(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  qvn_heap_text copy = formatted_copy(format, arguments, false);
  va_end(arguments);
  return copy;
}

qvn_heap_text qvn_vsprintf_dup(const char* format, va_list arguments) {
  return formatted_copy(format, arguments, true);
}

std::string qvn_format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  if (length <= 0) {
    return {};
  }
  std::string text(static_cast<std::size_t>(length), '\0');
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  va_end(arguments);
  return text;
}

std::string_view qvn_cut(std::string_view text, std::size_t most) {
  constexpr std::size_t kMostFollowing = 3;
  const auto follows = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; };
  if (text.size() <= most) {
    return text;
  }
  std::size_t length = most;
  while (length > 0 && most - length < kMostFollowing && follows(text[length])) {
    --length;
  }
  return text.substr(0, follows(text[length]) ? most : length);  // else it is no UTF-8
}

std::string_view qvn_money_text(std::span<char, kMoneyTextSize> out, float amount) {
  constexpr int kDecimals = 6;
  char* const begin = out.data();
  const auto result = std::to_chars(begin, begin + out.size(), static_cast<double>(amount),
                                    std::chars_format::fixed, kDecimals);
  return {begin, result.ptr};
}

std::string_view qvn_skip_blanks(std::string_view text) {
  const auto* const first = std::ranges::find_if(text, [](char c) { return code_of(c) > kBlank; });
  return {first, text.end()};
}

char* qvn_skip_blanks(char* text) {
  return text + (std::strlen(text) - qvn_skip_blanks(std::string_view(text)).size());
}

char* qvn_skip_nonblanks(char* text) {
  while (code_of(*text) > kBlank) {
    ++text;
  }
  return text;
}

char* qvn_skip_named_char(char* text, char named) {
  const char skipped[] = {named, '\0'};
  return text + std::strspn(text, skipped);
}

char* qvn_strip_prefix_blank(char* text) {
  return text + std::strspn(text, "\t \r");
}

void qvn_strip_suffix_blank(char* last) {
  while (*last != '\0' && std::strchr("\t \r\n", *last)) {
    *last-- = '\0';
  }
}

char* qvn_trim_suffix_blank(char* text) {
  if (text) {
    std::size_t length = std::strlen(text);
    while (length > 0 && code_of(text[length - 1]) <= kBlank) {
      text[--length] = '\0';
    }
  }
  return text;
}

bool qvn_is_utf8(std::string_view text) {
  const auto outside_ascii = [](char c) { return code_of(c) >= 0x80; };
  for (;;) {
    text = {std::ranges::find_if(text, outside_ascii), text.end()};
    if (text.empty()) {
      return true;
    }
    const std::size_t length = utf8_length(text);
    if (length == 0) {
      return false;
    }
    text.remove_prefix(length);
  }
}

void qvn_mask_controls(std::span<char> text, std::string_view kept) {
  while (!text.empty()) {
    const std::string_view left(text.data(), text.size());
    const std::string_view bytes = left.substr(0, std::max<std::size_t>(utf8_length(left), 1));
    const auto character = text.first(bytes.size());
    if (is_control(bytes) && kept.find(bytes) == std::string_view::npos) {
      std::ranges::fill(character, '?');
    }
    text = text.subspan(character.size());
  }
}

int32_t qvn_is_digit(const char* text) {
  const std::string_view digits = qvn_or_empty(text);
  return std::all_of(digits.begin(), digits.end(), is_ascii_digit) ? 1 : 0;
}

int32_t qvn_is_telephone_number(const char* text) {
  std::string_view number = qvn_or_empty(text);
  if (number.starts_with('+') || number.starts_with('-')) {
    number.remove_prefix(1);
  }
  const auto allowed = [](char c) { return is_ascii_digit(c) || c == '.'; };
  return std::all_of(number.begin(), number.end(), allowed) ? 1 : 0;
}

int32_t qvn_is_ipaddr(const char* text) {
  if (!text) {
    return -1;
  }
  const std::string_view address = text;
  return std::any_of(address.begin(), address.end(), is_ascii_letter) ? 1 : 0;
}

bool qvn_booleam(const char* text) {
  static constexpr std::array<std::string_view, 6> kTrueWords = {"t",   "true", "y",
                                                                 "yes", "on",   "1"};
  return std::find(kTrueWords.begin(), kTrueWords.end(), qvn_or_empty(text)) != kTrueWords.end();
}

int32_t qvn_row_parse_to_array(char* line, std::span<char*> fields, char separator) {
  const std::size_t index = split_fields(line, fields, separator);
  if (index + 1 == fields.size()) {
    *field_end(fields[index], separator) = '\0';
  }
  return static_cast<int32_t>(index);
}

int32_t qvn_row_parse_to_array_vstr(char* line, std::span<char*> fields, char separator) {
  static char shared_empty[1] = "";
  const std::size_t index = split_fields(line, fields, separator);
  if (index + 1 == fields.size()) {
    *field_end(fields[index], '\n') = '\0';
  }
  for (char*& field : fields.first(index + 1)) {
    if (*field == '\0') {
      field = shared_empty;
    }
  }
  return static_cast<int32_t>(index);
}
