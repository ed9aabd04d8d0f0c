// The transcripts of a start and a stop that go well, in pieces that the tests put together.
#pragma once

#include "tests/service/Installation.h"

namespace vlt::test
{

using Lines = std::vector<std::string>;

// Whose lines: the controller's worker threads run beside the rest of the service.
enum class By { Rest, SettingsWatcher, ExceptionWatcher, Exclusion, Polling, ControlEvents };

// A transcript of what they traced, called and ran, over all lives.
Lines LinesBy(By worker, const Installation& service);

// Up to and with ASInitScanW; then the rest of a start with default settings, and a stop.
Lines StartUpToInit(const Installation& service);
Lines StartAfterInit();
Lines Stop();

// The lines of several lists in a row.
Lines Join(std::initializer_list<Lines> parts);

// A transcript of the rest without the lines of the trace library.
Lines WithoutTrace(const Installation& service);

} // namespace vlt::test
