/// Small stateless text helpers, shared by all modules. Every function may be called by any thread.
///
/// Where a text may be absent it is a null pointer. Characters are compared as unsigned, 0 to 255.
///
/// The daemon does not call qvn_strcat, qvn_dup_printf, qvn_vsprintf_dup, qvn_skip_nonblanks,
/// qvn_skip_named_char, qvn_is_digit, qvn_is_telephone_number, qvn_is_ipaddr, qvn_booleam and
/// qvn_row_parse_to_array_vstr.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <string_view>

/// Releases what the heap-copy helpers return.
struct qvn_heap_text_free {
  void operator()(char* text) const noexcept { std::free(text); }
};

/// An owned, NUL-terminated heap copy, or none.
using qvn_heap_text = std::unique_ptr<char, qvn_heap_text_free>;

/// 1 when the text is absent or empty, else 0.
[[nodiscard]] int32_t zstr(const char* text);

/// 1 when the text is present and not empty, else 0.
[[nodiscard]] int32_t str_nonzero(const char* text);

/// The base-10 number that the text begins with, cut to the width of T; 0 when it begins with none.
template <class T>
[[nodiscard]] T qvn_number(const char* text) {
  return static_cast<T>(std::strtol(text, nullptr, 10));
}

/// A heap copy; none for an absent or empty text, or when memory runs out.
[[nodiscard]] qvn_heap_text qvn_strdup(const char* text);

/// first + second as a new heap text; neither input is released. An absent first gives a copy of
/// the second, an absent second a copy of the first; none when that one is empty or memory runs
/// out.
[[nodiscard]] qvn_heap_text qvn_strcat(const char* first, const char* second);

/// Formats into at most 2046 characters; none when the result would be longer or memory runs out.
[[nodiscard, gnu::format(printf, 1, 2)]] qvn_heap_text qvn_dup_printf(const char* format, ...);

/// As qvn_dup_printf, but a longer text is cut at 2046 characters.
[[nodiscard, gnu::format(printf, 1, 0)]] qvn_heap_text qvn_vsprintf_dup(const char* format,
                                                                        va_list arguments);

/// Formats into a text of any length. Throws std::bad_alloc when memory runs out.
[[nodiscard, gnu::format(printf, 1, 2)]] std::string qvn_format(const char* format, ...);

/// The text cut to at most `most` bytes, and not in the middle of a UTF-8 character: a database
/// refuses half a one, and with it the whole statement.
[[nodiscard]] std::string_view qvn_cut(std::string_view text, std::size_t most);

/// Room for any amount of money as a text: a single has up to 39 digits before the point.
inline constexpr std::size_t kMoneyTextSize = 64;

/// Writes the amount with six decimals, as "%f" would print it, into `out`; returns what was
/// written.
[[nodiscard]] std::string_view qvn_money_text(std::span<char, kMoneyTextSize> out, float amount);

/// The text, or an empty one when it is absent: what every "%s" is given.
[[nodiscard]] inline const char* qvn_or_empty(const char* text) {
  return text ? text : "";
}

/// Past leading characters 1 to 32 (control characters and blank).
[[nodiscard]] char* qvn_skip_blanks(char* text);
[[nodiscard]] std::string_view qvn_skip_blanks(std::string_view text);

/// Past leading characters above 32.
[[nodiscard]] char* qvn_skip_nonblanks(char* text);

/// Past a leading run of one given character.
[[nodiscard]] char* qvn_skip_named_char(char* text, char named);

/// Past leading tabs, blanks and carriage returns.
[[nodiscard]] char* qvn_strip_prefix_blank(char* text);

/// Given a pointer to the last character of a text, writes NUL backwards over tabs, blanks,
/// carriage returns and line feeds, up to any other character or a NUL. A text of only those is
/// walked past its beginning, so the byte before it must be readable and end the walk (a "[", a
/// NUL).
void qvn_strip_suffix_blank(char* last);

/// Cuts, in place, every trailing character of code 32 or less; returns the text.
char* qvn_trim_suffix_blank(char* text);

/// Whether all of it is UTF-8, as a database in UTF8 takes it.
[[nodiscard]] bool qvn_is_utf8(std::string_view text);

/// Writes "?", in place, over each byte of a control character but those in `kept`: codes 1 to 31,
/// 127 and 128 to 159, the last as UTF-8 or as a byte that belongs to no UTF-8 character. A text
/// from outside then neither steers the terminal that shows it nor begins a line of its own. All
/// other bytes stay.
void qvn_mask_controls(std::span<char> text, std::string_view kept = "\t");

/// 1 when every character is 0 to 9, also for an empty text; else 0.
[[nodiscard]] int32_t qvn_is_digit(const char* text);

/// 1 when, after one optional leading "+" or "-", every character is a digit or "."; also for an
/// empty rest; else 0.
[[nodiscard]] int32_t qvn_is_telephone_number(const char* text);

/// -1 for an absent text; 1 when it holds an ASCII letter, so is taken as a host name; else 0. The
/// form of a dotted address is not tested.
[[nodiscard]] int32_t qvn_is_ipaddr(const char* text);

/// True for exactly "t", "true", "y", "yes", "on" or "1".
[[nodiscard]] bool qvn_booleam(const char* text);

/// Splits a line in place at `separator` into at most fields.size() texts, which must be 1 or more,
/// and returns the index of the last one. When the vector is full the last field is cut at its next
/// separator or line feed and further fields are dropped; when the line ends before that, the last
/// field keeps a trailing line feed. Entries that are not reached keep what they held.
int32_t qvn_row_parse_to_array(char* line, std::span<char*> fields, char separator);

/// As qvn_row_parse_to_array, but empty fields are given one shared empty text (not to be written
/// to), and when the vector is full its last field runs to the next line feed, separators included.
int32_t qvn_row_parse_to_array_vstr(char* line, std::span<char*> fields, char separator);
