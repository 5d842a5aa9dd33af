// The library as a file, and what it costs a process to load it.
#include <elf.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "process.h"
#include "rows.h"

namespace bench {
namespace {

constexpr double kLargestLibrary = 1.5e6;
constexpr int kLoadRounds = 41;

std::string ReadText(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

struct LibraryFacts {
  double relocations = 0, relative = 0, initialisers = 0;
};

LibraryFacts FactsOf(const std::string& elf) {
  Elf64_Ehdr header;
  if (elf.size() < sizeof header || elf.compare(0, SELFMAG, ELFMAG) != 0) throw std::runtime_error("no ELF file");
  std::memcpy(&header, elf.data(), sizeof header);
  LibraryFacts facts;
  for (unsigned int i = 0; i < header.e_shnum; ++i) {
    Elf64_Shdr section;
    std::memcpy(&section, elf.data() + header.e_shoff + i * sizeof section, sizeof section);
    if (section.sh_type == SHT_INIT_ARRAY)
      facts.initialisers = static_cast<double>(section.sh_size / sizeof(Elf64_Addr));
    if (section.sh_type != SHT_RELA) continue;
    for (std::size_t at = section.sh_offset; at < section.sh_offset + section.sh_size; at += sizeof(Elf64_Rela)) {
      Elf64_Rela entry;
      std::memcpy(&entry, elf.data() + at, sizeof entry);
      facts.relocations += 1;
      if (ELF64_R_TYPE(entry.r_info) == R_X86_64_RELATIVE) facts.relative += 1;
    }
  }
  return facts;
}

double StrippedSize() {
  const char* stripped = "/tmp/varnkivo-bench-stripped";
  RunProgram({"strip", "-o", stripped, BENCH_LIBRARY});
  struct stat facts = {};
  if (stat(stripped, &facts) != 0) throw std::runtime_error("strip made nothing");
  std::remove(stripped);
  return static_cast<double>(facts.st_size);
}

}  // namespace

void AddLibraryRows(Table& table) {
  const LibraryFacts facts = FactsOf(ReadText(BENCH_LIBRARY));
  table.Limit("libvarnkivo.so.1, stripped", Unit::kKilobytes, StrippedSize(), kLargestLibrary);
  table.Show("its relocations", Unit::kCount, facts.relocations);
  table.Show("of these, without a symbol to look up", Unit::kCount, facts.relative);
  table.Show("its static initialisers", Unit::kCount, facts.initialisers);
  const std::vector<Cost> costs = Medians(kLoadRounds, {[] {
                                                          return RunProgram({BENCH_CURL, "0", "", "", ""});
                                                        },
                                                        [] {
                                                          return RunProgram({BENCH_SEND, "0"});
                                                        }});
  table.Show("process that only loads: libvarnkivo / libcurl, CPU", Unit::kMilliseconds, costs[1].cpu, costs[0].cpu);
  table.Show("the same, wall", Unit::kMilliseconds, costs[1].wall, costs[0].wall);
}

}  // namespace bench
