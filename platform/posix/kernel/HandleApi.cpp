#include "platform/posix/core/HandleTable.h"
#include "platform/posix/win32/kernel.h"

using namespace vlt::posix;

BOOL CloseHandle(HANDLE handle)
{
    constexpr KindMask kinds = MaskOf(ObjectKind::Event) | MaskOf(ObjectKind::Mutex) | MaskOf(ObjectKind::Semaphore) |
                               MaskOf(ObjectKind::Timer) | MaskOf(ObjectKind::Section) | MaskOf(ObjectKind::Thread) |
                               MaskOf(ObjectKind::Process) | MaskOf(ObjectKind::File) | MaskOf(ObjectKind::Snapshot) |
                               MaskOf(ObjectKind::Token);
    return CloseHandleOfKind(handle, kinds);
}
