// Everything a test needs beside GoogleTest. A test program has no main of its own: the support
// library's main gives each process a machine root that is removed at its end, runs a watchdog that
// prints all stacks when a test is about to run out of time, and runs registered child bodies.
#pragma once

#include "tests/support/Child.h"
#include "tests/support/Eventually.h"
#include "tests/support/TempFolder.h"
