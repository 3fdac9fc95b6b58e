/// The life cycle: the fixed orders in which the modules are initialised, configured, started,
/// stopped and freed. Main thread. Where a result is stated, 0 is success and -1 a failure that has
/// been logged.
///
///     init    poller, rate import           stop   poller, rate import, logger
///     start   rate import, poller           free   rate import, poller, logger
///
/// The orders differ on purpose: the poller needs its job modules to be there before it starts and
/// is stopped before them, so that nobody hands them work while they end.
#pragma once

#include <csignal>
#include <cstdint>

[[nodiscard]] int32_t qvn_core_init();

/// Loads the database list and the modules' own sections.
[[nodiscard]] int32_t qvn_core_module_conf();

/// Stops at the first module whose thread cannot be started.
[[nodiscard]] int32_t qvn_core_start();

/// Hands the log settings to the logger and waits until the exit is requested. The signals that
/// main has blocked are let through only here, so their handler runs in this thread at this place
/// alone.
int32_t qvn_core_run();

/// Requests the exit of the run loop. Also called by the SIGTERM handler.
int32_t qvn_core_set_exit();

/// Stops every thread. Safe when an init failed or never ran.
void qvn_core_exit();

/// Frees every module, the logger and the core record. Safe when an init failed or never ran.
void qvn_core_uninit();

/// Frees the core record and what it owns; nothing when there is none.
void qvn_core_free();

/// Takes the signal mask that the run loop waits with.
void qvn_core_set_wait_mask(const sigset_t& mask);
