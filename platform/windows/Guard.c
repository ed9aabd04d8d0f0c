/* VltGuardedCall of platform/Guard.h. C, since the compiler that knows __try cannot read the C++
   headers of the other one. */
#include <windows.h>

int VltGuardedCall(void (*function)(void* context), void* context, DWORD* code);

/* "GCC" with its class bits: how the GNU run time throws C++ exceptions through the system. */
#define GNU_CXX_THROW 0x20474343u

/* The code is only to be had here: in the handler itself Wine gives 0. */
static int Filter(DWORD raised, DWORD* code)
{
    if (raised == GNU_CXX_THROW)
        return EXCEPTION_CONTINUE_SEARCH;
    *code = raised;
    return EXCEPTION_EXECUTE_HANDLER;
}

int VltGuardedCall(void (*function)(void* context), void* context, DWORD* code)
{
    /* Only a call is a safe place for a fault: the compiler does not model one of any other
       instruction inside the block. */
    __try {
        function(context);
    } __except (Filter(GetExceptionCode(), code)) {
        return 0;
    }
    return 1;
}
