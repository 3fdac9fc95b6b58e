/// Read in front of every source file: the C library's checked functions in each build that is
/// optimised, which they need, of whatever type it is.
#pragma once

#undef _FORTIFY_SOURCE
#ifdef __OPTIMIZE__
#define _FORTIFY_SOURCE 2
#endif
