#include "platform/Guard.h"

namespace
{

// Of no type that anybody else could catch or derive from.
struct RaisedException {
    DWORD code;
};

} // namespace

// Flags and arguments have no reader: the guard only tells the code.
void RaiseException(DWORD code, DWORD, DWORD, const ULONG_PTR*)
{
    throw RaisedException{code};
}

int VltGuardedCall(void (*function)(void* context), void* context, DWORD* code)
{
    try {
        function(context);
        return 1;
    } catch (const RaisedException& raised) {
        *code = raised.code;
        return 0;
    }
}
