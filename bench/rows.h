// Each of these measures one subject and adds its rows. They throw std::runtime_error where nothing can be measured.
#ifndef VARNKIVO_BENCH_ROWS_H_
#define VARNKIVO_BENCH_ROWS_H_

#include "cloud.h"
#include "table.h"

namespace bench {

void AddRequestRows(Table& table, const Cloud& cloud);
void AddRenewalRows(Table& table, const Cloud& cloud);
void AddReportRows(Table& table, const Cloud& cloud);
void AddToolRows(Table& table);
void AddOperationRows(Table& table);
void AddSystemCallRows(Table& table);
void AddLibraryRows(Table& table);

}  // namespace bench

#endif  // VARNKIVO_BENCH_ROWS_H_
