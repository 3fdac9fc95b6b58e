#include "support/small_disk.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace support {

SmallDisk::SmallDisk(const std::filesystem::path& folder, const char* options) : folder_(folder) {
  std::filesystem::create_directories(folder);
  mounted_ = mount("tmpfs", folder.c_str(), "tmpfs", 0, options) == 0;
}

SmallDisk::~SmallDisk() {
  if (mounted_)
    umount2(folder_.c_str(), MNT_DETACH);
}

long SmallDisk::free_bytes() const {
  struct statvfs disk {};
  EXPECT_EQ(statvfs(folder_.c_str(), &disk), 0);
  return static_cast<long>(disk.f_bavail * disk.f_bsize);
}

void SmallDisk::fill(long bytes_left) const {
  constexpr long kStep = 4096;
  const int fd = open(ballast().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  for (long size = 0; free_bytes() > bytes_left && posix_fallocate(fd, size, kStep) == 0;
       size += kStep)
    ;
  close(fd);
}

void SmallDisk::free() const {
  std::filesystem::remove(ballast());
}

void SmallDisk::refuse_writes() const {
  EXPECT_EQ(mount("", folder_.c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
}

void SmallDisk::take_writes() const {
  EXPECT_EQ(mount("", folder_.c_str(), "", MS_REMOUNT, ""), 0);
}

}  // namespace support
