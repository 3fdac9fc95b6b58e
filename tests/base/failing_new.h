/// Lets a test run out of memory: makes one of the calling thread's coming `new (std::nothrow)`
/// allocations fail.
#pragma once

/// The `nth` one from now on fails (1: the next), those before and after it succeed.
void fail_nothrow_new(int nth);

/// Lets all succeed again; returns whether the failure that was asked for has happened.
bool nothrow_new_has_failed();
