// Rows on stdout, for people and for spreadsheets. Every cell may hold anything.
#pragma once

#include <string>
#include <vector>

namespace kivotool {

class TextTable {
 public:
  /// A title that starts with ">" is that of a column of numbers: its cells stand at the right.
  explicit TextTable(const std::vector<std::string>& titles);
  void Add(const std::vector<std::string>& cells);
  /// Titles and rows with columns as wide as they have to be, "-" where a cell is empty; nothing without rows.
  void Print() const;
  /// RFC 4180. A text that a spreadsheet would take for a formula gets a "'" in front.
  void PrintCsv() const;

 private:
  std::vector<bool> numbers_;
  std::vector<std::vector<std::string>> rows_;  ///< the titles first; made printable
};

}  // namespace kivotool
