/* bench_peak PROGRAM ARGUMENT...: runs the program and prints its peak of resident memory in KiB. Small itself: a new
 * process starts with the peak of the one that it was made from. */
#include <spawn.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>

extern char** environ;

int main(int argc, char** argv) {
  struct rusage usage;
  pid_t pid;
  int status;
  if (argc < 2 || posix_spawn(&pid, argv[1], NULL, NULL, argv + 1, environ) != 0) return 2;
  if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return 1;
  return printf("%ld\n", usage.ru_maxrss) > 0 ? 0 : 1;
}
