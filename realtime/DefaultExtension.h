// Publishes the engine's default extension list for the user interface.
#pragma once

#include "engine/ArdScanAbi.h"

#include <string>
#include <string_view>

// Asks the library for its list and stores it in the settings key's DefaultExtension. 1 when it is
// stored, 0 when the library, the registry or memory failed; the value is then unchanged. Writing it
// signals the watcher of the key, so it belongs to start-up, before the watchers run.
int WriteEngineDefaultExtList(AsHandle handle);

// The form the user interface expects: ".{*", then the list up to the first ";{" with ";" turned into
// "." and double quotes dropped, then ".WBS" unless "WBS" is in it.
std::string RewriteExtensionList(std::string_view list);
