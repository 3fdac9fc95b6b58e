#include "core/qvn_core_ctrl.h"

qvn_core_ctrl* g_core_ctrl = nullptr;

bool qvn_is_pid_file(const struct stat& status) {
  return g_core_ctrl && g_core_ctrl->pid_file.st_ino != 0 &&
         g_core_ctrl->pid_file.st_dev == status.st_dev &&
         g_core_ctrl->pid_file.st_ino == status.st_ino;
}
