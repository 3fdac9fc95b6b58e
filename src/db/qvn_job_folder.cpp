#include "db/qvn_job_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/qvn_shell.h"
#include "base/qvn_text.h"
#include "base/qvn_time.h"

namespace {

constexpr mode_t kForEveryone = 0777;
constexpr mode_t kNewFile = 0666;  // less the umask
constexpr int kMake = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

/// 0, or the error number that says why the daemon does not write to a file which is there already.
int objection(const struct stat& status) {
  if (S_ISLNK(status.st_mode)) {
    return ELOOP;
  }
  if (S_ISDIR(status.st_mode)) {
    return EISDIR;
  }
  if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
    return EPERM;
  }
  return status.st_nlink == 1 ? 0 : EMLINK;
}

/// The stream takes the descriptor over; null, with errno, when there is none or no memory.
qvn_job_file stream_of(qvn_fd fd, const char* mode) {
  std::FILE* const stream = fd.is_open() ? fdopen(fd.get(), mode) : nullptr;
  if (stream) {
    (void)fd.release();
  }
  return qvn_job_file(stream);
}

}  // namespace

void qvn_job_file_close::operator()(std::FILE* file) const noexcept {
  (void)fchmod(fileno(file), kForEveryone);
  (void)std::fclose(file);
}

int qvn_job_file_finish(qvn_job_file file) {
  const bool failed = std::ferror(file.get()) != 0;
  (void)fchmod(fileno(file.get()), kForEveryone);
  errno = 0;
  if (std::fclose(file.release()) == 0 && !failed) {
    return 0;
  }
  return errno != 0 ? errno : EIO;
}

qvn_job_folder::qvn_job_folder(std::string path) : path_(std::move(path)) {
  // After a slash a symbolic link would be followed.
  const std::string name = path_.substr(0, path_.find_last_not_of('/') + 1);
  folder_.reset(open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  error_ = folder_.is_open() ? 0 : errno;
}

qvn_job_folder qvn_job_folder::make(const std::string& root, const qvn_job& job) {
  tm today{};
  if (!qvn_gmtime_r(&today)) {
    return {};
  }
  std::string path =
      qvn_format("%s%04d%02d%02d/%s/%d/", root.c_str(), today.tm_year + 1900, today.tm_mon + 1,
                 today.tm_mday, job.label.c_str(), static_cast<int>(job.id));
  (void)qvn_shell(qvn_format("mkdir -p %s", path.c_str()));
  return qvn_job_folder(std::move(path));
}

/// False, with errno, without a folder, or for a name that would lead out of it: a trunk's id is
/// part of a file's name.
bool qvn_job_folder::may_hold(const char* name) const {
  errno = folder_.is_open() ? ENOENT : error_;
  return folder_.is_open() && !std::strchr(name, '/');
}

qvn_job_file qvn_job_folder::create(const char* name) const {
  if (!may_hold(name)) {
    return nullptr;
  }
  (void)unlinkat(folder_.get(), name, 0);
  return stream_of(qvn_fd(openat(folder_.get(), name, kMake, kNewFile)), "w");
}

qvn_fd qvn_job_folder::make_unnamed() const {
  if (!may_hold(".")) {
    return {};
  }
  qvn_fd file(openat(folder_.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, kNewFile));
  if (file.is_open() || (errno != EOPNOTSUPP && errno != EISDIR)) {
    return file;
  }
  // The file system knows no such files: one that loses its name at once.
  char name[64];
  (void)std::snprintf(name, sizeof name, ".spool-%d-%ld", gettid(), static_cast<long>(random()));
  file.reset(openat(folder_.get(), name, (kMake & ~O_WRONLY) | O_RDWR, kNewFile));
  if (file.is_open()) {
    (void)unlinkat(folder_.get(), name, 0);
  }
  return file;
}

bool qvn_job_folder::give_name(const qvn_fd& unnamed, const char* name) const {
  if (!may_hold(name)) {
    return false;
  }
  char path[64];
  (void)std::snprintf(path, sizeof path, "/proc/self/fd/%d", unnamed.get());
  if (linkat(AT_FDCWD, path, folder_.get(), name, AT_SYMLINK_FOLLOW) == 0) {
    (void)fchmod(unnamed.get(), kForEveryone);
    return true;
  }
  if (errno != ENOENT) {
    return false;
  }
  // A file that has lost its name gets none again.
  const qvn_fd file(openat(folder_.get(), name, kMake | O_APPEND, kNewFile));
  if (!file.is_open()) {
    return false;
  }
  (void)fchmod(file.get(), kForEveryone);
  if (qvn_fd_copy(unnamed, file)) {
    return true;
  }
  const int error = errno;
  (void)unlinkat(folder_.get(), name, 0);
  errno = error;
  return false;
}

qvn_fd qvn_job_folder::open_own(const char* name) const {
  const qvn_fd seen = may_hold(name) ? qvn_fd_look_at(folder_.get(), name, O_NOFOLLOW) : qvn_fd();
  struct stat status {};
  if (!seen.is_open() || fstat(seen.get(), &status) != 0) {
    return {};
  }
  if (const int error = objection(status)) {
    errno = error;
    return {};
  }
  qvn_fd file = qvn_fd_open_seen(seen, O_WRONLY | O_APPEND);
  if (file.is_open()) {
    (void)fchmod(file.get(), kForEveryone);
  }
  return file;
}

void qvn_job_folder::open_to_all() const {
  struct stat status {};
  if (folder_.is_open() && fstat(folder_.get(), &status) == 0 && status.st_uid == geteuid()) {
    // The group of the folder above stays that of new files, as with chmod(1).
    (void)fchmod(folder_.get(), kForEveryone | (status.st_mode & (S_ISUID | S_ISGID)));
  }
}
