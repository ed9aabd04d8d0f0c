// Sections: memory that processes share by name, and views of it.
//
// Only sections of the page file are in the subset. Sizes are bytes; a section's last page is whole and
// zero-filled, so a view always ends at a page's end. A name lasts as long as a handle to it is open in
// a living process; views keep the memory, not the name. What a section holds may change at any time:
// whoever maps it may be one of several that write.
#pragma once

#include "base.h"

#define PAGE_READONLY 0x02u
#define PAGE_READWRITE 0x04u
#define SECTION_QUERY 0x0001u
#define SECTION_MAP_WRITE 0x0002u
#define SECTION_MAP_READ 0x0004u
#define SECTION_ALL_ACCESS 0x000F001Fu
#define FILE_MAP_WRITE SECTION_MAP_WRITE
#define FILE_MAP_READ SECTION_MAP_READ
#define FILE_MAP_ALL_ACCESS SECTION_ALL_ACCESS

// With a file of INVALID_HANDLE_VALUE and PAGE_READWRITE only. An existing section is opened as it is,
// whatever size is asked for, with ERROR_ALREADY_EXISTS. Fails with ERROR_INVALID_PARAMETER for a size
// of 0, ERROR_COMMITMENT_LIMIT when there is no room for the memory, ERROR_INVALID_HANDLE when the
// name is that of another kind of object and ERROR_ACCESS_DENIED when it is another account's own.
VLT_API HANDLE CreateFileMappingW(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protect, DWORD sizeHigh,
                                  DWORD sizeLow, LPCWSTR name);
VLT_API HANDLE CreateFileMappingA(HANDLE file, LPSECURITY_ATTRIBUTES security, DWORD protect, DWORD sizeHigh,
                                  DWORD sizeLow, LPCSTR name);
VLT_API HANDLE OpenFileMappingW(DWORD access, BOOL inherit, LPCWSTR name);
VLT_API HANDLE OpenFileMappingA(DWORD access, BOOL inherit, LPCSTR name);

// From offset 0; a size of 0 is the whole section. Access with FILE_MAP_WRITE gives a view to read and
// write, FILE_MAP_READ alone one that faults on writing. Fails with ERROR_ACCESS_DENIED beyond the
// handle's access or the section's last page.
VLT_API LPVOID MapViewOfFile(HANDLE section, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T size);
// Takes any address in a view; ERROR_INVALID_ADDRESS for others.
VLT_API BOOL UnmapViewOfFile(LPCVOID address);

#define MEM_COMMIT 0x1000u
#define MEM_MAPPED 0x40000u
struct MEMORY_BASIC_INFORMATION {
    PVOID BaseAddress;
    PVOID AllocationBase;
    DWORD AllocationProtect;
    WORD PartitionId;
    SIZE_T RegionSize; // from BaseAddress to the end of the view
    DWORD State;
    DWORD Protect;
    DWORD Type;
};
using PMEMORY_BASIC_INFORMATION = MEMORY_BASIC_INFORMATION*;
static_assert(sizeof(MEMORY_BASIC_INFORMATION) == 48 && offsetof(MEMORY_BASIC_INFORMATION, RegionSize) == 24);

// The size of the record, or 0 with the last error: only views are in the subset, any other address is
// ERROR_NOT_SUPPORTED.
VLT_API SIZE_T VirtualQuery(LPCVOID address, PMEMORY_BASIC_INFORMATION information, SIZE_T length);
