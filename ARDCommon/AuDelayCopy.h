// Replacement of program files that are in use, at the next start of the system.
//
// Whoever delivers new files schedules the replacements: the files are copied to the folder NEW of the
// application folder and the pairs kept in the section AuArd of its ardentis.ini:
//
//   Count                    number of pairs, at most 1000
//   SrcFile0, DstFile0, ...  source and destination of each, shorter than 260 bytes
//
// Later the service hands the pairs to the system's list of pending renames and deletes the section.
// The section has no lock: one program schedules at a time. Paths are in the system code page. No
// function throws; failures are traced.
#pragma once

#include "platform/win32.h"

#include <vector>

struct DelayCopyPair {
    std::string source;
    std::string destination;
};
using DelayCopyList = std::vector<DelayCopyPair>;

class CAuDelayCopy
{
public:
    static constexpr unsigned kMostPairs = 1000;
    static constexpr std::size_t kPathLimit = 260; // bytes; the first length that is too long

    // Stages and records. A file that cannot be staged is recorded where it is. False when a pair was not
    // recorded; the others are.
    static bool Schedule(DelayCopyList pairs);

    // Hands what is recorded to the system and deletes the section. Nothing recorded is a success. On
    // failure the section stays and a later call hands everything over again, which does no harm: the
    // system passes over a source that an earlier pair has moved.
    static bool DoMoveFileEx();

    // The pairs that can be read. False only when Count is above kMostPairs.
    static bool ReadRecord(DelayCopyList& pairs);
    static bool ReadCount(unsigned& count);
    static bool WriteCount(unsigned count);
    // Leaves Count as it is. An index of kMostPairs and above is refused.
    static bool WritePair(unsigned index, const std::string& source, const std::string& destination);
    static bool DeleteRecord();

    // What systems before the NT family read at their start: short paths in the section "rename" of
    // wininit.ini. False when a pair failed; all are tried.
    static bool WriteWinInit(const DelayCopyList& pairs);
};
