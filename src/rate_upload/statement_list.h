/// SQL statements that wait to be sent, the last one first. There may be millions: they lie one
/// behind the other in one text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

class statement_list {
 public:
  [[nodiscard]] bool empty() const { return starts_.empty(); }
  [[nodiscard]] std::size_t size() const { return starts_.size(); }

  /// Throws std::bad_alloc when memory runs out; the list is then as it was.
  void push(std::string_view statement) {
    if (starts_.size() == starts_.capacity()) {
      starts_.reserve(2 * starts_.size() + 1);  // so that nothing can fail after the text is in
    }
    const std::size_t start = text_.size();
    text_.append(statement);
    starts_.push_back(start);
  }

  /// The statement pushed last; the list must not be empty. Valid until the next push or pop.
  [[nodiscard]] std::string_view back() const {
    return std::string_view(text_).substr(starts_.back());
  }

  void pop() {
    text_.resize(starts_.back());
    starts_.pop_back();
  }

  /// Frees all that it holds.
  void clear() {
    text_ = {};
    starts_ = {};
  }

 private:
  std::string text_;
  std::vector<std::size_t> starts_;
};
