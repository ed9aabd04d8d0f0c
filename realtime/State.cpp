#include "realtime/State.h"

namespace vlt
{

RealtimeState& Realtime()
{
    // Never destroyed: a virus-log thread may still be at work when the program ends.
    static RealtimeState& state = *new RealtimeState;
    return state;
}

} // namespace vlt
