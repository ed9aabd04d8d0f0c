#include "ARDCommon/VlShareMemory.h"

#include "ARDCommon/DefSecAttr.h"
#include "ARDCommon/GlobalName.h"
#include "ARDCommon/VlDebug.h"

#include <cstring>
#include <new>

CVlShareMemory::~CVlShareMemory()
{
    Close();
}

bool CVlShareMemory::SetName(const char* name, bool nameIsFinal) noexcept
{
    try {
        m_name = nameIsFinal ? std::string(name) : vlt::MakeGlobalName(name);
        return true;
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
}

bool CVlShareMemory::Create(const char* name, LONG size, bool zeroFill, bool nameIsFinal) noexcept
{
    if (m_mapping) {
        VLT_TRACE(20, "Map file is already opened.");
        return false;
    }
    if (SetName(name, nameIsFinal)) {
        const DefSecAttr security;
        m_mapping.Reset(CreateFileMappingA(INVALID_HANDLE_VALUE, security.Get(), PAGE_READWRITE, 0,
                                           static_cast<DWORD>(size), m_name.c_str()));
    }
    const DWORD error = GetLastError();
    if (!m_mapping) {
        VLT_TRACE(20, "CreateFileMapping fails (%08x) : size = %d, name = %s", error, size, m_name);
        return false;
    }
    VLT_TRACE(40, "CreateFileMapping success : size = %d, name = %s", size, m_name);
    if (zeroFill && error != ERROR_ALREADY_EXISTS) {
        void* view = nullptr;
        if (!Map(&view, false))
            return false;
        std::memset(view, 0, static_cast<DWORD>(size));
    }
    return true;
}

bool CVlShareMemory::Open(const char* name, bool nameIsFinal) noexcept
{
    if (m_mapping) {
        VLT_TRACE(20, "Map file is already opened.");
        return false;
    }
    if (SetName(name, nameIsFinal))
        m_mapping.Reset(OpenFileMappingA(FILE_MAP_ALL_ACCESS, FALSE, m_name.c_str()));
    if (!m_mapping)
        VLT_TRACE(40, "OpenFileMapping fails (%08x) : name = %s", GetLastError(), m_name);
    return static_cast<bool>(m_mapping);
}

bool CVlShareMemory::Map(void** view, bool readOnly) noexcept
{
    Unmap();
    m_view = MapViewOfFile(m_mapping.Get(), readOnly ? FILE_MAP_READ : FILE_MAP_ALL_ACCESS, 0, 0, 0);
    if (m_view == nullptr)
        VLT_TRACE(20, " MapViewOfFile fails (%08x)", GetLastError());
    *view = m_view;
    return m_view != nullptr;
}

void CVlShareMemory::Unmap() noexcept
{
    if (m_view != nullptr && !UnmapViewOfFile(m_view))
        VLT_TRACE(20, "UnmapViewOfFile fails (%08x): %s", GetLastError(), m_name);
    m_view = nullptr;
}

void CVlShareMemory::Close() noexcept
{
    Unmap();
    if (m_mapping && !CloseHandle(m_mapping.Release()))
        VLT_TRACE(20, "CloseHandle fails (%08x): %s", GetLastError(), m_name);
}

std::size_t CVlShareMemory::MappedSize() const noexcept
{
    MEMORY_BASIC_INFORMATION region{};
    if (m_view == nullptr || VirtualQuery(m_view, &region, sizeof region) == 0 || region.State != MEM_COMMIT)
        return 0;
    return region.RegionSize;
}
