// Everything a test needs beside GoogleTest. A test program has no main of its own: the support
// library's main gives each process a machine root that is removed at its end, runs a watchdog that
// prints all stacks when a test is about to run out of time, and runs registered child bodies.
#pragma once

#include "tests/support/Child.h"
#include "tests/support/Eventually.h"
#include "tests/support/TempFolder.h"

namespace vlt::test
{

// The thread sanitizer runs a signal's handler only when its thread makes a call that it knows, which
// one that waits for a futex does not.
#ifdef __SANITIZE_THREAD__
constexpr bool kSignalsArrive = false;
#else
constexpr bool kSignalsArrive = true;
#endif

} // namespace vlt::test
