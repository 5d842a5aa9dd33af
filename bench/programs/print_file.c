// bench_print_file FILE: what a process costs that reads a small file and prints it, with no library but C's.
#include <fcntl.h>
#include <unistd.h>

int main(int argc, char** argv) {
  char text[8192];
  if (argc != 2) return 2;
  const int file = open(argv[1], O_RDONLY | O_CLOEXEC);
  const ssize_t size = file < 0 ? -1 : read(file, text, sizeof text);
  return size > 0 && write(STDOUT_FILENO, text, (size_t)size) == size ? 0 : 1;
}
