// Lays out rows. No state besides stdout. Cells are made printable when they come in, so that none holds a newline: one
// row is one line in either form.
#include "text_table.h"

#include <algorithm>
#include <cstdio>

#include "text.h"

namespace kivotool {
namespace {

/// Characters, which is what a terminal counts; continuation bytes are none.
std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0u) != 0x80u; }));
}

std::string CsvCell(std::string cell, bool number) {
  if (!number && !cell.empty() && std::string("=+-@").find(cell[0]) != std::string::npos) cell.insert(0, "'");
  if (cell.find_first_of("\",") == std::string::npos) return cell;
  std::string quoted = "\"";
  for (const char c : cell) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

}  // namespace

TextTable::TextTable(const std::vector<std::string>& titles) {
  rows_.emplace_back();
  for (const std::string& title : titles) {
    numbers_.push_back(title[0] == '>');
    rows_[0].push_back(title.substr(numbers_.back() ? 1 : 0));
  }
}

void TextTable::Add(const std::vector<std::string>& cells) {
  rows_.emplace_back();
  for (const std::string& cell : cells) rows_.back().push_back(Printable(cell));
}

void TextTable::Print() const {
  if (rows_.size() < 2) return;
  std::vector<std::size_t> widths(numbers_.size(), 1);
  for (const auto& row : rows_)
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Width(row[i]));
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string cell = row[i].empty() ? "-" : row[i], space(widths[i] - Width(cell), ' ');
      line += (i == 0 ? "" : "  ") + (numbers_[i] ? space + cell : cell + space);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    std::printf("%s\n", line.c_str());
  }
}

void TextTable::PrintCsv() const {
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i)
      line += (i == 0 ? "" : ",") + CsvCell(row[i], numbers_[i] && &row != &rows_[0]);
    std::printf("%s\r\n", line.c_str());
  }
}

}  // namespace kivotool
