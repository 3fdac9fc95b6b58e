/// Owners of files. Everything is opened close-on-exec: the daemon runs shell commands beside its
/// threads.
#pragma once

#include <cstdio>
#include <memory>

struct qvn_file_close {
  void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
};

/// An open stream, closed with its owner. Where the result of closing matters (the last bytes of a
/// file that somebody relies on), release it and look at fclose yourself.
using qvn_file = std::unique_ptr<std::FILE, qvn_file_close>;
