#include "ARDCommon/ReceivePidExceptionList.h"

#include "ARDCommon/IpcFormat.h"
#include "ARDCommon/VlDebug.h"
#include "engine/ProcAddress.h"

#include <cstring>

CReceivePidExceptionList::~CReceivePidExceptionList()
{
    Stop();
}

bool CReceivePidExceptionList::Create(const char* name)
{
    if (name == nullptr || *name == 0)
        return false;
    SetName(name);
    return true;
}

void CReceivePidExceptionList::SetLibrary(HMODULE module, AsHandle handle)
{
    m_module = module;
    m_handle = handle;
}

void CReceivePidExceptionList::OnReceive(const void* view)
{
    static_assert(sizeof(PidExceptionRequest) <= kMinimumView);
    PidExceptionRequest request;
    std::memcpy(&request, view, sizeof request);
    AddExceptionProcessID(request.processId, request.add);
}

std::int32_t CReceivePidExceptionList::AddExceptionProcessID(DWORD processId, LONG add)
{
    VLT_TRACE(40, "AddExceptionProcessID( pid = %u, add = %d", processId, add);
    const auto function = vlt::ProcAddress<ASAddRemoveExceptionProcess_t>(m_module, "ASAddRemoveExceptionProcess");
    if (function == nullptr) {
        VLT_TRACE(40, "Error: GetProcAddress( ASAddRemoveExceptionProcess )");
        return 0;
    }
    return function(m_handle, processId, static_cast<std::uint32_t>(add));
}
