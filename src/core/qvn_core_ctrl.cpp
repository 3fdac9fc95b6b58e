#include "core/qvn_core_ctrl.h"

#include <new>

qvn_core_ctrl* g_core_ctrl = nullptr;

bool qvn_core_assign(std::string& text, const char* value) {
  try {
    text.assign(value);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}
