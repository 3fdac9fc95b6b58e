/// Rows of cells as lines of text.
#pragma once

#include <string>
#include <vector>

/// The rows below each other, each column as wide as its widest cell, two blanks before each. Rows
/// may differ in length.
[[nodiscard]] std::string text_table(const std::vector<std::vector<std::string>>& rows);
