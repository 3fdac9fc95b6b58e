/// The life cycle: the modules are initialised, configured, started, stopped and freed in the
/// orders that `main` has given. Main thread. Where a result is stated, 0 is success and -1 a
/// failure that has been logged.
#pragma once

#include <csignal>
#include <cstdint>
#include <span>

/// What a module does in a phase: 0 is success.
struct qvn_core_step {
  int32_t (*run)();
  const char* label = "";  ///< of the module in messages, where the life cycle logs its failure
};

/// The steps of each phase in their order, and what the run loop waits with.
struct qvn_core_phases {
  std::span<const qvn_core_step> init;    ///< each logs its own failure
  std::span<const qvn_core_step> conf;    ///< labelled
  std::span<const qvn_core_step> start;   ///< labelled; a failure is an error number
  std::span<const qvn_core_step> exit;    ///< safe when init failed or never ran
  std::span<const qvn_core_step> uninit;  ///< the same
  sigset_t wait_mask;                     ///< the signals blocked while the run loop waits
};

/// Takes the modules; the steps stay with the caller. First of all.
void qvn_core_set_phases(const qvn_core_phases& phases);

/// Stops at the first module that fails.
[[nodiscard]] int32_t qvn_core_init();

/// Loads the database list and the modules' own sections; stops at the first failure.
[[nodiscard]] int32_t qvn_core_module_conf();

/// Stops at the first module whose thread cannot be started.
[[nodiscard]] int32_t qvn_core_start();

/// Hands the log settings to the logger and waits until the exit is requested. The signals that
/// main has blocked are let through only here, so their handler runs in this thread at this place
/// alone.
int32_t qvn_core_run();

/// Requests the exit of the run loop. Also called by the SIGTERM handler.
int32_t qvn_core_set_exit();

/// Stops the modules, then the logger. Safe when an init failed or never ran.
void qvn_core_exit();

/// Frees the modules, the logger and the core record. Safe when an init failed or never ran.
void qvn_core_uninit();

/// Frees the core record and what it owns; nothing when there is none.
void qvn_core_free();
