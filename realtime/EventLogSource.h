// The registration of the service's event source, which gives its event ids their texts.
#pragma once

// Registers VLEVENT.dll of the program folder as the message file of the source. Each step that fails
// is traced and the next is tried all the same; true when all succeeded.
bool RegisterEventLogSource();
