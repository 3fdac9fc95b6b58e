/// A disk of a few pages or megabytes that a test fills, or that takes nothing; only root has one.
#pragma once

#include <filesystem>

namespace support {

class SmallDisk {
 public:
  /// Mounts a tmpfs with these options ("size=256k,mode=0777") at the folder, which is made when
  /// there is none.
  SmallDisk(const std::filesystem::path& folder, const char* options);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool mounted() const { return mounted_; }
  /// Fills the disk, while others write to it, until so many bytes are left; and frees it again.
  void fill(long bytes_left = 0) const;
  void free() const;
  void refuse_writes() const;
  void take_writes() const;

 private:
  long free_bytes() const;
  std::filesystem::path ballast() const { return folder_ / "ballast"; }

  std::filesystem::path folder_;
  bool mounted_;
};

}  // namespace support
