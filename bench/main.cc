// varnkivo-bench: measures the library against baselines of the same run and prints one table. Run it with
// scripts/sandbox. A bound that is not kept says OVER; only what could not be measured makes the status 1.
#include <curl/curl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "record.h"
#include "rows.h"

int main() {
  try {
    bench::PrepareDevice();
    bench::Table table;
    {
      const bench::Cloud cloud;
      const curl_version_info_data* curl = curl_version_info(CURLVERSION_NOW);
      std::printf("libcurl %s, %s, %d certificates, %ld processors; medians of alternating runs\n\n", curl->version,
                  curl->ssl_version, cloud.Certificates(), sysconf(_SC_NPROCESSORS_ONLN));
      std::fflush(stdout);
      bench::AddRequestRows(table, cloud);
      bench::AddRenewalRows(table, cloud);
      bench::AddReportRows(table, cloud);
      bench::PutTokens(cloud.IssueTokens(0));
      bench::PutTokens(cloud.IssueTokens(0), "photos");
    }
    bench::AddToolRows(table);
    bench::AddOperationRows(table);
    bench::AddSystemCallRows(table);
    bench::AddLibraryRows(table);
    table.Print();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "varnkivo-bench: %s\n", error.what());
    return 1;
  }
}
