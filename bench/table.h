// The table that everything measured ends in. Touches nothing but standard output.
// A row's bound is stated where the row is measured; the table alone decides whether it is kept.
#ifndef VARNKIVO_BENCH_TABLE_H_
#define VARNKIVO_BENCH_TABLE_H_

#include <string>
#include <vector>

namespace bench {

enum class Unit { kMilliseconds, kMicroseconds, kKilobytes, kCount };  // of values in seconds, bytes, pieces

class Table {
 public:
  /// `measured` may be at most `bound` times the baseline of the same run.
  void Compare(const std::string& what, Unit unit, double measured, double baseline, double bound);
  /// `measured` may be at most `limit`.
  void Limit(const std::string& what, Unit unit, double measured, double limit);
  /// No bound; with its ratio to the baseline where there is one.
  void Show(const std::string& what, Unit unit, double measured, double baseline = 0);
  void Print() const;

 private:
  struct Row {
    std::string what, measured, baseline, ratio, bound, verdict;
  };
  std::vector<Row> rows_;
};

}  // namespace bench

#endif  // VARNKIVO_BENCH_TABLE_H_
