// Formats values and ratios, and compares them with their bounds.
#include "table.h"

#include <algorithm>
#include <cstdio>

namespace bench {
namespace {

std::string Text(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Value(Unit unit, double value) {
  constexpr struct {
    double factor;
    const char* format;
  } units[] = {{1e3, "%.2f ms"}, {1e6, "%.2f us"}, {1e-3, "%.0f kB"}, {1, "%.4g"}};  // in the order of Unit
  const auto& row = units[static_cast<int>(unit)];
  return Text(row.format, value * row.factor);
}

std::string Ratio(double value) { return Text("%.3f", value); }
std::string Verdict(bool kept) { return kept ? "ok" : "OVER"; }

}  // namespace

void Table::Compare(const std::string& what, Unit unit, double measured, double baseline, double bound) {
  const double ratio = measured / baseline;
  rows_.push_back({what, Value(unit, measured), Value(unit, baseline), Ratio(ratio), Ratio(bound),
                   Verdict(ratio <= bound)});  // no number at all (a baseline of 0) is no "ok"
}

void Table::Limit(const std::string& what, Unit unit, double measured, double limit) {
  rows_.push_back({what, Value(unit, measured), "", "", Value(unit, limit), Verdict(measured <= limit)});
}

void Table::Show(const std::string& what, Unit unit, double measured, double baseline) {
  rows_.push_back({what, Value(unit, measured), "", "", "", ""});
  if (baseline <= 0) return;
  rows_.back().baseline = Value(unit, baseline);
  rows_.back().ratio = Ratio(measured / baseline);
}

void Table::Print() const {
  std::size_t width = 0;
  for (const Row& row : rows_) width = std::max(width, row.what.size());
  const auto print = [&](const Row& row) {
    std::printf("%-*s  %11s  %11s  %7s  %7s  %s\n", static_cast<int>(width), row.what.c_str(), row.measured.c_str(),
                row.baseline.c_str(), row.ratio.c_str(), row.bound.c_str(), row.verdict.c_str());
  };
  print({"", "measured", "baseline", "ratio", "bound", ""});
  for (const Row& row : rows_) print(row);
}

}  // namespace bench
