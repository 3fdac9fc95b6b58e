/// Owners of files. Everything is opened close-on-exec: the daemon runs shell commands beside its
/// threads.
#pragma once

#include <cstdio>
#include <memory>
#include <sys/stat.h>

struct qvn_file_close {
  void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
};

/// An open stream, closed with its owner. Where the result of closing matters (the last bytes of a
/// file that somebody relies on), release it and look at fclose yourself.
using qvn_file = std::unique_ptr<std::FILE, qvn_file_close>;

/// Whether the path leads to the open file.
[[nodiscard]] inline bool qvn_leads_to(const char* path, std::FILE* file) {
  struct stat named {};
  struct stat opened {};
  return stat(path, &named) == 0 && fstat(fileno(file), &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}
