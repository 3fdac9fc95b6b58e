/// The slab for what an import keeps until it ends. One for all of it: the slots, which are visited
/// in no order, lie in huge pages as soon as the import is large.
#pragma once

#include "base/qvn_slab.h"

inline thread_local constinit qvn_slab import_slab;
